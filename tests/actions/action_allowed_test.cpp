#include "actions/action_allowed.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "actions/process_finder.h"
#include "actions/result_codes.h"
#include "tests/actions/action_test_support.h"
#include "tests/support/scratch_root.h"

namespace {

using namespace kx::actions;
namespace fs = std::filesystem;

// A copy of sleep under another name: the kernel reports the program file's
// name as the command name, which is what the process finder compares.
class NamedProcess {
 public:
  NamedProcess(const std::string& directory, const std::string& name) {
    const std::string program = directory + "/" + name;
    fs::copy_file(fs::exists("/bin/sleep") ? "/bin/sleep" : "/usr/bin/sleep", program);
    chmod(program.c_str(), 0755);
    pid_ = fork();
    if (pid_ == 0) {
      execl(program.c_str(), name.c_str(), "300", static_cast<char*>(nullptr));
      _exit(127);
    }
    // Until the exec, the child still carries the test's command name.
    const std::string stat = "/proc/" + std::to_string(pid_) + "/stat";
    const std::string expected = std::to_string(pid_) + " (" + name + ")";
    for (int i = 0; i < 1000 && kx::test::ReadFile(stat).rfind(expected, 0) != 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  ~NamedProcess() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  pid_t Pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

struct Row {
  const char* webMethod;
  bool allowedInRunMode;
  int32_t inRunMode;
};

// The callers' combinations: SoftwareUpdate and SetSystemImage pass
// "SetSystemImage", Format passes "Format".
const Row kCallerRows[] = {
    {"SetSystemImage", true, kResultOk},
    {"SetSystemImage", false, kResultFail},
    {"Format", true, kResultOk},
    {"Format", false, kResultFormatNotAllowed},
};

TEST(IsActionAllowedTest, RunModeDecidesByTheFlagAloneDaemonOrNot) {
  kx::test::ScratchRoot root;
  for (const Row& row : kCallerRows) {
    EXPECT_EQ(IsActionAllowed(row.webMethod, row.allowedInRunMode), row.inRunMode) << row.webMethod;
  }
  NamedProcess daemon(root.Path(), kDaemonProcessName);
  for (const Row& row : kCallerRows) {
    EXPECT_EQ(IsActionAllowed(row.webMethod, row.allowedInRunMode), row.inRunMode) << row.webMethod;
  }
}

TEST(IsActionAllowedTest, SafeModeNeedsTheRunningDaemon) {
  kx::test::ScratchRoot root;
  root.WriteFile("/etc/brenmar/safemode", "");
  {
    NamedProcess daemon(root.Path(), kDaemonProcessName);
    ASSERT_NE(FindProcess(kDaemonProcessName), 0);
    for (const Row& row : kCallerRows) {
      EXPECT_EQ(IsActionAllowed(row.webMethod, row.allowedInRunMode), kResultOk) << row.webMethod;
    }
  }
  if (IsDaemonRunning()) GTEST_SKIP() << "a kxsid process of someone else is running";
  kx::test::LogRecorder log(kx::tal::logmask::kError);
  for (const Row& row : kCallerRows) {
    EXPECT_EQ(IsActionAllowed(row.webMethod, row.allowedInRunMode), kResultFail) << row.webMethod;
  }
  EXPECT_TRUE(log.Logged(kx::tal::logmask::kError, "Installation Deamon isn't running."));
}

TEST(ProcessFinderTest, MatchesTheWholeCommandName) {
  kx::test::ScratchRoot root;
  NamedProcess longer(root.Path(), "kxsid2");
  EXPECT_EQ(FindProcess("kxsid2"), longer.Pid());
  EXPECT_NE(FindProcess("kxsid"), longer.Pid());
  EXPECT_NE(FindProcess("kxsid22"), longer.Pid());
  EXPECT_EQ(FindProcess("no such command"), 0);
}

}  // namespace
