#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <utility>
#include <vector>

#include "system/boot_mode.h"
#include "system/log_err.h"
#include "system/reboot.h"
#include "tests/support/scratch_root.h"

namespace kx::system {
namespace {

using Logged = std::vector<std::pair<std::string, int>>;

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

class RebootTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(root_ / "/tmp");
    SetErrorLogCapture([this](const std::string& message, int error) { logged_.emplace_back(message, error); });
  }
  void TearDown() override { SetErrorLogCapture(nullptr); }

  // The reboot command below the root: leaves a marker, then runs `rest`.
  void WriteRebootCommand(const std::string& rest) {
    root_.WriteFile("/sbin/reboot", "#!/bin/sh\n: > '" + Marker() + "'\n" + rest + "\n");
    ::chmod(RebootCommandPath().c_str(), 0755);
  }
  std::string Marker() const { return root_ / "/rebooted"; }
  // The command may still be on its way when Reboot() has stopped watching it.
  bool Rebooted() const {
    for (int i = 0; i < 100 && !std::filesystem::exists(Marker()); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return std::filesystem::exists(Marker());
  }

  test::ScratchRoot root_;
  Logged logged_;
};

TEST_F(RebootTest, ModeWordIsWrittenWithoutLineEndAndTheCommandRuns) {
  WriteRebootCommand("exit 0");
  SetBootModeAndReboot(kInstallBootMode);
  EXPECT_EQ("install", ReadFile(BootModeFilePath()));
  EXPECT_TRUE(Rebooted());
  SetBootModeAndReboot(kRuntimeBootMode);
  EXPECT_EQ("runtime", ReadFile(BootModeFilePath()));
  EXPECT_EQ(Logged{}, logged_);
}

TEST_F(RebootTest, UnknownModeIsLoggedAndDoesNotReboot) {
  WriteRebootCommand("exit 0");
  SetBootModeAndReboot(2);
  EXPECT_EQ((Logged{{"Unknown requested boot mode", 22}}), logged_);
  EXPECT_FALSE(std::filesystem::exists(BootModeFilePath()));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_FALSE(std::filesystem::exists(Marker()));
}

TEST_F(RebootTest, UnwritableBootModeFileStillReboots) {
  std::filesystem::remove(root_ / "/tmp");
  WriteRebootCommand("exit 0");
  SetBootModeAndReboot(kInstallBootMode);
  EXPECT_EQ((Logged{{"Error opening boot mode file", ENOENT}}), logged_);
  EXPECT_TRUE(Rebooted());
}

TEST_F(RebootTest, FailingCommandIsLoggedAsMissingPermission) {
  WriteRebootCommand("exit 1");
  Reboot();
  EXPECT_EQ((Logged{{"User did not have permission to reboot the system", 13}}), logged_);
}

TEST_F(RebootTest, CommandStillRunningAfterHalfASecondIsLeftAlone) {
  WriteRebootCommand("sleep 1; exit 1");
  const auto start = std::chrono::steady_clock::now();
  Reboot();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450));
  EXPECT_EQ(Logged{}, logged_);
}

}  // namespace
}  // namespace kx::system
