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
  EXPECT_TRUE(fs::is_empty(root_.Path()));
  std::string path;
  EXPECT_EQ(ObtainActionLock(std::string(128, 'a'), "", path), 0);
  EXPECT_EQ(ObtainActionLock("x", "", path), kNotLockHolder);
}

TEST_F(ActionLockTest, OneActionHoldsTheLockUntilItIsRemoved) {
  std::string path;
  ASSERT_EQ(ObtainActionLock("A1", "host 1", path), 0);
  EXPECT_EQ(path, Exchange() + "/A1/ActionLock.txt");
  EXPECT_EQ(ReadFile(path).rfind("Id=A1\nHolder=host 1\nProcessId=" + std::to_string(getpid()), 0), 0u);
  const passwd* user = getpwnam("opuser");
  const group* grp = getgrnam("kx");
  if (geteuid() == 0 && user != nullptr && grp != nullptr) {
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, user->pw_uid);
    EXPECT_EQ(info.st_gid, grp->gr_gid);
    EXPECT_EQ(info.st_mode & 07777, 0664u);
  }

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
  std::vector<std::string> winners;
  int losers = 0;
  for (int i = 0; i < kProcesses; ++i) {
    int status = 0;
    ASSERT_EQ(waitpid(children[i], &status, 0), children[i]);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 0) winners.push_back("P" + std::to_string(i));
    losers += WEXITSTATUS(status) == 1;
  }
  ASSERT_EQ(winners.size(), 1u);
  EXPECT_EQ(losers, kProcesses - 1);
  const std::string winner = winners.front();
  EXPECT_EQ(HasActionLock(winner), 1);
  EXPECT_EQ(ForceRemoveActionLock(), 0);
  EXPECT_EQ(HasActionLock(winner), 0);
}

TEST_F(ActionLockTest, InterruptedActionBecomesTheLastAction) {
  std::string id;
  EXPECT_EQ(ConvertCurrentActionProgress(id), kFail);  // nothing to convert
  std::string path;
  ASSERT_EQ(ObtainActionLock("A9", "", path), 0);
  EXPECT_EQ(ConvertCurrentActionProgress(id), 0);
  EXPECT_EQ(id, "A9");  // without currentAction.xml, the leftover directory names it

  root_.WriteFile("/etc/brenmar/share/currentAction.xml",
                  "<Current Id=\"A7\" ActionType=\"SoftwareUpdate\" StartTime=\"1\" Percent=\"40\" "
                  "Step=\"x\"/>\n");
  ASSERT_EQ(ConvertCurrentActionProgress(id), 0);
  EXPECT_EQ(id, "A7");
  EXPECT_FALSE(fs::exists(root_ / "/etc/brenmar/share/currentAction.xml"));
  const std::regex line(
      "<Last Id=\"A7\" ActionType=\"SoftwareUpdate\" "
      "StopTime=\"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d \\S+\" Result=\"-2147467259\"/>\n");
  EXPECT_TRUE(std::regex_match(ReadFile(root_ / "/etc/brenmar/share/lastAction.xml"), line));
}

}  // namespace
