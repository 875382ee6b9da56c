#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/support/log_recorder.h"
#include "tests/web_methods/web_method_fixture.h"

namespace kx::test {
namespace {

namespace fs = std::filesystem;

constexpr int32_t kCorruptImage = int32_t(0x800407CDu);

std::string ImageAnswer(int32_t result) {
  return std::string(kXmlDeclaration) + "<GetSystemImage Result=\"" + std::to_string(result) +
         "\" ImageFileURL=\".syscfg-action/A1/SystemImage.tgz\" />";
}

Form GetImage(const std::string& blacklist, const std::string& id = "A1") {
  return {{"ActionID", id}, {"Blacklist", blacklist}, {"Options", "5"}};
}
Form SetImage(const std::string& localPath, const std::string& options = "0", const std::string& blacklist = "") {
  return {{"ActionID", "A1"},
          {"LocalPath", localPath},
          {"Blacklist", blacklist},
          {"Options", options},
          {"Timeout", "60000"}};
}
Form FormatForm(const std::string& options, const std::string& id = "A1") {
  return {{"ActionID", id}, {"Timeout", "1000"}, {"Options", options}};
}

class SystemImageTest : public WebMethodTest {
 protected:
  // A gzip file made by gzip itself, then cut to `keep` bytes or extended by `append`.
  void MakeGzip(const std::string& path, long keep = -1, const std::string& append = "") const {
    root.WriteFile("/gz/image", std::string(100000, 'x'));
    ASSERT_EQ(std::system(("gzip -c '" + (root / "/gz/image") + "' > '" + path + "'").c_str()), 0);
    if (keep >= 0) fs::resize_file(path, keep);
    if (!append.empty()) std::ofstream(path, std::ios::app) << append;
  }
};

TEST_F(SystemImageTest, GetSystemImageWritesBlacklistAndRequestFile) {
  const std::string directory = Begin();
  EXPECT_EQ(Run("GetSystemImage", GetImage("", "A2")).output, ImageAnswer(kNotLockHolder));
  EXPECT_FALSE(fs::exists(directory + "getimage.ini"));
  EXPECT_EQ(Run("GetSystemImage", GetImage("")).output, ImageAnswer(0));
  EXPECT_EQ(IniText(directory + "getimage.ini", "GetImage", "BlackListPath"), "");
  EXPECT_FALSE(fs::exists(directory + "GetSystemImageBlacklist"));

  EXPECT_EQ(Run("GetSystemImage", GetImage("/data/a\t/.syscfg-action/A1/x\n\r\nrel")).output, ImageAnswer(0));
  EXPECT_EQ(ReadFile(directory + "GetSystemImageBlacklist"), "data/a\n.syscfg-action/A1/x\nel\n");
  const std::string ini = directory + "getimage.ini";
  EXPECT_EQ(IniText(ini, "GetImage", "Options") + "|" + IniText(ini, "GetImage", "ImagePath") + "|" +
                IniText(ini, "GetImage", "BlackListPath"),
            "5|" + directory + "SystemImage.tgz|/mnt/userfs/.syscfg-action/A1/GetSystemImageBlacklist");
  EXPECT_GT(TakeRestarts(), 0);

  std::string blacklist;
  for (int i = 0; i < 10000; ++i) blacklist += "/../../etc/p" + std::to_string(i) + "\n";
  EXPECT_EQ(Run("GetSystemImage", GetImage(blacklist)).output, ImageAnswer(0));
  const std::string written = ReadFile(directory + "GetSystemImageBlacklist");
  EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 10000);
  EXPECT_EQ(written.substr(0, 14), "../../etc/p0\n.");
  EXPECT_FALSE(fs::exists(root / "/etc/p0"));
}

TEST_F(SystemImageTest, MissingOrBadFieldsAnswer400WithoutBody) {
  Begin();
  const std::pair<const char*, Form> rows[] = {
      {"GetSystemImage", {{"ActionID", "A1"}, {"Options", "0"}}},
      {"GetSystemImage", {{"ActionID", "A1"}, {"Blacklist", ""}, {"Options", "-1"}}},
      {"SetSystemImage", {{"ActionID", "A1"}, {"LocalPath", "/x"}, {"Blacklist", ""}, {"Options", "0"}}},
      {"SetSystemImage", SetImage("/x", "4294967296")},
      {"SetSystemImage",
       {{"ActionID", "A1"}, {"LocalPath", "/\xff"}, {"Blacklist", ""}, {"Options", "0"}, {"Timeout", "1"}}},
      {"Format", {{"Timeout", "1"}, {"Options", "32"}}},
      {"Format", FormatForm("32x")},
  };
  for (const auto& [method, form] : rows) {
    const webruntime::MemoryRequest reply = Run(method, form);
    EXPECT_EQ(reply.status, 400) << method;
    EXPECT_EQ(reply.output, "") << method;
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(root / "/.syscfg-action/A1"), fs::directory_iterator()), 1)
      << "only the lock record";
}

TEST_F(SystemImageTest, SetSystemImageTestsTheImageWithGzip) {
  const std::string directory = Begin();
  const struct {
    const char* what;
    long keep;
    std::string append;
    int32_t result;
  } rows[] = {
      {"good", -1, "", 0},
      {"trailing garbage: gzip warns with status 2", -1, "garbage", 0},
      {"truncated", 60, "", kCorruptImage},
      {"not gzip", 0, "plain text", kCorruptImage},
  };
  for (const auto& row : rows) {
    fs::remove(directory + "setimage.ini");
    MakeGzip(directory + "image.tgz", row.keep, row.append);
    EXPECT_EQ(Run("SetSystemImage", SetImage("/.syscfg-action/A1/image.tgz")).output,
              Answer("SetSystemImage", row.result))
        << row.what;
    EXPECT_EQ(fs::exists(directory + "setimage.ini"), row.result == 0) << row.what;
  }
  EXPECT_EQ(Run("SetSystemImage", SetImage("/.syscfg-action/A1/missing.tgz")).output,
            Answer("SetSystemImage", kCorruptImage));
}

// The image is tested wherever it lies below the root; the daemon decides what it
// restores. A missing or relative path, or a FIFO that would keep gzip waiting,
// is a corrupt image.
TEST_F(SystemImageTest, SetSystemImageTestsTheImageWhereverItLies) {
  const std::string directory = Begin();
  MakeGzip(root / "/outside.tgz");
  for (const std::string path : {"/outside.tgz", "/.syscfg-action/../../outside.tgz"}) {
    fs::remove(directory + "setimage.ini");
    EXPECT_EQ(Run("SetSystemImage", SetImage(path)).output, Answer("SetSystemImage", 0)) << path;
    EXPECT_EQ(IniText(directory + "setimage.ini", "SetImage", "LocalPath"), path);
  }
  fs::remove(directory + "setimage.ini");
  ASSERT_EQ(::mkfifo((directory + "fifo").c_str(), 0644), 0);
  MakeGzip(directory + "image.tgz");
  for (const std::string path : {"/.syscfg-action/A2/image.tgz", "/.syscfg-action/A1/fifo", "image.tgz", "-", ""}) {
    EXPECT_EQ(Run("SetSystemImage", SetImage(path)).output, Answer("SetSystemImage", kCorruptImage)) << path;
  }
  EXPECT_FALSE(fs::exists(directory + "setimage.ini"));
}

// Run mode: SetSystemImage refuses Options 8, Format needs Options 32.
TEST_F(SystemImageTest, RunModeRules) {
  const std::string directory = Begin();
  MakeGzip(directory + "image.tgz");
  EXPECT_EQ(Run("SetSystemImage", SetImage("/.syscfg-action/A1/image.tgz", "8")).output,
            Answer("SetSystemImage", kFail));
  EXPECT_EQ(TakeRestarts(), 0);
  EXPECT_EQ(Run("SetSystemImage", SetImage("/.syscfg-action/A1/image.tgz", "0", "/a")).output,
            Answer("SetSystemImage", 0));
  EXPECT_GT(TakeRestarts(), 0);
  const std::string ini = directory + "setimage.ini";
  EXPECT_EQ(IniText(ini, "SetImage", "Timeout") + "|" + IniText(ini, "SetImage", "LocalPath") + "|" +
                IniText(ini, "SetImage", "BlackListPath"),
            "60000|/.syscfg-action/A1/image.tgz|/mnt/userfs/.syscfg-action/A1/SetSystemImageBlacklist");
  EXPECT_EQ(ReadFile(directory + "SetSystemImageBlacklist"), "a\n");

  EXPECT_EQ(Run("Format", FormatForm("0", "A2")).output, Answer("Format", kNotLockHolder));
  EXPECT_EQ(Run("Format", FormatForm("0")).output, Answer("Format", int32_t(0x800407F0u)));
  EXPECT_FALSE(fs::exists(directory + "format.ini"));
  EXPECT_EQ(Run("Format", FormatForm("32")).output, Answer("Format", 0));
  EXPECT_EQ(IniText(directory + "format.ini", "Format", "Options") + "|" +
                IniText(directory + "format.ini", "Format", "Timeout"),
            "32|1000");
}

// In safe mode GetSystemImage needs no daemon; SetSystemImage and Format need it whatever the options.
TEST_F(SystemImageTest, SafeModeRules) {
  EnterSafeMode();
  const std::string directory = Begin();
  EXPECT_EQ(Run("GetSystemImage", GetImage("/mnt/userfs/data/a")).output, ImageAnswer(0));
  EXPECT_EQ(ReadFile(directory + "GetSystemImageBlacklist"), "data/a\n");
  EXPECT_EQ(IniText(directory + "getimage.ini", "GetImage", "BlackListPath"), directory + "GetSystemImageBlacklist");
  MakeGzip(directory + "image.tgz");
  EXPECT_EQ(Run("Format", FormatForm("32")).output, Answer("Format", kFail));
  EXPECT_EQ(Run("SetSystemImage", SetImage("/.syscfg-action/A1/image.tgz")).output, Answer("SetSystemImage", kFail));
  processes.daemonRunning = true;
  EXPECT_EQ(Run("Format", FormatForm("0")).output, Answer("Format", 0));
  EXPECT_EQ(Run("SetSystemImage", SetImage("/.syscfg-action/A1/image.tgz", "8", "/mnt/userfs/b")).output,
            Answer("SetSystemImage", 0));
  EXPECT_EQ(IniText(directory + "setimage.ini", "SetImage", "BlackListPath"), directory + "SetSystemImageBlacklist");
}

}  // namespace
}  // namespace kx::test
