// Loading, saving and safe saves.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <set>
#include <tuple>

#include "ini/ini_document.h"
#include "ini/ini_test_hook.h"
#include "ini_test_support.h"
#include "tests/kx/tal/osdep/child_process.h"

namespace kx::ini {
namespace {

using test::ReadFile;
using test::WriteFile;

std::set<std::string> Entries(const test::ScratchDir& dir) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) names.insert(entry.path().filename());
  return names;
}

constexpr char kRequestText[] = "[Format]\nOptions=0\nTimeout=60000\n";

Document RequestDocument(uint32_t options, int32_t maxLength = -1) {
  Document document(options);
  document.SetWriteSettings(maxLength, 0, options);
  EXPECT_EQ(document.SetUInt32("Format", "Options", 0) | document.SetUInt32("Format", "Timeout", 60000), kOk);
  return document;
}

// The safe-save hook is a plain function pointer; it takes its orders from here.
std::string lastTemporary;
std::string replaceByDirectory;                    // this target becomes a directory, so that the rename fails
kx::test::ReadySignal* signalThenBlock = nullptr;  // sends, then waits to be killed

void AtRename(const char* temporary) {
  lastTemporary = temporary;
  if (!replaceByDirectory.empty()) {
    std::filesystem::remove(replaceByDirectory);
    std::filesystem::create_directories(replaceByDirectory + "/inside");
  }
  if (signalThenBlock != nullptr) {
    signalThenBlock->Send();
    for (;;) ::pause();
  }
}

class IniFileTest : public ::testing::Test {
 protected:
  void SetUp() override { SetSafeSaveHookForTesting(AtRename); }
  void TearDown() override {
    SetSafeSaveHookForTesting(nullptr);
    replaceByDirectory.clear();
  }
  test::ScratchDir dir_;
};

TEST_F(IniFileTest, LoadReportsMissingAndUnreadableFiles) {
  Document document;
  EXPECT_EQ(document.Load(""), kErrorInvalid);
  EXPECT_EQ(document.Load(dir_ / "missing.ini"), kErrorInvalid);
  EXPECT_EQ(document.Load(dir_.Path()), kErrorUnreadable);  // opens, but cannot be read
  const std::string path = dir_ / "swdiag.ini";
  WriteFile(path, "[orla]\nSeverity=49\n");
  ::chmod(path.c_str(), 0600);
  ::chmod(dir_.Path().c_str(), 0755);
  EXPECT_EQ(kx::test::RunInChild([&] {  // as an unprivileged user
              return ::setgid(65534) == 0 && ::setuid(65534) == 0 && Document().Load(path) == kErrorUnreadable ? 0 : 1;
            }),
            0);
  ASSERT_EQ(document.Load(path), kOk);
  int32_t severity = 0;
  EXPECT_TRUE(document.GetInt32("orla", "Severity", severity) && severity == 49);
}

TEST_F(IniFileTest, SafeSaveNamesItsTemporaryFile) {
  const std::pair<const char*, const char*> names[] = {
      {"config.ini", "config.TMP"}, {"config.TMP", "config.TMP.TMP"}, {"config", "config.TMP"}};
  for (const auto& [target, temporary] : names) {
    ASSERT_EQ(RequestDocument(kOptionSafeSave).Save(dir_ / target), kOk);
    EXPECT_EQ(lastTemporary, dir_ / temporary);
  }
  ASSERT_EQ(RequestDocument(kOptionSafeSave | kOptionUniqueTemporary).Save(dir_ / "config.ini"), kOk);
  EXPECT_EQ(lastTemporary.substr(0, lastTemporary.size() - 6), dir_ / "ini$$.TMP");
  EXPECT_EQ(ReadFile(dir_ / "config.ini"), kRequestText);
  EXPECT_EQ(Entries(dir_), (std::set<std::string>{"config", "config.ini"}));
}

TEST_F(IniFileTest, KilledSafeSaveLeavesTheOldFileWhole) {
  const std::string path = dir_ / "postaction.ini";
  WriteFile(path, "old content\n");
  kx::test::ReadySignal renaming;
  kx::test::ChildProcess child([&] {
    signalThenBlock = &renaming;
    return RequestDocument(kOptionSafeSave | kOptionSync).Save(path);
  });
  ASSERT_TRUE(renaming.Wait());
  child.Kill();
  EXPECT_EQ(child.Wait(), 128 + SIGKILL);
  EXPECT_EQ(ReadFile(path), "old content\n");
  EXPECT_EQ(ReadFile(dir_ / "postaction.TMP"), kRequestText);
}

TEST_F(IniFileTest, FailedSavesLeaveNoTemporaryBehind) {
  const std::string path = dir_ / "config.ini";
  for (uint32_t options : {0u, 0u + kOptionSafeSave, 0u + kOptionSafeSave + kOptionUniqueTemporary}) {
    SCOPED_TRACE(options);
    WriteFile(path, "old\n");
    Document tooLong = RequestDocument(options, 12 + 7);  // "Options" needs splitting, but no room
    ASSERT_EQ(tooLong.SetText("Format", "Options", "a long value"), kOk);
    EXPECT_EQ(tooLong.Save(path), kErrorLineTooShort);
    if (options == 0) {  // written in place: what could not be finished is removed
      EXPECT_TRUE(Entries(dir_).empty());
      continue;
    }
    EXPECT_EQ(ReadFile(path), "old\n");
    replaceByDirectory = path;
    EXPECT_EQ(RequestDocument(options).Save(path), kErrorNotWritable);
    replaceByDirectory.clear();
    EXPECT_EQ(Entries(dir_), std::set<std::string>{"config.ini"});
    std::filesystem::remove_all(path);
  }
  EXPECT_EQ(RequestDocument(0).Save(dir_ / "no/such/dir.ini"), kErrorCannotCreate);
  EXPECT_EQ(RequestDocument(0).Save(""), kErrorInvalid);
  EXPECT_TRUE(Entries(dir_).empty());
}

TEST_F(IniFileTest, SafeSaveKeepsOwnerGroupAndMode) {
  const std::string path = dir_ / "owned.ini";
  for (uint32_t unique : {0u, 0u + kOptionUniqueTemporary}) {
    WriteFile(path, "old\n");
    ASSERT_EQ(::chown(path.c_str(), 65534, 65534) | ::chmod(path.c_str(), 0640), 0);
    ASSERT_EQ(RequestDocument(kOptionSafeSave | unique).Save(path), kOk);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(std::make_tuple(status.st_uid, status.st_gid, status.st_mode & 07777),
              std::make_tuple(65534u, 65534u, 0640u));
  }
}

}  // namespace
}  // namespace kx::ini
