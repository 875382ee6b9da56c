#include "actions/exchange_paths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "kx/tal/path.h"
#include "platform/action_lock.h"
#include "tests/support/scratch_root.h"

namespace {

using namespace kx::actions;

TEST(ExchangePaths, TableFollowsTheSafeModeMarkerOnEveryCall) {
  kx::test::ScratchRoot root;
  for (const bool safeMode : {false, true, false}) {
    if (safeMode) {
      root.WriteFile("/etc/brenmar/safemode", "");
    } else {
      std::filesystem::remove(root / "/etc/brenmar/safemode");
    }
    const std::string base = safeMode ? root / "/mnt/userfs" : root.Path();
    EXPECT_EQ(ExchangeBase(false), base);
    EXPECT_EQ(ExchangeBase(true), base + "/");
    EXPECT_EQ(ActionExchangeDirectory(), base + "/.syscfg-action");
    const std::string share = root / "/etc/brenmar/share";
    EXPECT_EQ(ConfigurationDirectory(), share);
    EXPECT_EQ(CurrentActionFilePath(), share + "/currentAction.xml");
    EXPECT_EQ(LastActionFilePath(), share + "/lastAction.xml");
    EXPECT_EQ(InstalledConfigurationPath(), share + "/config.cdf");
    EXPECT_EQ(FailedInstallationMarkerPath(), share + "/config.old");
    EXPECT_EQ(InstallationStatusLogPath(), share + "/log/installationStatus.log");
  }
}

TEST(ExchangePaths, RunModeBaseIsEmptyAtTheRealRoot) {
  kx::test::ScratchRoot root;  // restores KX_SYSTEM_ROOT afterwards
  unsetenv("KX_SYSTEM_ROOT");
  if (kx::tal::PathExists("/etc/brenmar/safemode")) GTEST_SKIP() << "this machine is in safe mode";
  EXPECT_EQ(ExchangeBase(false), "");
  EXPECT_EQ(ExchangeBase(true), "/");
  EXPECT_EQ(ActionExchangeDirectory(), "/.syscfg-action");
}

TEST(ExchangePaths, CurrentActionDirectoryIsTheFirstSortedEntry) {
  kx::test::ScratchRoot root;
  EXPECT_EQ(CurrentActionDirectory(), "");  // no exchange directory
  std::filesystem::create_directories(root / "/.syscfg-action");
  EXPECT_EQ(CurrentActionDirectory(), "");
  EXPECT_EQ(RelativeActionDirectory(), "");
  EXPECT_EQ(RequestFilePath("format.ini"), "");  // never relative to the working directory

  root.WriteFile("/.syscfg-action/B7/x", "");
  root.WriteFile("/.syscfg-action/A3/x", "");
  EXPECT_EQ(CurrentActionDirectory(), root / "/.syscfg-action/A3/");
  EXPECT_EQ(RelativeActionDirectory(), "/.syscfg-action/A3");
  EXPECT_EQ(RequestFilePath("format.ini"), root / "/.syscfg-action/A3/format.ini");
}

TEST(ExchangePaths, AgreeWithTheActionLockServiceInBothModes) {
  for (const bool safeMode : {false, true}) {
    kx::test::ScratchRoot root;
    if (safeMode) root.WriteFile("/etc/brenmar/safemode", "");
    std::string lockFile;
    ASSERT_EQ(ObtainActionLock("A1", "test", lockFile), 0);
    EXPECT_EQ(CurrentActionDirectory(), ActionExchangeDirectory() + "/A1/");
    EXPECT_EQ(kx::tal::DirectoryPart(lockFile) + "/", CurrentActionDirectory());
    EXPECT_EQ(RelativeActionDirectory(), "/.syscfg-action/A1");
  }
}

TEST(ExchangePaths, HostPathsBecomeLocalPaths) {
  kx::test::ScratchRoot root;
  root.WriteFile("/etc/brenmar/safemode", "");
  const std::string exchange = root / "/mnt/userfs/.syscfg-action";
  struct Case {
    const char* hostPath;
    bool trailingSeparator;
    std::string local;
  };
  const Case cases[] = {
      {"/.syscfg-action/abc/", false, exchange + "/abc"},
      {"/.syscfg-action/abc", true, exchange + "/abc/"},
      {"/.syscfg-action/abc/", true, exchange + "/abc/"},
      {"/.syscfg-action", false, exchange},
      {"/.syscfg-action/a/./b//c", false, exchange + "/a/b/c"},
      {"/tmp/x", false, "/tmp/x"},
      {"/tmp/x/", false, "/tmp/x"},
      {"/tmp/x", true, "/tmp/x/"},
      // Not an exchange path: only the exchange base is ever put in front.
      {"/.syscfg-actionX/y", false, "/.syscfg-actionX/y"},
      {"/.syscfg-action/../etc/passwd", false, "/etc/passwd"},
      {"/.syscfg-action/a/../../../x/", false, "/x"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(HostPathToLocalPath(c.hostPath, c.trailingSeparator), c.local)
        << c.hostPath << " " << c.trailingSeparator;
  }
  std::filesystem::remove(root / "/etc/brenmar/safemode");
  EXPECT_EQ(HostPathToLocalPath("/.syscfg-action/abc/", false), root / "/.syscfg-action/abc");
}

}  // namespace
