#include "exchange/paths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <tuple>
#include <vector>

#include "kx/tal/path.h"
#include "tests/support/scratch_root.h"

namespace {

using namespace kx::exchange;

TEST(ExchangePaths, TableFollowsTheSafeModeMarkerOnEveryCall) {
  kx::test::ScratchRoot root;
  const std::string share = root / "/etc/brenmar/share";
  for (const bool safeMode : {false, true, false}) {
    if (safeMode) root.WriteFile("/etc/brenmar/safemode", "");
    if (!safeMode) std::filesystem::remove(root / "/etc/brenmar/safemode");
    const std::string base = safeMode ? root / "/mnt/userfs" : root.Path();
    EXPECT_EQ(std::vector<std::string>({ExchangeBase(false), ExchangeBase(true), ActionExchangeDirectory()}),
              std::vector<std::string>({base, base + "/", base + "/.syscfg-action"}));
    EXPECT_EQ(
        std::vector<std::string>({ConfigurationDirectory(), CurrentActionFilePath(), LastActionFilePath(),
                                  InstalledConfigurationPath(), FailedInstallationMarkerPath(),
                                  InstallationStatusLogPath()}),
        std::vector<std::string>({share, share + "/currentAction.xml", share + "/lastAction.xml", share + "/config.cdf",
                                  share + "/config.old", share + "/log/installationStatus.log"}));
  }
  unsetenv("KX_SYSTEM_ROOT");  // the scratch root puts it back
  if (kx::tal::PathExists("/etc/brenmar/safemode")) GTEST_SKIP() << "this machine is in safe mode";
  EXPECT_EQ(ExchangeBase(false), "");  // the real root: no base in front
  EXPECT_EQ(ExchangeBase(true), "/");
  EXPECT_EQ(ActionExchangeDirectory(), "/.syscfg-action");
}

// The current action's directory is the first entry, sorted, of the exchange
// directory, in either mode.
TEST(ExchangePaths, CurrentActionDirectoryIsTheFirstSortedEntry) {
  for (const bool safeMode : {false, true}) {
    kx::test::ScratchRoot root;
    if (safeMode) root.WriteFile("/etc/brenmar/safemode", "");
    EXPECT_EQ(CurrentActionDirectory(), "");  // no exchange directory
    std::filesystem::create_directories(ActionExchangeDirectory());
    EXPECT_EQ(RelativeActionDirectory(), "");
    EXPECT_EQ(RequestFilePath("format.ini"), "");  // never relative to the working directory
    std::filesystem::create_directories(ActionExchangeDirectory() + "/B7");
    std::filesystem::create_directories(ActionExchangeDirectory() + "/A3");
    EXPECT_EQ(CurrentActionDirectory(), ActionExchangeDirectory() + "/A3/");
    EXPECT_EQ(RelativeActionDirectory(), "/.syscfg-action/A3");
    EXPECT_EQ(RequestFilePath("format.ini"), ActionExchangeDirectory() + "/A3/format.ini");
  }
}

TEST(ExchangePaths, HostPathsBecomeLocalPathsBelowTheRoot) {
  kx::test::ScratchRoot root;
  root.WriteFile("/etc/brenmar/safemode", "");
  const std::string base = root / "/mnt/userfs";
  const std::string exchange = base + "/.syscfg-action";
  const std::tuple<const char*, bool, std::string> cases[] = {
      {"/.syscfg-action/abc/", false, exchange + "/abc"},
      {"/.syscfg-action/abc", true, exchange + "/abc/"},
      {"/.syscfg-action/abc/", true, exchange + "/abc/"},
      {"/.syscfg-action", false, exchange},
      {"/.syscfg-action/a/./b//c", false, exchange + "/a/b/c"},
      {"/.syscfg-actionX/y", false, base + "/.syscfg-actionX/y"},
      {"/.syscfg-action/../etc/passwd", false, base + "/etc/passwd"},
      {"/.syscfg-action/a/../../../x/", false, base + "/x"},
      {"/tmp/x/", false, root / "/tmp/x"},
      {"/tmp/x", true, root / "/tmp/x/"},
      {"/../../etc/passwd", false, root / "/etc/passwd"},
      {"relative/x/", false, "relative/x"},
      {"", false, ""},
  };
  for (const auto& [hostPath, trailingSeparator, local] : cases) {
    EXPECT_EQ(HostPathToLocalPath(hostPath, trailingSeparator), local) << hostPath << " " << trailingSeparator;
  }
  std::filesystem::remove(root / "/etc/brenmar/safemode");
  EXPECT_EQ(HostPathToLocalPath("/.syscfg-action/abc/", false), root / "/.syscfg-action/abc");
  // With the root "/", other paths are the controller's own, as given.
  ::setenv("KX_SYSTEM_ROOT", "/", 1);
  EXPECT_EQ(HostPathToLocalPath("/tmp/./x/", false), "/tmp/./x");
}

}  // namespace
