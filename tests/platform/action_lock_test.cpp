#include "platform/action_lock.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "exchange/action_directory_name.h"
#include "exchange/ipc_names.h"
#include "kx/tal/osdep/named_mutex.h"
#include "tests/kx/tal/osdep/child_process.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scratch_root.h"

namespace fs = std::filesystem;
using kx::test::ReadFile;
using kx::test::WriteFile;

namespace {

constexpr int32_t kInvalidArgument = static_cast<int32_t>(0x80070057u);
constexpr int32_t kNotLockHolder = static_cast<int32_t>(0x800407E2u);

class ActionLockTest : public ::testing::Test {
 protected:
  std::string Exchange() const { return root_ / "/.syscfg-action"; }
  kx::test::ScratchRoot root_;
};

// Action IDs are the remote host's own text: each takes the lock in one
// directory directly inside the action exchange directory, and only that whole
// ID holds it.
TEST_F(ActionLockTest, AnyIdUpTo4KiBTakesTheLockInsideTheExchange) {
  const std::vector<std::string> ids = {"{6F1C5A2E-9D3B-4C1A-8E2F-0123456789AB}",
                                        "blank id",
                                        "host:7",
                                        "\xc3\xa4ktion",
                                        "a/b",
                                        "..",
                                        ".",
                                        "../../etc",
                                        "a\nId=B2",
                                        std::string("a\0b", 3),
                                        "back\\slash",
                                        std::string(4096, 'x')};
  for (const std::string& id : ids) {
    std::string path;
    ASSERT_EQ(ObtainActionLock(id, "holder", path), 0) << id;
    EXPECT_EQ(path, Exchange() + "/" + kx::exchange::ActionDirectoryName(id) + "/ActionLock.txt") << id;
    EXPECT_EQ(HasActionLock(id), 1) << id;
    for (const std::string& other : {id + "x", id.substr(0, id.size() - 1), std::string("A1")}) {
      EXPECT_EQ(HasActionLock(other), 0) << id;
      EXPECT_EQ(RemoveActionLock(other), kNotLockHolder) << id;
    }
    EXPECT_EQ(RemoveActionLock(id), 0) << id;
    EXPECT_TRUE(fs::is_empty(Exchange())) << id;
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(root_.Path())) {
    const std::string name = entry.path().filename();
    EXPECT_TRUE(name == ".syscfg-action" || name == "var") << name;  // var: the service's flock file
  }

  for (const std::string& refused : {std::string(), std::string(4097, 'x')}) {
    std::string path = "untouched";
    EXPECT_EQ(ObtainActionLock(refused, "holder", path), kInvalidArgument);
    EXPECT_EQ(path, "untouched");
    EXPECT_EQ(HasActionLock(refused), 0);
    EXPECT_EQ(RemoveActionLock(refused), kNotLockHolder);
  }
  EXPECT_TRUE(fs::is_empty(Exchange()));
}

TEST_F(ActionLockTest, OneActionHoldsTheLockUntilItIsRemoved) {
  std::string path;
  ASSERT_EQ(ObtainActionLock("A1", "x\nId=B2\r\n", path), 0);
  EXPECT_EQ(path, Exchange() + "/A1/ActionLock.txt");
  // The holder's text cannot forge the record.
  EXPECT_EQ(ReadFile(path).rfind("Id=A1\nHolder=x Id=B2  \nProcessId=" + std::to_string(getpid()), 0), 0u);
  const passwd* user = getpwnam("opuser");
  const group* grp = getgrnam("kx");
  struct stat info {};
  if (geteuid() == 0 && user != nullptr && grp != nullptr && stat(path.c_str(), &info) == 0) {
    EXPECT_EQ(std::make_tuple(info.st_uid, info.st_gid, info.st_mode & 07777),
              std::make_tuple(user->pw_uid, grp->gr_gid, 0664u));
  }
  std::string again, other = "untouched";
  EXPECT_EQ(ObtainActionLock("A1", "host 1", again), 1);
  EXPECT_EQ(again, path);
  EXPECT_EQ(ObtainActionLock("B2", "host 2", other), kNotLockHolder);
  EXPECT_EQ(other, "untouched");
  EXPECT_TRUE(HasActionLock("A1") == 1 && HasActionLock("B2") == 0);
  EXPECT_EQ(RemoveActionLock("B2"), kNotLockHolder);
  EXPECT_EQ(RemoveActionLock("A1"), 0);
  EXPECT_FALSE(fs::exists(Exchange() + "/A1"));
  EXPECT_EQ(ObtainActionLock("B2", "host 2", other), 0);
}

// Of many processes that try at once exactly one wins; its lock outlives it and
// only ForceRemoveActionLock frees it.
TEST_F(ActionLockTest, ExactlyOneOfManyProcessesWinsAndTheLockOutlivesIt) {
  int start[2];
  ASSERT_EQ(pipe(start), 0);
  std::vector<std::unique_ptr<kx::test::ChildProcess>> racers;
  for (int i = 0; i < 16; ++i) {
    racers.push_back(std::make_unique<kx::test::ChildProcess>([&start, i] {
      char go;
      close(start[1]);
      (void)!read(start[0], &go, 1);  // returns when the parent closes its end
      std::string path;
      const int32_t result = ObtainActionLock("P" + std::to_string(i), "racer", path);
      return result == 0 ? 0 : result == kNotLockHolder ? 1 : 2;
    }));
  }
  close(start[0]);
  close(start[1]);
  std::vector<std::string> winners;
  for (size_t i = 0; i < racers.size(); ++i) {
    const int code = racers[i]->Wait();
    ASSERT_LE(code, 1) << "P" << i;
    if (code == 0) winners.push_back("P" + std::to_string(i));
  }
  ASSERT_EQ(winners.size(), 1u);
  EXPECT_EQ(HasActionLock(winners[0]), 1);
  EXPECT_EQ(ForceRemoveActionLock(), 0);
  EXPECT_EQ(HasActionLock(winners[0]), 0);
  EXPECT_TRUE(fs::is_empty(Exchange()));
}

// Entries without a lock record hold no lock: the next BeginAction removes them,
// logged, instead of being refused for ever; a lock whole stays.
TEST_F(ActionLockTest, EntriesWithoutALockRecordAreClearedByTheNextObtain) {
  std::string path;
  ASSERT_EQ(ObtainActionLock("B2", "", path), 0);
  root_.WriteFile("/.syscfg-action/A0/install.cdf", "<DEFINITION/>");  // its record gone
  root_.WriteFile("/.syscfg-action/stray", "x");
  fs::create_directory_symlink(Exchange() + "/B2", Exchange() + "/A1");  // a record, but not its own
  {
    kx::test::LogRecorder log(1);
    EXPECT_EQ(ObtainActionLock("A1", "", path), kNotLockHolder);
    EXPECT_EQ(log.Texts(1).size(), 3u);
    EXPECT_TRUE(
        log.Logged(1, "Removing " + Exchange() + "/A0 from the action exchange directory: it holds no lock record"));
  }
  EXPECT_EQ(HasActionLock("B2"), 1);
  // What a removal could not delete holds no lock either; the next removal tries again.
  root_.WriteFile("/.syscfg-action/~~removed/Xy12Zw/A0/install.cdf", "");
  EXPECT_EQ(HasActionLock("B2"), 1);
  ASSERT_EQ(RemoveActionLock("B2"), 0);
  EXPECT_TRUE(fs::is_empty(Exchange()));
}

// The daemon's post-action removes the lock while a client, past its lock check,
// keeps moving uploads into the action directory under the progress mutex, as
// SoftwareUpdate does. Whichever comes first, the record and its directory go
// together, and the next action can begin.
TEST_F(ActionLockTest, RemovalRacingUploadsLeavesTheLockWholeOrGone) {
  const std::string directory = Exchange() + "/A1/";
  for (int round = 0; round < 200; ++round) {
    std::string path;
    ASSERT_EQ(ObtainActionLock("A1", "", path), 0) << "round " << round;
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    kx::test::ChildProcess daemon([&start] {
      char go;
      close(start[1]);
      (void)!read(start[0], &go, 1);  // returns when the parent closes its end
      return RemoveActionLock("A1") == 0 ? 0 : 1;
    });
    std::atomic<bool> daemonDone{false}, clientDone{false};
    std::atomic<int> moved{0};
    std::thread client([&] {
      kx::tal::osdep::NamedMutex guard(kx::exchange::kProgressMutexName);
      while (!daemonDone && moved < 10000) {
        const std::string name = "u" + std::to_string(moved);
        root_.WriteFile("/.kx-uploads/" + name, "<DEFINITION/>");
        kx::tal::osdep::NamedMutexLock lock(guard);
        if (rename((root_ / "/.kx-uploads/" + name).c_str(), (directory + name).c_str()) != 0) break;
        ++moved;
      }
      clientDone = true;
    });
    // The removal starts while uploads keep arriving.
    while (moved < 20 && !clientDone) std::this_thread::yield();
    close(start[0]);
    close(start[1]);
    EXPECT_EQ(daemon.Wait(), 0) << "round " << round;
    daemonDone = true;
    client.join();

    const bool lockWhole = fs::exists(directory) && HasActionLock("A1") == 1;
    ASSERT_TRUE(!fs::exists(Exchange()) || fs::is_empty(Exchange()) || lockWhole) << "round " << round;
    ASSERT_EQ(ObtainActionLock("B1", "", path), lockWhole ? kNotLockHolder : 0) << "round " << round;
    ASSERT_EQ(ForceRemoveActionLock(), 0);
  }
}

// The last-action line of an interrupted action, whatever its stop time.
std::regex FailedLastAction(const std::string& id, const std::string& actionType) {
  return std::regex("<Last Id=\"" + id + "\" ActionType=\"" + actionType +
                    "\" StopTime=\"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d \\S+\" Result=\"-2147467259\"/>\n");
}

// An action is interrupted when the daemon was running it (currentAction.xml) or
// when a work request lies in its directory that the daemon never took up. Only
// an interrupted action becomes the last action; the others leave the daemon's
// own lastAction.xml as it is.
TEST_F(ActionLockTest, InterruptedActionBecomesTheLastAction) {
  const std::string lastAction = root_ / "/etc/brenmar/share/lastAction.xml";
  std::string id;
  EXPECT_EQ(ConvertCurrentActionProgress(id), static_cast<int32_t>(0x80004005u));  // nothing to convert
  std::string path;
  ASSERT_EQ(ObtainActionLock("A9", "", path), 0);
  root_.WriteFile("/etc/brenmar/share/lastAction.xml", "<Last Id=\"A8\" Result=\"0\"/>\n");
  root_.WriteFile("/.syscfg-action/A9/postaction.ini", "");  // ends an action, does no work
  root_.WriteFile("/.syscfg-action/A9/install.cdf.done", "");
  EXPECT_EQ(ConvertCurrentActionProgress(id), 0);
  EXPECT_EQ(id, "A9");  // without currentAction.xml, the leftover directory names it
  EXPECT_EQ(ReadFile(lastAction), "<Last Id=\"A8\" Result=\"0\"/>\n");

  // A request the daemon never took up; the whole ID of the lock record names it.
  ASSERT_EQ(ForceRemoveActionLock(), 0);
  ASSERT_EQ(ObtainActionLock("{A9} <&>", "", path), 0);
  WriteFile(fs::path(path).parent_path() / "format.ini", "");
  ASSERT_EQ(ConvertCurrentActionProgress(id), 0);
  EXPECT_EQ(id, "{A9} <&>");
  EXPECT_TRUE(std::regex_match(ReadFile(lastAction), FailedLastAction("\\{A9\\} &lt;&amp;&gt;", "Format")));

  // The daemon was running it: currentAction.xml names the action.
  root_.WriteFile("/etc/brenmar/share/currentAction.xml",
                  "<Current Id=\"A7\" ActionType=\"SoftwareUpdate\" StartTime=\"1\" Percent=\"40\" Step=\"x\"/>\n");
  ASSERT_EQ(ConvertCurrentActionProgress(id), 0);
  EXPECT_EQ(id, "A7");
  EXPECT_FALSE(fs::exists(root_ / "/etc/brenmar/share/currentAction.xml"));
  EXPECT_TRUE(std::regex_match(ReadFile(lastAction), FailedLastAction("A7", "SoftwareUpdate")));

  // A FIFO in its place is not waited on.
  ASSERT_EQ(mkfifo((root_ / "/etc/brenmar/share/currentAction.xml").c_str(), 0600), 0);
  EXPECT_EQ(ConvertCurrentActionProgress(id), static_cast<int32_t>(0x80004005u));
}

}  // namespace
