#include "discovery/txt_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/scratch_root.h"

using kx::discovery::TxtList;

namespace {

// The entries in the order they were added.
std::vector<std::string> Entries(const TxtList& list) {
  std::vector<std::string> entries;
  for (AvahiStringList* entry = list.get(); entry != nullptr; entry = avahi_string_list_get_next(entry)) {
    entries.emplace_back(reinterpret_cast<const char*>(avahi_string_list_get_text(entry)),
                         avahi_string_list_get_size(entry));
  }
  std::reverse(entries.begin(), entries.end());
  return entries;
}

TEST(TxtRecordTest, PairsAreAddedInKeyOrderWithAFourDigitProductId) {
  TxtList list;
  ASSERT_TRUE(kx::discovery::BuildTxtList(kx::discovery::ServiceTxtPairs("cRIO", 0x1A, "https"), list));
  EXPECT_EQ(Entries(list),
            (std::vector<std::string>{"DevClass=cRIO", "OS=Linux-ARMv7-A", "ProdId=0x001A", "server=https"}));
  EXPECT_EQ(kx::discovery::FormatProductId(0xABCDE), "0xABCDE");
}

TEST(TxtRecordTest, MacAddressComesLastOnlyOnceAndOnlyWhenReadable) {
  kx::test::ScratchRoot root;
  for (const char* mac : {"02:00:0a:bc:de:f1", "02:00:0a:bc:de"}) {
    root.WriteFile("/etc/brenmar/share/target.ini", std::string("[Target]\nMACAddress=") + mac + "\n");
    const bool readable = std::string(mac).size() == 17;
    TxtList list, empty;
    ASSERT_TRUE(kx::discovery::BuildTxtList({{"OS", "x"}}, list));
    kx::discovery::AddMacAddressIfAbsent(list);
    kx::discovery::AddMacAddressIfAbsent(list);  // already there
    kx::discovery::AddMacAddressIfAbsent(empty);
    EXPECT_EQ(Entries(list), readable ? (std::vector<std::string>{"OS=x", "MAC=02:00:0A:BC:DE:F1"})
                                      : std::vector<std::string>{"OS=x"});
    EXPECT_EQ(Entries(empty).size(), readable ? 1u : 0u);
  }
}

}  // namespace
