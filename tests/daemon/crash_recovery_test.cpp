// A daemon killed at any step of an update leaves a controller that the next
// start puts back exactly as it was.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <map>

#include "kx/tal/osdep/named_event.h"
#include "platform/action_lock.h"
#include "tests/daemon/daemon_test_support.h"

namespace {

namespace fs = std::filesystem;
using kx::test::ReadFile;
using kx::test::SnapshotRoot;

// Hello 1.1 replaces 1.0's program and INI value; Extra goes away.
// Only root may hand a file to another owner.
std::string Hello11() {
  return std::string(R"(<?CDF VERSION="1.5"?>
<SOFTPKG NAME="{6F1C5A2E-3B7D-4E0A-9C52-1D8E4F7A2B10}" VERSION="1.1"><TITLE>Hello</TITLE><IMPLEMENTATION>
<CODEBASE FILENAME="hello-1.1/hello" TARGET="/usr/local/bin/hello" PERMISSIONS="0750" )") +
         (::geteuid() == 0 ? "OWNER=\"opuser\" GROUP=\"kx\"" : "") + R"(/>
<MERGEINI TARGET="/etc/kx/hello.ini"><![CDATA[[Hello]
Greeting=Hello again

]]></MERGEINI></IMPLEMENTATION></SOFTPKG>)";
}
constexpr char kExtra[] = R"(<?CDF VERSION="1.5"?>
<SOFTPKG NAME="{0C3E1B58-7D2A-4F96-A1E4-5B8C9D0E2F37}" VERSION="1.0"><TITLE>Extra</TITLE><IMPLEMENTATION>
<CODEBASE FILENAME="extra/data" TARGET="/opt/extra/data"/><SYMLINK SOURCE="data" LINK="/opt/extra/link"/>
</IMPLEMENTATION></SOFTPKG>)";
constexpr char kBefore[] = R"(<SOFTPKG NAME="{6F1C5A2E-3B7D-4E0A-9C52-1D8E4F7A2B10}" VERSION="1.0"/>
<SOFTPKG NAME="{0C3E1B58-7D2A-4F96-A1E4-5B8C9D0E2F37}" VERSION="1.0"/>)";
constexpr char kAfter[] = R"(<SOFTPKG NAME="{6F1C5A2E-3B7D-4E0A-9C52-1D8E4F7A2B10}" VERSION="1.1"/>
<SOFTPKG NAME="{A3D94C71-52E8-4B1F-8E06-7C2B9F3D1E45}" VERSION="1.0"/>)";

std::string LastAction(const kx::test::ScratchRoot& root) {
  return ReadFile(root / "/etc/brenmar/share/lastAction.xml");
}

TEST(DaemonCrashRecovery, AnUpdateKilledAtAnyStepIsRolledBackAtTheNextStart) {
  kx::test::ScratchRoot root;
  kx::test::InstallSampleRepository(root);
  root.WriteFile("/var/local/kx/repository/hello-1.1.cdf", Hello11());
  root.WriteFile("/var/local/kx/repository/hello-1.1/hello", "#!/bin/sh\necho Hello again\n");
  root.WriteFile("/var/local/kx/repository/extra.cdf", kExtra);
  root.WriteFile("/var/local/kx/repository/extra/data", "extra data\n");
  root.WriteFile("/etc/kx/hello.ini", "; kept by hand\n[Site]\nName=Lab\n");

  kx::test::RequestUpdate("A1", kBefore);
  ASSERT_TRUE(kx::test::RunDaemonOnce(root));
  ASSERT_NE(LastAction(root).find("Result=\"0\""), std::string::npos) << LastAction(root);
  const kx::test::RootSnapshot before = SnapshotRoot(root);

  // Killed at step N, then started again; until an update gets through whole.
  std::map<int, kx::test::RootSnapshot> recovered;
  const int step = kx::test::KillAtEveryStep(
      root, 200, [] { kx::test::RequestUpdate("A1", kAfter); },
      [&](int killedAt) {
        EXPECT_FALSE(fs::exists(root / "/etc/brenmar/share/config.old")) << "step " << killedAt;
        recovered[killedAt] = SnapshotRoot(root);
      });
  ASSERT_GT(step, 20) << "too few steps to be a real update";
  // Every kill but the last one (after the commit) left the controller as before.
  const kx::test::RootSnapshot after = SnapshotRoot(root);
  EXPECT_NE(after, before);
  EXPECT_NE(after.at("usr/local/bin/hello").find("Hello again"), std::string::npos);
  EXPECT_EQ(after.count("opt/extra/data"), 0u);
  // InstalledComponents would end the document at an empty line.
  EXPECT_EQ(after.at("etc/brenmar/share/config.cdf").find("\n\n"), std::string::npos);
  for (const auto& [killedAt, snapshot] : recovered) {
    const bool committed = killedAt == step - 1;
    EXPECT_EQ(kx::test::Differences(committed ? after : before, snapshot), "") << "killed at step " << killedAt;
  }
  kx::tal::osdep::RemoveNamedEvent("SoftwareActionRequestReady");
}

TEST(DaemonCrashRecovery, TheRolledBackUpdateIsReportedAsFailedAndNotRetried) {
  kx::test::ScratchRoot root;
  kx::test::InstallSampleRepository(root);
  kx::test::RequestUpdate("A1", kx::test::SampleFile("install-hello-and-greeting.cdf"));
  {
    kx::test::DaemonProcess killed(root.Path(), {"KXSID_KILL_AT_STEP=5"});
    ASSERT_FALSE(killed.WaitUntilReady());
  }
  EXPECT_TRUE(fs::exists(root / "/etc/brenmar/share/config.old"));
  EXPECT_TRUE(fs::exists(root / "/etc/brenmar/share/currentAction.xml"));
  kx::test::DaemonProcess restarted(root.Path());
  ASSERT_TRUE(restarted.WaitUntilReady());
  EXPECT_NE(LastAction(root).find("Id=\"A1\" ActionType=\"SoftwareUpdate\""), std::string::npos);
  EXPECT_NE(LastAction(root).find("Result=\"-2147467259\""), std::string::npos) << LastAction(root);
  EXPECT_FALSE(fs::exists(root / "/etc/brenmar/share/currentAction.xml"));
  EXPECT_FALSE(fs::exists(root / "/etc/brenmar/share/config.cdf"));
  EXPECT_FALSE(fs::exists(root / "/usr"));
  EXPECT_EQ(restarted.Stop(SIGTERM), 0);
  kx::tal::osdep::RemoveNamedEvent("SoftwareActionRequestReady");
}

}  // namespace
