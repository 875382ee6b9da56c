// The whole system in a scratch controller in install mode: the real
// kx-webhost with the plug-in, the real kxsid, the sample repository.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/daemon/controller_fixture.h"

namespace {

namespace fs = std::filesystem;
using kx::test::Contains;
using kx::test::Get;
using kx::test::Post;

constexpr char kHello[] = "{6F1C5A2E-3B7D-4E0A-9C52-1D8E4F7A2B10}";
constexpr char kGreeting[] = "{A3D94C71-52E8-4B1F-8E06-7C2B9F3D1E45}";

class DaemonEndToEnd : public kx::test::ControllerFixture {
 protected:
  // Runs one software update through the web service; returns the final Progress answer.
  std::string Update(const std::string& actionId, const std::string& catalogueFile) {
    const std::string begin =
        Call("BeginAction", "ActionID=" + actionId + "&CustomLockHolder=test&Action=SoftwareUpdate");
    if (!Contains(begin, "Result=\"0\"")) return begin;
    const auto update =
        Post(host.Port(), "/swinstall/SoftwareUpdate", kx::test::kMultipartType,
             kx::test::MultipartBody({{"command", "<WSACTIONCOMMAND NAME=\"" + actionId + "\" AUTOREBOOT=\"YES\"/>"},
                                      {"catalogue", kx::test::SampleFile(catalogueFile), "install.cdf"}}));
    if (!Contains(update.body, "Result=\"0\"")) return update.body;
    return WaitForResult(actionId);
  }

  bool Finalize(const std::string& actionId, const std::string& postAction) {
    return ControllerFixture::Finalize(actionId, "SoftwareUpdate", postAction);
  }

  std::string Installed() { return Get(host.Port(), "/swinstall/InstalledComponents").body; }
};

TEST_F(DaemonEndToEnd, InstallsRemovesAndRefusesThroughTheWebService) {
  // Two packages, the second depending on the first.
  const std::string first = Update("U1", "install-hello-and-greeting.cdf");
  ASSERT_TRUE(Contains(first, "<Last Id=\"U1\" ActionType=\"SoftwareUpdate\"")) << first;
  EXPECT_TRUE(Contains(first, "Result=\"0\"")) << first;
  EXPECT_TRUE(Contains(Installed(), kHello));
  EXPECT_TRUE(Contains(Installed(), kGreeting));
  EXPECT_EQ(fs::status(root / "/usr/local/bin/hello").permissions(),
            fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec | fs::perms::others_read |
                fs::perms::others_exec);
  EXPECT_EQ(kx::test::ReadFile(root / "/usr/local/share/greeting/languages/de.txt"), "Guten Morgen\n");
  EXPECT_EQ(fs::read_symlink(root / "/etc/kx/greeting-of-the-day"), "/usr/local/share/greeting/today.txt");
  EXPECT_TRUE(Contains(kx::test::ReadFile(root / "/etc/kx/hello.ini"), "Greeting=Hello from the controller"));
  EXPECT_FALSE(fs::exists(root / "/etc/brenmar/share/config.old"));
  EXPECT_TRUE(Finalize("U1", "None"));

  // Without the dependent package: its files and its link go, the other stays.
  EXPECT_TRUE(Contains(Update("U2", "install-hello.cdf"), "Result=\"0\""));
  EXPECT_TRUE(Contains(Installed(), kHello));
  EXPECT_FALSE(Contains(Installed(), kGreeting));
  EXPECT_FALSE(fs::exists(root / "/usr/local/share/greeting/today.txt"));
  EXPECT_FALSE(fs::exists(fs::symlink_status(root / "/etc/kx/greeting-of-the-day")));
  EXPECT_TRUE(fs::exists(root / "/usr/local/bin/hello"));
  EXPECT_TRUE(Finalize("U2", "None"));

  // The dependent package alone: refused, nothing changed, the reason logged.
  const kx::test::RootSnapshot before = kx::test::SnapshotRoot(root);
  EXPECT_TRUE(Contains(Update("U3", "install-greeting-alone.cdf"), "Result=\"-2147219511\""));
  EXPECT_EQ(kx::test::Differences(before, kx::test::SnapshotRoot(root)), "");
  const std::string log = kx::test::ReadFile(root / "/etc/brenmar/share/log/installationStatus.log");
  EXPECT_TRUE(Contains(log, std::string("Greeting texts 1.0 (") + kGreeting + ") needs Hello 1.0 (" + kHello + ")"))
      << log;

  // A reboot as post-action: back to the runtime, the lock given up first.
  EXPECT_TRUE(Finalize("U3", "Reboot"));
  for (int polls = 0; polls < 100 && !fs::exists(root / "/tmp/rebooted"); ++polls) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_EQ(kx::test::ReadFile(root / "/tmp/rebooted"), "runtime");
}

}  // namespace
