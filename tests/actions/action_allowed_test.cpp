#include "actions/action_allowed.h"

#include <gtest/gtest.h>

#include <optional>

#include "exchange/ipc_names.h"
#include "exchange/result_codes.h"
#include "platform/process_finder.h"
#include "tests/platform/named_process.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scratch_root.h"

namespace {

using namespace kx::actions;
using namespace kx::exchange;
using kx::platform::IsDaemonRunning;
using kx::tal::logmask::kError;

// Every caller's combination (SoftwareUpdate and SetSystemImage pass
// "SetSystemImage", Format passes "Format"), in both modes, with and without a
// running daemon: run mode goes by the flag alone, safe mode by the daemon alone.
TEST(IsActionAllowedTest, RunModeByTheFlagSafeModeByTheRunningDaemon) {
  const bool foreignDaemon = IsDaemonRunning();
  const struct {
    const char* webMethod;
    bool allowedInRunMode;
    int32_t inRunMode;
  } rows[] = {{"SetSystemImage", true, kResultOk},
              {"SetSystemImage", false, kResultFail},
              {"Format", true, kResultOk},
              {"Format", false, kResultFormatNotAllowed}};
  for (const bool safeMode : {false, true}) {
    kx::test::ScratchRoot root;
    if (safeMode) root.WriteFile("/etc/brenmar/safemode", "");
    for (const bool daemonRuns : {false, true}) {
      if (safeMode && !daemonRuns && foreignDaemon) continue;
      std::optional<kx::test::NamedProcess> daemon;
      if (daemonRuns) daemon.emplace(kx::exchange::kDaemonProcessName);
      kx::test::LogRecorder log(kError);
      for (const auto& row : rows) {
        EXPECT_EQ(IsActionAllowed(row.webMethod, row.allowedInRunMode), !safeMode    ? row.inRunMode
                                                                        : daemonRuns ? kResultOk
                                                                                     : kResultFail)
            << row.webMethod << " " << row.allowedInRunMode << " safe mode " << safeMode << " daemon " << daemonRuns;
      }
      EXPECT_EQ(log.Logged(kError, "Installation Deamon isn't running."), safeMode && !daemonRuns);
    }
  }
  if (foreignDaemon) GTEST_SKIP() << "a kxsid process of someone else is running: safe mode without it not checked";
}

}  // namespace
