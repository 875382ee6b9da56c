// Catalogues from the network: whatever they name, nothing is written outside
// the system root, a bad one is refused with the controller untouched, and the
// daemon carries on.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "kx/tal/osdep/named_event.h"
#include "tests/daemon/daemon_test_support.h"

namespace {

namespace fs = std::filesystem;
using kx::test::ReadFile;
using namespace std::string_literals;

// The link comes in first, so that the second package's file is written through it.
constexpr char kWanted[] = R"(<SOFTPKG NAME="{7B1D3F5A-9C2E-4A60-B8D1-3E5F7A9C1B2D}" VERSION="1.0"/>
<SOFTPKG NAME="{5E0F2A9C-1B3D-4C7E-8F60-2A4B6C8D0E1F}" VERSION="1.0"/>)";

// Packages delivered in the action directory itself, aiming everywhere but at their own place.
std::string EscapingPackages(const std::string& outside) {
  return R"(<SOFTPKG NAME="{7B1D3F5A-9C2E-4A60-B8D1-3E5F7A9C1B2D}" VERSION="1.0"><IMPLEMENTATION>
<SYMLINK SOURCE=")" +
         outside + R"(" LINK="/opt/made-link"/></IMPLEMENTATION></SOFTPKG>
<SOFTPKG NAME="{5E0F2A9C-1B3D-4C7E-8F60-2A4B6C8D0E1F}" VERSION="1.0"><IMPLEMENTATION>
<CODEBASE FILENAME="payload" TARGET="/../../../../../../climbed"/>
<CODEBASE FILENAME="payload" TARGET="/opt/absolute-link/through-absolute"/>
<CODEBASE FILENAME="payload" TARGET="/opt/relative-link/through-relative"/>
<CODEBASE FILENAME="payload" TARGET="/opt/made-link/through-a-link-of-this-update"/>
<CODEBASE FILENAME="payload" TARGET="C:\windows\style"/>
</IMPLEMENTATION></SOFTPKG>)";
}

struct Refusal {
  const char* what;
  std::string installCdf;
  const char* result;
  bool inRepository = true;  // the repository defines the package as install.cdf names it
};

// Another `version` for each case that a fault would let through, so that it does not hide the next.
std::string Package(const std::string& implementation, const std::string& version = "2.0") {
  return R"(<SOFTPKG NAME="{5E0F2A9C-1B3D-4C7E-8F60-2A4B6C8D0E1F}" VERSION=")" + version + R"("><IMPLEMENTATION>)" +
         implementation + "</IMPLEMENTATION></SOFTPKG>";
}

TEST(DaemonHostileInput, TargetsStayBelowTheRootAndBadCataloguesAreRefused) {
  kx::test::ScratchRoot root;
  char outsidePattern[] = "/tmp/kx-outside-XXXXXX";
  const std::string outside = ::mkdtemp(outsidePattern);
  fs::create_directories(root / "/opt");
  fs::create_symlink(outside, root / "/opt/absolute-link");
  fs::create_symlink("../../../../../../../../..", root / "/opt/relative-link");

  kx::test::RequestUpdate("A1", kWanted);
  root.WriteFile("/.syscfg-action/A1/package.cdf", EscapingPackages(outside));
  root.WriteFile("/.syscfg-action/A1/payload", "payload\n");
  ASSERT_TRUE(kx::test::RunDaemonOnce(root));
  EXPECT_NE(ReadFile(root / "/etc/brenmar/share/lastAction.xml").find("Result=\"0\""), std::string::npos);
  EXPECT_TRUE(fs::is_empty(outside));
  for (const std::string& landed :
       std::vector<std::string>{"/climbed", outside + "/through-absolute", "/through-relative",
                                outside + "/through-a-link-of-this-update", "/windows/style"}) {
    EXPECT_EQ(ReadFile(root / landed), "payload\n") << landed;
  }

  // Each refused with its code; the daemon still runs for the next one. Links are
  // never followed to a package's files or onto an INI file to merge into: they
  // would copy what only root may read to where others can.
  root.WriteFile("/var/local/kx/repository/ok/file", "ok\n");
  root.WriteFile("/etc/secret.ini", "[Secret]\nKey=only root may read this\n");
  fs::permissions(root / "/etc/secret.ini", fs::perms::owner_read | fs::perms::owner_write);
  fs::create_symlink(root / "/etc/secret.ini", root / "/var/local/kx/repository/ok/link");
  fs::create_symlink("ok", root / "/var/local/kx/repository/ok-link");
  fs::create_directories(root / "/etc/kx");
  fs::create_symlink(root / "/etc/secret.ini", root / "/etc/kx/merged.ini");
  const std::vector<Refusal> refusals = {
      {"empty", "", "-2147024809", false},
      {"no package", std::string(100000, '<') + "<SOFTPKG", "-2147024809", false},
      {"binary", "\xff\xfe<SOFTPKG NAME=\"x\" VERSION=\"1\"/>\0<SOFTPKG NAME=\"y\" VERSION=\"1\"/>"s, "-2147219511",
       false},
      {"CDF 8.0", "<?CDF VERSION=\"8.0\"?>" + Package(""), "-2147024809"},
      {"twice", Package("") + Package(""), "-2147024809"},
      {"file outside", Package("<CODEBASE FILENAME=\"../../../../etc/passwd\" TARGET=\"/x\"/>"), "-2147219511"},
      {"missing file", Package("<CODEBASE FILENAME=\"ok/none\" TARGET=\"/x\"/>"), "-2147219511"},
      {"line end", Package("<CODEBASE FILENAME=\"ok/file\" TARGET=\"/x\ny\"/>"), "-2147219511"},
      {"root", Package("<CODEBASE FILENAME=\"ok/file\" TARGET=\"/..\"/>"), "-2147219511"},
      {"mode", Package("<CODEBASE FILENAME=\"ok/file\" TARGET=\"/x\" PERMISSIONS=\"rwx\"/>"), "-2147219511"},
      {"owner", Package("<CODEBASE FILENAME=\"ok/file\" TARGET=\"/x\" OWNER=\"no-such-user\"/>"), "-2147219511"},
      {"not an archive", Package("<CODEBASE FILENAME=\"ok/file\" TARGET=\"/x\" TYPE=\"TAR\"/>"), "-2147219511"},
      {"file is a link", Package("<CODEBASE FILENAME=\"ok/link\" TARGET=\"/x\"/>", "2.1"), "-2147219511"},
      {"file through a link", Package("<CODEBASE FILENAME=\"ok-link/file\" TARGET=\"/x\"/>", "2.2"), "-2147219511"},
      {"merge onto a link", Package("<MERGEINI TARGET=\"/etc/kx/merged.ini\">[Added]\nKey=1\n</MERGEINI>", "2.3"),
       "-2147219511"},
  };
  const kx::test::RootSnapshot before = kx::test::SnapshotRoot(root);
  kx::test::DaemonProcess daemon(root.Path());
  ASSERT_TRUE(daemon.WaitUntilReady());
  kx::tal::osdep::NamedEvent requestReady("SoftwareActionRequestReady");
  for (const Refusal& refusal : refusals) {
    const std::string last = root / "/etc/brenmar/share/lastAction.xml";
    fs::remove(last);
    if (refusal.inRepository) root.WriteFile("/var/local/kx/repository/hostile.cdf", refusal.installCdf);
    kx::test::RequestUpdate("A1", refusal.installCdf);
    requestReady.Set();
    for (int polls = 0; polls < 200 && !fs::exists(last); ++polls) usleep(50000);
    EXPECT_NE(ReadFile(last).find(std::string("Result=\"") + refusal.result + "\""), std::string::npos)
        << refusal.what << ": " << ReadFile(last);
    fs::remove(root / "/var/local/kx/repository/hostile.cdf");
  }
  EXPECT_EQ(kx::test::Differences(before, kx::test::SnapshotRoot(root)), "");
  EXPECT_TRUE(fs::is_symlink(root / "/etc/kx/merged.ini"));
  EXPECT_EQ(daemon.Stop(SIGTERM), 0);
  kx::tal::osdep::RemoveNamedEvent("SoftwareActionRequestReady");
  fs::remove_all(outside);
}

}  // namespace
