#include "platform/action_lock.h"

#include <gtest/gtest.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/scratch_root.h"

namespace fs = std::filesystem;

namespace {

constexpr int32_t kInvalidArgument = static_cast<int32_t>(0x80070057u);
constexpr int32_t kNotLockHolder = static_cast<int32_t>(0x800407E2u);
constexpr int32_t kFail = static_cast<int32_t>(0x80004005u);

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

std::vector<std::string> TreeBelow(const std::string& root) {
  std::vector<std::string> entries;
  for (const auto& entry : fs::recursive_directory_iterator(root)) entries.push_back(entry.path());
  return entries;
}

class ActionLockTest : public ::testing::Test {
 protected:
  std::string Exchange() const { return root_ / "/.syscfg-action"; }
  kx::test::ScratchRoot root_;
};

TEST_F(ActionLockTest, RefusesBadIdsAndTouchesNothing) {
  const std::vector<std::string> badIds = {
      "", ".", "..", "a/b", "/abs", "a..b", "../up", std::string("a\0b", 3), "a\nb", "a\x01",
      "tab\there", "blank id", "semi;colon", "\xc3\xa4", std::string(129, 'a')};
  for (const std::string& id : badIds) {
    std::string path = "untouched";
    EXPECT_EQ(ObtainActionLock(id, "holder", path), kInvalidArgument) << id;
    EXPECT_EQ(path, "untouched");
    EXPECT_EQ(RemoveActionLock(id), kInvalidArgument) << id;
    EXPECT_EQ(HasActionLock(id), 0) << id;
  }
  EXPECT_TRUE(TreeBelow(root_.Path()).empty());
  std::string path;
  EXPECT_EQ(ObtainActionLock(std::string(128, 'a'), "", path), 0);
  EXPECT_EQ(ObtainActionLock("x", "", path), kNotLockHolder);
}

TEST_F(ActionLockTest, OneActionHoldsTheLockUntilItIsRemoved) {
  std::string path;
  ASSERT_EQ(ObtainActionLock("A1", "host 1", path), 0);
  EXPECT_EQ(path, Exchange() + "/A1/ActionLock.txt");
  EXPECT_EQ(ReadFile(path).rfind("Id=A1\nHolder=host 1\nProcessId=" + std::to_string(getpid()), 0), 0u);

  std::string again;
  EXPECT_EQ(ObtainActionLock("A1", "host 1", again), 1);
  EXPECT_EQ(again, path);
  std::string other = "untouched";
  EXPECT_EQ(ObtainActionLock("B2", "host 2", other), kNotLockHolder);
  EXPECT_EQ(other, "untouched");
  EXPECT_EQ(HasActionLock("A1"), 1);
  EXPECT_EQ(HasActionLock("B2"), 0);
  EXPECT_EQ(RemoveActionLock("B2"), kNotLockHolder);

  EXPECT_EQ(RemoveActionLock("A1"), 0);
  EXPECT_FALSE(fs::exists(Exchange() + "/A1"));
  EXPECT_EQ(HasActionLock("A1"), 0);
  EXPECT_EQ(ObtainActionLock("B2", "host 2", other), 0);
}

TEST_F(ActionLockTest, SafeModeKeepsTheLockOnTheUserFileSystem) {
  root_.WriteFile("/etc/brenmar/safemode", "");
  std::string path;
  ASSERT_EQ(ObtainActionLock("S1", "", path), 0);
  EXPECT_EQ(path, root_ / "/mnt/userfs/.syscfg-action/S1/ActionLock.txt");
  EXPECT_FALSE(fs::exists(Exchange()));
}

TEST_F(ActionLockTest, HolderTextCannotForgeTheRecord) {
  std::string path;
  ASSERT_EQ(ObtainActionLock("A1", "x\nId=B2\r\n", path), 0);
  EXPECT_EQ(ReadFile(path).substr(0, 22), "Id=A1\nHolder=x Id=B2  ");
  EXPECT_EQ(HasActionLock("B2"), 0);
}

TEST_F(ActionLockTest, StrayEntriesBlockTheLockUntilForced) {
  root_.WriteFile("/.syscfg-action/leftover/file", "x");
  std::string path;
  EXPECT_EQ(ObtainActionLock("A1", "", path), kNotLockHolder);
  EXPECT_EQ(HasActionLock("leftover"), 0);  // no lock record
  EXPECT_EQ(ForceRemoveActionLock(), 0);
  EXPECT_TRUE(fs::is_empty(Exchange()));
  EXPECT_EQ(ObtainActionLock("A1", "", path), 0);
}

TEST_F(ActionLockTest, ExactlyOneOfManyProcessesWinsAndTheLockOutlivesIt) {
  constexpr int kProcesses = 16;
  int start[2];
  ASSERT_EQ(pipe(start), 0);
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      close(start[1]);
      char go;
      (void)!read(start[0], &go, 1);  // returns when the parent closes its end
      std::string path;
      const int32_t result = ObtainActionLock("P" + std::to_string(i), "racer", path);
      _exit(result == 0 ? 0 : result == kNotLockHolder ? 1 : 2);
    }
    children.push_back(child);
  }
  close(start[0]);
  close(start[1]);
  int winners = 0;
  int losers = 0;
  for (const pid_t child : children) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    winners += WEXITSTATUS(status) == 0;
    losers += WEXITSTATUS(status) == 1;
  }
  EXPECT_EQ(winners, 1);
  EXPECT_EQ(losers, kProcesses - 1);

  std::vector<std::string> entries;
  for (const auto& entry : fs::directory_iterator(Exchange())) entries.push_back(entry.path().filename());
  ASSERT_EQ(entries.size(), 1u);
  const std::string winner = entries.front();
  EXPECT_EQ(HasActionLock(winner), 1);
  EXPECT_EQ(ForceRemoveActionLock(), 0);
  EXPECT_EQ(HasActionLock(winner), 0);
}

TEST_F(ActionLockTest, LockFilesGetTheDefaultOwner) {
  const passwd* user = getpwnam("opuser");
  const group* grp = getgrnam("kx");
  if (geteuid() != 0 || user == nullptr || grp == nullptr) {
    GTEST_SKIP() << "needs root and the user opuser and group kx";
  }
  const uid_t uid = user->pw_uid;
  const gid_t gid = grp->gr_gid;
  std::string path;
  ASSERT_EQ(ObtainActionLock("A1", "", path), 0);
  struct stat info;
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, uid);
  EXPECT_EQ(info.st_gid, gid);
  EXPECT_EQ(info.st_mode & 07777, 0664u);
  ASSERT_EQ(stat((Exchange() + "/A1").c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, uid);
  EXPECT_EQ(info.st_mode & 07777, 0775u);
}

TEST_F(ActionLockTest, InterruptedActionBecomesTheLastAction) {
  root_.WriteFile("/etc/brenmar/share/currentAction.xml",
                  "<Current Id=\"A7\" ActionType=\"SoftwareUpdate\" StartTime=\"1\" Percent=\"40\" "
                  "Step=\"x\"/>\n");
  std::string id;
  ASSERT_EQ(ConvertCurrentActionProgress(id), 0);
  EXPECT_EQ(id, "A7");
  EXPECT_FALSE(fs::exists(root_ / "/etc/brenmar/share/currentAction.xml"));
  const std::regex line(
      "<Last Id=\"A7\" ActionType=\"SoftwareUpdate\" "
      "StopTime=\"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d \\S+\" Result=\"-2147467259\"/>\n");
  EXPECT_TRUE(std::regex_match(ReadFile(root_ / "/etc/brenmar/share/lastAction.xml"), line));
}

TEST_F(ActionLockTest, WithoutCurrentActionTheLeftoverDirectoryNamesIt) {
  std::string id;
  EXPECT_EQ(ConvertCurrentActionProgress(id), kFail);
  std::string path;
  ASSERT_EQ(ObtainActionLock("A9", "", path), 0);
  EXPECT_EQ(ConvertCurrentActionProgress(id), 0);
  EXPECT_EQ(id, "A9");
}

}  // namespace
