#include "actions/request_files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "actions/result_codes.h"
#include "ini/ini_document.h"
#include "tests/actions/action_test_support.h"
#include "tests/support/scratch_root.h"

namespace {

using namespace kx::actions;
using KeyValues = std::vector<std::pair<std::string, std::string>>;

// The file as the daemon reads it: the names of all sections, and the keys of
// the one expected section in file order.
struct ReadBack {
  std::vector<std::string> sections;
  KeyValues keys;
};

ReadBack Load(const std::string& path) {
  kx::ini::Document document;
  EXPECT_EQ(document.Load(path), 0) << path;
  ReadBack read;
  for (const kx::ini::Section& section : document.Sections()) {
    read.sections.push_back(section.name);
    for (const kx::ini::Key& key : section.keys) read.keys.emplace_back(key.name, key.value);
  }
  return read;
}

class RequestFilesTest : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) { return root_ / ("/" + name); }
  kx::test::ScratchRoot root_;
};

TEST_F(RequestFilesTest, EachWriterWritesItsSectionWithKeysInOrder) {
  struct Case {
    std::function<int32_t(const std::string&)> write;
    std::string section;
    KeyValues keys;
  };
  const Case cases[] = {
      {[](const std::string& p) { return CreatePostActionIni(p, "SoftwareUpdate", "Reboot", 4294967295u, -1); },
       "PostAction",
       {{"Retval", "-1"}, {"Options", "4294967295"}, {"WebMethod", "SoftwareUpdate"}, {"Action", "Reboot"}}},
      {[](const std::string& p) { return CreateGetImageIni(p, 7, "/.syscfg-action/A1/SystemImage.tgz", ""); },
       "GetImage",
       {{"Options", "7"}, {"ImagePath", "/.syscfg-action/A1/SystemImage.tgz"}, {"BlackListPath", ""}}},
      {[](const std::string& p) { return CreateSetImageIni(p, 120000, 8, "/u/image.tgz", "/u/black list"); },
       "SetImage",
       {{"Options", "8"}, {"Timeout", "120000"}, {"LocalPath", "/u/image.tgz"}, {"BlackListPath", "/u/black list"}}},
      {[](const std::string& p) { return CreateFormatIni(p, 60000, 0); },
       "Format",
       {{"Options", "0"}, {"Timeout", "60000"}}},
  };
  for (const Case& c : cases) {
    const std::string path = Path(c.section + ".ini");
    ASSERT_EQ(c.write(path), kResultOk) << c.section;
    const ReadBack read = Load(path);
    EXPECT_EQ(read.sections, std::vector<std::string>{c.section});
    EXPECT_EQ(read.keys, c.keys) << c.section;
  }
  // Plain "key=value" lines, no byte-order mark: what a daemon's own reader expects.
  EXPECT_EQ(kx::test::ReadFile(Path("Format.ini")), "[Format]\nOptions=0\nTimeout=60000\n");
}

TEST_F(RequestFilesTest, ValuesCannotAddKeysOrSections) {
  const std::string carried[] = {"[Evil]", "Key=value", "\"quoted\"", "; not a comment",
                                 "ends with [", "]", "x=[y]"};
  for (const std::string& value : carried) {
    ASSERT_EQ(CreatePostActionIni(Path("post.ini"), value, value, 0, 0), kResultOk) << value;
    const ReadBack read = Load(Path("post.ini"));
    EXPECT_EQ(read.sections, std::vector<std::string>{"PostAction"}) << value;
    ASSERT_EQ(read.keys.size(), 4u) << value;
    EXPECT_EQ(read.keys[2].second, value);
    EXPECT_EQ(read.keys[3].second, value);
  }
  const std::string refused[] = {"a\nb", "x\n[Evil]\nRetval=1", "cr\rhere", std::string("nul\0x", 5)};
  for (const std::string& value : refused) {
    const std::string path = Path("refused.ini");
    EXPECT_EQ(CreatePostActionIni(path, "FinalizeAction", value, 0, 0), kResultOutOfMemory);
    EXPECT_EQ(CreateGetImageIni(path, 0, value, ""), kResultOutOfMemory);
    EXPECT_EQ(CreateSetImageIni(path, 0, 0, "/x", value), kResultOutOfMemory);
    EXPECT_FALSE(std::filesystem::exists(path));
  }
}

TEST_F(RequestFilesTest, UnsavableDestinationsFailWithoutWriting) {
  EXPECT_EQ(CreateFormatIni("", 60000, 0), kResultSaveFailed);
  EXPECT_EQ(CreateFormatIni("format.ini", 60000, 0), kResultSaveFailed);
  EXPECT_FALSE(std::filesystem::exists("format.ini"));
  EXPECT_EQ(CreateFormatIni(Path("missing/format.ini"), 60000, 0), kResultSaveFailed);
}

}  // namespace
