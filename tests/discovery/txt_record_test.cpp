#include "discovery/txt_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kx/tal/log.h"
#include "tests/support/scratch_root.h"

using kx::discovery::TxtList;

namespace {

// The entries in the order they were added.
std::vector<std::string> Entries(const TxtList& list) {
  std::vector<std::string> entries;
  for (AvahiStringList* entry = list.get(); entry != nullptr;
       entry = avahi_string_list_get_next(entry)) {
    entries.emplace_back(reinterpret_cast<const char*>(avahi_string_list_get_text(entry)),
                         avahi_string_list_get_size(entry));
  }
  std::reverse(entries.begin(), entries.end());
  return entries;
}

class TxtRecordTest : public testing::Test {
 protected:
  void SetUp() override {
    kx::tal::InitTraceLog(kx::tal::logmask::kError | kx::tal::logmask::kInfo, 0, "", 0);
    kx::tal::SetLogCapture([this](uint32_t, const std::string& text) { logged_.push_back(text); });
  }
  void TearDown() override {
    kx::tal::SetLogCapture({});
    kx::tal::InitTraceLog(1, 0, "", 0);
  }
  void WriteMacAddress(const std::string& mac) {
    root_.WriteFile("/etc/brenmar/share/target.ini", "[Target]\nMACAddress=" + mac + "\n");
  }

  kx::test::ScratchRoot root_;
  std::vector<std::string> logged_;
};

TEST_F(TxtRecordTest, PairsAreAddedInKeyOrderAndLogged) {
  TxtList list;
  ASSERT_TRUE(
      kx::discovery::BuildTxtList(kx::discovery::ServiceTxtPairs("cRIO", 0x1A, "https"), list));
  EXPECT_EQ(Entries(list), (std::vector<std::string>{"DevClass=cRIO", "OS=Linux-ARMv7-A",
                                                     "ProdId=0x001A", "server=https"}));
  ASSERT_EQ(logged_.size(), 4u);
  EXPECT_EQ(logged_[0], "Adding entry (key, value) = (\"DevClass\", \"cRIO\")");
  EXPECT_EQ(logged_[3], "Adding entry (key, value) = (\"server\", \"https\")");
}

TEST_F(TxtRecordTest, ProductIdHasAtLeastFourUpperCaseDigits) {
  EXPECT_EQ(kx::discovery::FormatProductId(0), "0x0000");
  EXPECT_EQ(kx::discovery::FormatProductId(0x1A), "0x001A");
  EXPECT_EQ(kx::discovery::FormatProductId(0xBEEF), "0xBEEF");
  EXPECT_EQ(kx::discovery::FormatProductId(0xABCDE), "0xABCDE");
  EXPECT_EQ(kx::discovery::FormatProductId(0xFFFFFFFFu), "0xFFFFFFFF");
}

TEST_F(TxtRecordTest, MacAddressComesLastAndOnlyOnce) {
  WriteMacAddress("02:00:0a:bc:de:f1");
  TxtList list;
  ASSERT_TRUE(kx::discovery::BuildTxtList({{"OS", "x"}}, list));
  kx::discovery::AddMacAddressIfAbsent(list);
  EXPECT_EQ(Entries(list), (std::vector<std::string>{"OS=x", "MAC=02:00:0A:BC:DE:F1"}));

  kx::discovery::AddMacAddressIfAbsent(list);  // already there
  EXPECT_EQ(Entries(list).size(), 2u);

  TxtList empty;
  kx::discovery::AddMacAddressIfAbsent(empty);
  EXPECT_EQ(Entries(empty), (std::vector<std::string>{"MAC=02:00:0A:BC:DE:F1"}));
}

TEST_F(TxtRecordTest, UnreadableMacAddressAddsNoEntry) {
  WriteMacAddress("02:00:0a:bc:de");
  TxtList list;
  ASSERT_TRUE(kx::discovery::BuildTxtList({{"OS", "x"}}, list));
  kx::discovery::AddMacAddressIfAbsent(list);
  EXPECT_EQ(Entries(list), (std::vector<std::string>{"OS=x"}));
}

}  // namespace
