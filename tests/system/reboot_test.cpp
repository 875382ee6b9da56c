#include "system/reboot.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <utility>
#include <vector>

#include "system/boot_mode.h"
#include "system/log_err.h"
#include "tests/support/scratch_root.h"

namespace kx::system {
namespace {

using Logged = std::vector<std::pair<std::string, int>>;
namespace fs = std::filesystem;

// Each case in a fresh root whose reboot command leaves a marker, then runs `command`.
TEST(RebootTest, ModeFileCommandAndLoggedErrors) {
  const struct {
    const char* what;
    const char* command;
    int mode;  // -1: Reboot() alone
    bool withTmp;
    const char* modeFile;  // nullptr: none written
    bool rebooted;
    Logged logged;
  } cases[] = {
      {"install", "exit 0", kInstallBootMode, true, "install", true, {}},  // no line end
      {"runtime", "exit 0", kRuntimeBootMode, true, "runtime", true, {}},
      {"unknown mode", "exit 0", 2, true, nullptr, false, {{"Unknown requested boot mode", 22}}},
      {"unwritable mode file",
       "exit 0",
       kInstallBootMode,
       false,
       nullptr,
       true,
       {{"Error opening boot mode file", ENOENT}}},
      {"failing command",
       "exit 1",
       -1,
       true,
       nullptr,
       true,
       {{"User did not have permission to reboot the system", 13}}},
      {"still running after half a second: left alone", "sleep 1; exit 1", -1, true, nullptr, true, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    test::ScratchRoot root;
    if (c.withTmp) fs::create_directories(root / "/tmp");
    const std::string marker = root / "/rebooted";
    root.WriteFile("/sbin/reboot", "#!/bin/sh\n: > '" + marker + "'\n" + c.command + "\n");
    ::chmod(RebootCommandPath().c_str(), 0755);
    Logged logged;
    SetErrorLogCapture([&](const std::string& message, int error) { logged.emplace_back(message, error); });
    const auto start = std::chrono::steady_clock::now();
    c.mode < 0 ? Reboot() : SetBootModeAndReboot(c.mode);
    if (c.command[0] == 's') {  // waited for half a second
      EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450));
    }
    // The command may still be on its way when Reboot() has stopped watching it.
    for (int i = 0; i < (c.rebooted ? 100 : 4) && !fs::exists(marker); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    SetErrorLogCapture(nullptr);
    EXPECT_EQ(fs::exists(marker), c.rebooted);
    EXPECT_EQ(c.modeFile ? test::ReadFile(BootModeFilePath()) : "", c.modeFile ? c.modeFile : "");
    EXPECT_EQ(fs::exists(BootModeFilePath()), c.modeFile != nullptr);
    EXPECT_EQ(logged, c.logged);
  }
}

}  // namespace
}  // namespace kx::system
