#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "exchange/ipc_names.h"
#include "kx/tal/log.h"
#include "kx/tal/osdep/named_event.h"
#include "kx/tal/path.h"
#include "plugin/lifecycle.h"
#include "plugin/signal_daemon_thread.h"
#include "system/boot_mode.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scratch_root.h"

using namespace kx::plugin;
using Clock = std::chrono::steady_clock;
using kx::tal::osdep::NamedEvent;
using kx::test::ReadFile;
using std::chrono::milliseconds;

namespace {

int32_t AsksForRestart(const KeyValuePairList&, uint32_t, std::string&, int32_t&, bool& restart) {
  restart = true;
  return 0;
}
int32_t AsksForRestartButFails(const KeyValuePairList&, uint32_t, std::string&, int32_t&, bool& restart) {
  restart = true;
  return -5;
}

// Whether the restart thread shows up under `name` while it runs.
bool RestartThreadNamed(const std::string& name) {
  while (RestartThread().IsRunning()) {
    std::error_code error;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task", error)) {
      std::string comm;
      std::getline(std::ifstream(task.path() / "comm"), comm);
      if (comm == name) return true;
    }
    std::this_thread::sleep_for(milliseconds(10));
  }
  return false;
}

class SignalThreadTest : public testing::Test {
 protected:
  void SetUp() override {
    root.WriteFile("/etc/brenmar/share/swdiag.ini", "[orla]\nSeverity=33\nTarget=0\n");
    root.WriteFile("/sbin/reboot", "#!/bin/sh\n: > '" + Marker() + "'\n");
    ::chmod((root / "/sbin/reboot").c_str(), 0755);
    std::filesystem::create_directories(root / "/tmp");
    PluginInit();
    MethodTable().Insert("AsksForRestart", AsksForRestart);
    MethodTable().Insert("AsksForRestartButFails", AsksForRestartButFails);
    log.Clear();  // what the start logged (the region file's owner looked up) is not the thread's
  }
  void TearDown() override {
    RestartThread().JoinRun();
    PluginFinalize();
    kx::tal::osdep::RemoveNamedEvent(kx::exchange::kRequestReadyEventName);
  }

  void Run(const std::string& method) {
    kx::webruntime::MemoryRequest request;
    kx::webruntime::RequestRegistration registration(request);
    kx::webruntime::WebRequest object("/swinstall/" + method, method);
    PluginRun(&object, registration.Handle());
  }
  std::vector<std::string> Information() { return log.Texts(kx::tal::logmask::kInfo); }
  std::string Marker() const { return root / "/rebooted"; }
  // The reboot command may still be on its way when the thread stops watching it.
  bool Rebooted() const {
    for (int i = 0; i < 100 && !kx::tal::PathExists(Marker()); ++i) std::this_thread::sleep_for(milliseconds(50));
    return kx::tal::PathExists(Marker());
  }

  kx::test::ScratchRoot root;
  kx::test::LogRecorder log{kx::tal::logmask::kInfo};  // the mask itself comes from swdiag.ini
};

}  // namespace

// The thread's name follows the safe-mode marker alone; the daemon runs in either mode.
TEST_F(SignalThreadTest, InSafeOrInstallModeTheDaemonIsSignalledAfterAboutOneSecond) {
  struct Mode {
    const char* file;
    const char* content;
    const char* threadName;
  };
  for (const Mode mode : {Mode{"/etc/brenmar/safemode", "", "orlaSignalSid"},
                          Mode{"/tmp/kx_system_state", "Install Mode", "orlaRestartSys"}}) {
    root.WriteFile(mode.file, mode.content);
    NamedEvent requestReady(kx::exchange::kRequestReadyEventName);
    const Clock::time_point start = Clock::now();
    Run("AsksForRestart");
    EXPECT_TRUE(RestartThreadNamed(mode.threadName));
    EXPECT_TRUE(requestReady.Wait(10000));
    EXPECT_GE(Clock::now() - start, milliseconds(950));
    RestartThread().JoinRun();
    EXPECT_FALSE(kx::tal::PathExists(Marker()));
    EXPECT_FALSE(kx::tal::PathExists(kx::system::BootModeFilePath()));
    EXPECT_THAT(Information(), testing::Contains(std::string("Starting thread: ") + mode.threadName));
    std::filesystem::remove(root / mode.file);
  }
}

TEST_F(SignalThreadTest, OtherwiseTheControllerRestartsIntoInstallMode) {
  NamedEvent requestReady(kx::exchange::kRequestReadyEventName);
  const Clock::time_point start = Clock::now();
  Run("AsksForRestart");
  EXPECT_TRUE(RestartThreadNamed("orlaRestartSys"));
  RestartThread().JoinRun();
  EXPECT_GE(Clock::now() - start, milliseconds(950));
  EXPECT_TRUE(Rebooted());
  EXPECT_EQ(ReadFile(kx::system::BootModeFilePath()), "install");
  EXPECT_FALSE(requestReady.TryWait());
  EXPECT_EQ(Information(), std::vector<std::string>{"Starting thread: orlaRestartSys"});
}

TEST_F(SignalThreadTest, FailingHandlerStartsNothing) {
  Run("AsksForRestartButFails");
  EXPECT_FALSE(RestartThread().IsRunning());
  EXPECT_TRUE(Information().empty());
}
