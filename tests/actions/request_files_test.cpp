#include "actions/request_files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "exchange/result_codes.h"
#include "ini/ini_document.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scratch_root.h"

namespace {

using namespace kx::actions;
using namespace kx::exchange;
using Entries = std::vector<std::string>;

// The file as the daemon reads it: "[section]" and "key=value" entries in file order.
Entries Load(const std::string& path) {
  kx::ini::Document document;
  EXPECT_EQ(document.Load(path), 0) << path;
  Entries read;
  for (const kx::ini::Section& section : document.Sections()) {
    read.push_back("[" + section.name + "]");
    for (const kx::ini::Key& key : section.keys) read.push_back(key.name + "=" + key.value);
  }
  return read;
}

class RequestFilesTest : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) { return root_ / ("/" + name); }
  kx::test::ScratchRoot root_;
};

TEST_F(RequestFilesTest, EachWriterWritesItsSectionWithKeysInOrder) {
  const std::pair<std::function<int32_t(const std::string&)>, Entries> cases[] = {
      {[](const std::string& p) { return CreatePostActionIni(p, "SoftwareUpdate", "Reboot", 4294967295u, -1); },
       {"[PostAction]", "Retval=-1", "Options=4294967295", "WebMethod=SoftwareUpdate", "Action=Reboot"}},
      {[](const std::string& p) { return CreateGetImageIni(p, 7, "/.syscfg-action/A1/SystemImage.tgz", ""); },
       {"[GetImage]", "Options=7", "ImagePath=/.syscfg-action/A1/SystemImage.tgz", "BlackListPath="}},
      {[](const std::string& p) { return CreateSetImageIni(p, 120000, 8, "/u/image.tgz", "/u/black list"); },
       {"[SetImage]", "Options=8", "Timeout=120000", "LocalPath=/u/image.tgz", "BlackListPath=/u/black list"}},
      {[](const std::string& p) { return CreateFormatIni(p, 60000, 0); }, {"[Format]", "Options=0", "Timeout=60000"}},
  };
  for (const auto& [write, entries] : cases) {
    ASSERT_EQ(write(Path("request.ini")), kResultOk) << entries[0];
    EXPECT_EQ(Load(Path("request.ini")), entries);
  }
  // Plain "key=value" lines, no byte-order mark: what a daemon's own reader expects.
  EXPECT_EQ(kx::test::ReadFile(Path("request.ini")), "[Format]\nOptions=0\nTimeout=60000\n");
}

// Values are the remote host's: written as given, a line end as a line end.
// What they spill onto later lines can never replace a key written before them.
TEST_F(RequestFilesTest, ValuesAreWrittenAsGivenOrRefusedWhole) {
  for (const std::string value : {"[Evil]", "Key=value", "; not a comment", "ends with [", "]", "x=[y]", "\"half"}) {
    ASSERT_EQ(CreatePostActionIni(Path("post.ini"), value, value, 0, 0), kResultOk) << value;
    EXPECT_EQ(Load(Path("post.ini")),
              (Entries{"[PostAction]", "Retval=0", "Options=0", "WebMethod=" + value, "Action=" + value}));
  }
  // What would read back as another value, or add a key, is refused and nothing is written.
  std::filesystem::remove(Path("post.ini"));
  for (const std::string value : {"\"quoted\"", "Get\r\nRetval=1", "x\n[PostAction]\nOptions=9"}) {
    EXPECT_EQ(CreatePostActionIni(Path("post.ini"), "Get", value, 3, 0), kResultOutOfMemory) << value;
  }
  EXPECT_EQ(CreateSetImageIni(Path("set.ini"), 0, 0, "/x.tgz\nTimeout=1", "/b"), kResultOutOfMemory);
  EXPECT_FALSE(std::filesystem::exists(Path("post.ini")));
  EXPECT_FALSE(std::filesystem::exists(Path("set.ini")));

  // Unsavable destinations fail without writing anything.
  for (const std::string& path : {std::string(), std::string("format.ini"), Path("missing/format.ini")}) {
    EXPECT_EQ(CreateFormatIni(path, 60000, 0), kResultSaveFailed) << path;
  }
  EXPECT_FALSE(std::filesystem::exists("format.ini"));
}

}  // namespace
