// Loading, saving, safe saves and writing into open files.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <csignal>
#include <filesystem>
#include <set>

#include "ini/ini_document.h"
#include "ini/ini_test_hook.h"
#include "ini_test_support.h"

namespace kx::ini {
namespace {

using test::ReadFile;
using test::WriteFile;

std::set<std::string> Entries(const test::ScratchDir& dir) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

Document RequestDocument(uint32_t options) {
  Document document(options);
  EXPECT_EQ(document.SetUInt32("Format", "Options", 0), kOk);
  EXPECT_EQ(document.SetUInt32("Format", "Timeout", 60000), kOk);
  return document;
}

// The safe-save hook is a plain function pointer, so the tests talk to it through these.
std::string lastTemporary;
std::string hookTarget;
int hookPipe = -1;

void RecordTemporary(const char* path) { lastTemporary = path; }

void ReplaceTargetByDirectory(const char*) {
  std::filesystem::remove(hookTarget);
  std::filesystem::create_directory(hookTarget);
  WriteFile(hookTarget + "/inside", "x");
}

void SignalAndBlock(const char*) {
  const char ready = 'r';
  if (::write(hookPipe, &ready, 1) == 1) {
    for (;;) ::pause();
  }
}

class IniFileTest : public ::testing::Test {
 protected:
  void TearDown() override { SetSafeSaveHookForTesting(nullptr); }
  test::ScratchDir dir_;
};

TEST_F(IniFileTest, LoadReportsMissingUnreadableAndChangedFiles) {
  Document document;
  EXPECT_EQ(document.ChangedOnDisk(), kErrorNoFileName);
  EXPECT_EQ(document.Load(""), kErrorInvalid);
  EXPECT_EQ(document.Load(dir_ / "missing.ini"), kErrorInvalid);
  EXPECT_EQ(document.Load(dir_.Path()), kErrorUnreadable);  // opens, but cannot be read

  const std::string path = dir_ / "swdiag.ini";
  WriteFile(path, "[orla]\nSeverity=49\n");
  ::chmod(path.c_str(), 0600);
  EXPECT_EQ(test::RunAsNobody([&] { return Document().Load(path); }), kErrorUnreadable);

  ASSERT_EQ(document.Load(path), kOk);
  int32_t severity = 0;
  EXPECT_TRUE(document.GetInt32("orla", "Severity", severity) && severity == 49);
  EXPECT_EQ(document.ChangedOnDisk(), 0);
  struct utimbuf times = {1000, 1000};
  ASSERT_EQ(::utime(path.c_str(), &times), 0);
  EXPECT_EQ(document.ChangedOnDisk(), 1);
  std::filesystem::remove(path);
  EXPECT_EQ(document.ChangedOnDisk(), kErrorInvalid);
}

TEST_F(IniFileTest, SafeSaveNamesItsTemporaryFile) {
  SetSafeSaveHookForTesting(RecordTemporary);
  const std::pair<const char*, const char*> names[] = {
      {"config.ini", "config.TMP"}, {"config.TMP", "config.TMP.TMP"}, {"config", "config.TMP"}};
  for (const auto& [target, temporary] : names) {
    Document document = RequestDocument(kOptionSafeSave);
    ASSERT_EQ(document.Save(dir_ / target), kOk);
    EXPECT_EQ(lastTemporary, dir_ / temporary);
  }

  Document document = RequestDocument(kOptionSafeSave | kOptionUniqueTemporary);
  ASSERT_EQ(document.Save(dir_ / "config.ini"), kOk);
  EXPECT_EQ(lastTemporary.substr(0, lastTemporary.size() - 6), dir_ / "ini$$.TMP");
  EXPECT_EQ(ReadFile(dir_ / "config.ini"), "[Format]\nOptions=0\nTimeout=60000\n");
  EXPECT_EQ(Entries(dir_), (std::set<std::string>{"config", "config.ini"}));
}

TEST_F(IniFileTest, KilledSafeSaveLeavesTheOldFileWhole) {
  const std::string path = dir_ / "postaction.ini";
  WriteFile(path, "old content\n");
  int channel[2];
  ASSERT_EQ(::pipe(channel), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    hookPipe = channel[1];
    SetSafeSaveHookForTesting(SignalAndBlock);
    RequestDocument(kOptionSafeSave | kOptionSync).Save(path);
    ::_exit(0);
  }
  char ready = 0;
  ASSERT_EQ(::read(channel[0], &ready, 1), 1);
  ::kill(child, SIGKILL);
  int status = 0;
  ::waitpid(child, &status, 0);
  ::close(channel[0]);
  ::close(channel[1]);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(ReadFile(path), "old content\n");
  EXPECT_EQ(ReadFile(dir_ / "postaction.TMP"), "[Format]\nOptions=0\nTimeout=60000\n");
}

TEST_F(IniFileTest, FailedSavesLeaveNoTemporaryBehind) {
  const std::string path = dir_ / "config.ini";
  WriteFile(path, "old\n");
  for (uint32_t unique : {0u, uint32_t{kOptionUniqueTemporary}}) {
    Document tooLong = RequestDocument(kOptionSafeSave | unique);
    tooLong.SetWriteSettings(12 + 7, 0, kOptionSafeSave | unique);  // "Options" needs splitting
    ASSERT_EQ(tooLong.SetText("Format", "Options", "a long value"), kOk);
    EXPECT_EQ(tooLong.Save(path), kErrorLineTooShort);
    EXPECT_EQ(ReadFile(path), "old\n");

    hookTarget = path;
    SetSafeSaveHookForTesting(ReplaceTargetByDirectory);
    EXPECT_EQ(RequestDocument(kOptionSafeSave | unique).Save(path), kErrorNotWritable);
    SetSafeSaveHookForTesting(nullptr);
    EXPECT_EQ(Entries(dir_), std::set<std::string>{"config.ini"});
    std::filesystem::remove_all(path);
    WriteFile(path, "old\n");
  }

  Document plain = RequestDocument(0);
  plain.SetWriteSettings(12 + 7, 0, 0);
  ASSERT_EQ(plain.SetText("Format", "Options", "a long value"), kOk);
  EXPECT_EQ(plain.Save(path), kErrorLineTooShort);
  EXPECT_TRUE(Entries(dir_).empty());
  EXPECT_EQ(plain.Save(dir_ / "no/such/dir.ini"), kErrorCannotCreate);
  EXPECT_EQ(plain.Save(""), kErrorInvalid);
}

TEST_F(IniFileTest, UnprivilegedSaveReportsWhatItCouldNotWrite) {
  // The directory belongs to root; only the existing target belongs to the caller.
  const std::string path = dir_ / "config.ini";
  WriteFile(path, "old\n");
  ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
  auto saveAsNobody = [&](const std::string& target, uint32_t options) {
    return test::RunAsNobody([&] { return RequestDocument(options).Save(target); });
  };
  EXPECT_EQ(saveAsNobody(dir_ / "new.ini", kOptionSafeSave), kErrorNotWritable);
  EXPECT_EQ(saveAsNobody(path, kOptionSafeSave | kOptionUniqueTemporary), kErrorNoTemporary);
  EXPECT_EQ(saveAsNobody(path, kOptionSafeSave), kErrorCannotCreate);
  EXPECT_EQ(saveAsNobody(path, 0), kOk);
  EXPECT_EQ(Entries(dir_), std::set<std::string>{"config.ini"});
}

TEST_F(IniFileTest, SafeSaveKeepsOwnerGroupAndMode) {
  const std::string path = dir_ / "owned.ini";
  for (uint32_t unique : {0u, uint32_t{kOptionUniqueTemporary}}) {
    WriteFile(path, "old\n");
    ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    Document document = RequestDocument(kOptionSafeSave | unique);
    ASSERT_EQ(document.Save(path), kOk);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 65534u);
    EXPECT_EQ(status.st_gid, 65534u);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(document.FileName(), path);
    EXPECT_EQ(document.Stamp(), static_cast<uint32_t>(status.st_mtime));
  }
}

TEST_F(IniFileTest, WriteToStream) {
  Document document = RequestDocument(0);
  EXPECT_EQ(document.WriteToStream(nullptr, 0), kErrorInvalid);

  const std::string path = dir_ / "stream.ini";
  WriteFile(path, "a much longer old content that must go away\n");
  std::FILE* stream = std::fopen(path.c_str(), "r+");
  ASSERT_NE(stream, nullptr);
  std::fseek(stream, 0, SEEK_END);
  EXPECT_EQ(document.WriteToStream(stream, 0), kOk);
  std::fclose(stream);
  EXPECT_EQ(ReadFile(path), "[Format]\nOptions=0\nTimeout=60000\n");

  std::FILE* full = std::fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  EXPECT_EQ(document.WriteToStream(full, 1), kErrorWriteFailed);
  document.SetWriteSettings(-1, 0, kOptionSafeSave);
  EXPECT_EQ(document.WriteToStream(full, 1), kErrorNotPossible);
  std::fclose(full);
}

}  // namespace
}  // namespace kx::ini
