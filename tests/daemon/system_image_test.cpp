// System image backup, restore and format: through the whole web service, with
// hostile images, and a restore that fails or is killed at any step.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>

#include "actions/request_files.h"
#include "daemon/daemon_settings.h"
#include "platform/action_lock.h"
#include "tests/daemon/controller_fixture.h"

namespace {

namespace fs = std::filesystem;
using kx::test::Contains;
using kx::test::ReadFile;
using kx::test::SnapshotRoot;
using kx::test::TestImageEntry;

constexpr char kImageRefused[] = "Result=\"-2147219507\"";
constexpr char kFailed[] = "Result=\"-2147467259\"";

std::string LastAction(const kx::test::ScratchRoot& root) {
  return ReadFile(root / "/etc/brenmar/share/lastAction.xml");
}

// Places the image as "SystemImage.tgz" of the action and asks for its restore,
// as SetSystemImage does in run mode.
void RequestRestore(const std::string& actionId, const std::vector<TestImageEntry>& image,
                    const std::string& blacklist = "") {
  const std::string directory = kx::test::TakeActionLock(actionId);
  kx::test::WriteTestImage(directory + "/SystemImage.tgz", image);
  std::string blacklistPath;
  if (!blacklist.empty()) {
    std::ofstream(directory + "/SetSystemImageBlacklist") << blacklist;
    blacklistPath = "/mnt/userfs/.syscfg-action/" + actionId + "/SetSystemImageBlacklist";
  }
  ASSERT_EQ(kx::actions::CreateSetImageIni(directory + "/setimage.ini", 60000, 0,
                                           "/.syscfg-action/" + actionId + "/SystemImage.tgz", blacklistPath),
            0);
}

// "a/a/…/a" of `components` components.
std::string DeepPath(size_t components) {
  std::string path(2 * components - 1, '/');
  for (size_t i = 0; i < path.size(); i += 2) path[i] = 'a';
  return path;
}

class DaemonSystemImage : public kx::test::ControllerFixture {};

TEST_F(DaemonSystemImage, BackupDownloadRestoreAndFormatThroughTheWebService) {
  root.WriteFile("/opt/app/bin/tool", "#!/bin/sh\necho tool\n");
  fs::permissions(root / "/opt/app/bin/tool", static_cast<fs::perms>(04755));
  std::string data;
  for (uint32_t i = 0, x = 1; i < 3000000; ++i) data += static_cast<char>((x = x * 1103515245 + 12345) >> 24);
  root.WriteFile("/opt/app/data.bin", data);
  fs::create_symlink("bin", root / "/opt/app/lib");
  fs::create_symlink("/opt/app/data.bin", root / "/etc/app.conf");
  fs::create_directory(root / "/opt/app/private");
  fs::permissions(root / "/opt/app/private", fs::perms::owner_all);
  root.WriteFile("/opt/app/Grüße.txt", "hallo\n");
  root.WriteFile("/opt/app/caf\xe9 latin-1.txt", "bytes, not UTF-8\n");
  root.WriteFile("/var/log/keep.log", "kept\n");
  root.WriteFile("/mnt/userfs/user.txt", "user data\n");
  fs::create_symlink("/opt/app", root / "/mnt/userfs/app-link");

  // Backup, the blacklisted log left out.
  ASSERT_TRUE(Contains(Call("BeginAction", "ActionID=I1&CustomLockHolder=test"), "Result=\"0\""));
  EXPECT_EQ(
      Call("GetSystemImage", "ActionID=I1&Blacklist=%2Fvar%2Flog&Options=0"),
      "<?xml version=\"1.0\"?>\n<GetSystemImage Result=\"0\" ImageFileURL=\".syscfg-action/I1/SystemImage.tgz\" />");
  const std::string backup = WaitForResult("I1");
  EXPECT_TRUE(Contains(backup, "<Last Id=\"I1\" ActionType=\"GetSystemImage\"")) << backup;
  EXPECT_TRUE(Contains(backup, "Result=\"0\"")) << backup;
  const auto download = kx::test::Get(host.Port(), "/swinstall/files/.syscfg-action/I1/SystemImage.tgz");
  ASSERT_EQ(download.status, 200);
  const kx::test::RootSnapshot before = SnapshotRoot(root);
  const auto toolTime = fs::last_write_time(root / "/opt/app/bin/tool");
  ASSERT_TRUE(Finalize("I1", "GetSystemImage", "None"));

  // Files changed and deleted, a directory where a file was and the other way round.
  root.WriteFile("/opt/app/data.bin", "overwritten");
  fs::permissions(root / "/opt/app/data.bin", fs::perms::owner_read);
  fs::remove(root / "/opt/app/Grüße.txt");
  fs::remove(root / "/opt/app/private");
  fs::remove(root / "/opt/app/lib");
  fs::create_symlink("/elsewhere", root / "/opt/app/lib");
  fs::remove_all(root / "/opt/app/bin");
  root.WriteFile("/opt/app/bin", "a file now");
  fs::remove(root / "/etc/app.conf");
  root.WriteFile("/etc/app.conf/inside", "a directory now");
  root.WriteFile("/var/log/keep.log", "changed\n");

  // Restore of the downloaded image, the log still blacklisted.
  ASSERT_TRUE(Contains(Call("BeginAction", "ActionID=I2&CustomLockHolder=test"), "Result=\"0\""));
  std::ofstream(root / "/.syscfg-action/I2/SystemImage.tgz", std::ios::binary) << download.body;
  EXPECT_TRUE(Contains(Call("SetSystemImage",
                            "ActionID=I2&LocalPath=%2F.syscfg-action%2FI2%2FSystemImage.tgz"
                            "&Blacklist=%2Fvar%2Flog&Options=0&Timeout=60000"),
                       "Result=\"0\""));
  const std::string restore = WaitForResult("I2");
  EXPECT_TRUE(Contains(restore, "<Last Id=\"I2\" ActionType=\"SetSystemImage\"")) << restore;
  EXPECT_TRUE(Contains(restore, "Result=\"0\"")) << restore;
  EXPECT_EQ(kx::test::Differences(before, SnapshotRoot(root)), "  changed: var/log/keep.log\n");
  EXPECT_EQ(ReadFile(root / "/var/log/keep.log"), "changed\n");
  // Whole seconds, as a tar keeps them.
  EXPECT_EQ(std::chrono::floor<std::chrono::seconds>(fs::last_write_time(root / "/opt/app/bin/tool")),
            std::chrono::floor<std::chrono::seconds>(toolTime));
  EXPECT_FALSE(fs::exists(root / "/var/local/kx/transaction"));
  ASSERT_TRUE(Finalize("I2", "SetSystemImage", "None"));

  // Format: the user file system emptied, a link in it removed but not followed. The
  // action ID is no plain file name, and the daemon reports it whole.
  const std::string id = "{I3:format}";
  ASSERT_TRUE(Contains(Call("BeginAction", "ActionID=" + id + "&CustomLockHolder=test"), "Result=\"0\""));
  EXPECT_TRUE(Contains(Call("Format", "ActionID=" + id + "&Timeout=0&Options=32"), "Result=\"0\""));
  EXPECT_TRUE(Contains(WaitForResult(id), "Result=\"0\""));
  EXPECT_TRUE(fs::is_empty(root / "/mnt/userfs"));
  EXPECT_EQ(ReadFile(root / "/opt/app/bin/tool"), "#!/bin/sh\necho tool\n");
  ASSERT_TRUE(Finalize(id, "Format", "None"));
}

TEST(DaemonSystemImageRefusal, HostileImagesAreRefusedWithNothingWritten) {
  kx::test::ScratchRoot root;
  char outsidePattern[] = "/tmp/kx-outside-XXXXXX";
  const std::string outside = ::mkdtemp(outsidePattern);
  root.WriteFile("/etc/brenmar/share/config.cdf", "<DEFINITION/>\n");
  fs::create_directories(root / "/var/local/kx");
  root.WriteFile("/opt/keep", "keep\n");
  const kx::test::RootSnapshot before = SnapshotRoot(root);

  const TestImageEntry first{"opt/first", 'f', "first\n"};
  const std::map<std::string, std::vector<TestImageEntry>> hostile = {
      {"absolute", {first, {"/absolute", 'f', "x"}}},
      {"climbing", {first, {"../climbed", 'f', "x"}}},
      {"climbing inside", {first, {"opt/../../climbed", 'f', "x"}}},
      {"through a link", {first, {"evil", 'l', outside}, {"evil/passwd", 'f', "owned"}}},
      {"below a later link", {first, {"evil/passwd", 'f', "owned"}, {"evil", 'l', outside}}},
      {"link out of the root", {first, {"opt/up", 'l', "../../outside"}}},
      {"hard link", {first, {"opt/second", 'h', "opt/first"}}},
      {"device", {first, {"opt/device", 'c', ""}}},
      // 300,000 components in under a kilobyte of image.
      {"absurdly deep", {first, {DeepPath(300000), 'f', "x"}}},
  };
  for (const auto& [what, image] : hostile) {
    RequestRestore("H1", image);
    ASSERT_TRUE(kx::test::RunDaemonOnce(root));
    EXPECT_TRUE(Contains(LastAction(root), kImageRefused)) << what << ": " << LastAction(root);
    ASSERT_EQ(ForceRemoveActionLock(), 0);
  }

  // Damaged data, found before anything is written: cut short, or no gzip at all.
  RequestRestore("H1", {first, {"opt/big", 'f', std::string(1 << 20, 'b')}});
  fs::resize_file(root / "/.syscfg-action/H1/SystemImage.tgz", 600);
  ASSERT_TRUE(kx::test::RunDaemonOnce(root));
  EXPECT_TRUE(Contains(LastAction(root), kImageRefused)) << LastAction(root);
  root.WriteFile("/.syscfg-action/H1/SystemImage.tgz", "plain text");
  fs::rename(root / "/.syscfg-action/H1/setimage.ini.done", root / "/.syscfg-action/H1/setimage.ini");
  ASSERT_TRUE(kx::test::RunDaemonOnce(root));
  EXPECT_TRUE(Contains(LastAction(root), kImageRefused)) << LastAction(root);
  ASSERT_EQ(ForceRemoveActionLock(), 0);

  // An image that is not in the action exchange directory is not even opened.
  const std::string directory = kx::test::TakeActionLock("H2");
  ASSERT_EQ(kx::actions::CreateSetImageIni(directory + "/setimage.ini", 0, 0, "/opt/keep", ""), 0);
  ASSERT_TRUE(kx::test::RunDaemonOnce(root));
  EXPECT_TRUE(Contains(LastAction(root), "Result=\"-2147024809\"")) << LastAction(root);
  ASSERT_EQ(ForceRemoveActionLock(), 0);

  // Nor one reached through a link of the action directory that leads out of the root.
  const std::string linked = kx::test::TakeActionLock("H3");
  kx::test::WriteTestImage(outside + "/SystemImage.tgz", {{"opt/from-outside", 'f', "x"}});
  fs::create_symlink(outside, linked + "/images");
  ASSERT_EQ(
      kx::actions::CreateSetImageIni(linked + "/setimage.ini", 0, 0, "/.syscfg-action/H3/images/SystemImage.tgz", ""),
      0);
  ASSERT_TRUE(kx::test::RunDaemonOnce(root));
  EXPECT_TRUE(Contains(LastAction(root), kImageRefused)) << LastAction(root);
  ASSERT_EQ(ForceRemoveActionLock(), 0);
  fs::remove(outside + "/SystemImage.tgz");

  // Nor is a blacklist that is a link.
  RequestRestore("H4", {first}, "opt/keep\n");
  fs::remove(root / "/.syscfg-action/H4/SetSystemImageBlacklist");
  fs::create_symlink(root / "/opt/keep", root / "/.syscfg-action/H4/SetSystemImageBlacklist");
  ASSERT_TRUE(kx::test::RunDaemonOnce(root));
  EXPECT_TRUE(Contains(LastAction(root), kFailed)) << LastAction(root);
  ASSERT_EQ(ForceRemoveActionLock(), 0);

  EXPECT_EQ(kx::test::Differences(before, SnapshotRoot(root)), "");
  EXPECT_TRUE(fs::is_empty(outside));
  EXPECT_FALSE(fs::exists(fs::path(root.Path()).parent_path() / "climbed"));
  EXPECT_FALSE(fs::exists("/absolute"));
  fs::remove_all(outside);
  kx::tal::osdep::RemoveNamedEvent("SoftwareActionRequestReady");
}

TEST(DaemonSystemImageRefusal, ARestoreThatFailsOrIsKilledAtAnyStepIsRolledBack) {
  kx::test::ScratchRoot root;
  root.WriteFile("/etc/brenmar/share/config.cdf", "<DEFINITION>old</DEFINITION>\n");
  fs::create_directories(root / "/var/local/kx");
  root.WriteFile("/opt/a", "old a\n");
  root.WriteFile("/opt/dir/b", "old b\n");
  root.WriteFile("/opt/dir/keep", "keep\n");
  fs::create_symlink("a", root / "/opt/link");
  fs::permissions(root / "/opt", static_cast<fs::perms>(0750));
  const std::vector<TestImageEntry> image = {
      {"etc/brenmar/share/config.cdf", 'f', "<DEFINITION>new</DEFINITION>\n"},
      {"opt", 'd', ""},
      {"opt/a", 'f', "new a\n"},
      {"opt/dir", 'f', "a file where the directory was\n"},
      {"opt/link", 'l', "dir"},
      {"opt/new", 'd', ""},
      {"opt/new/c", 'f', "new c\n"},
  };
  const kx::test::RootSnapshot before = SnapshotRoot(root);

  // "opt/dir" cannot become a file while the blacklist keeps something in it.
  RequestRestore("R1", image, "opt/dir/keep\n");
  ASSERT_TRUE(kx::test::RunDaemonOnce(root));
  EXPECT_TRUE(Contains(LastAction(root), kFailed)) << LastAction(root);
  EXPECT_EQ(kx::test::Differences(before, SnapshotRoot(root)), "");
  ASSERT_EQ(ForceRemoveActionLock(), 0);

  // Killed at step N, then started again; until a restore gets through whole.
  const int step = kx::test::KillAtEveryStep(
      root, 100, [&] { RequestRestore("R2", image); },
      [&](int killedAt) {
        if (fs::exists(root / "/opt/dir/keep")) {  // not committed yet
          EXPECT_EQ(kx::test::Differences(before, SnapshotRoot(root)), "") << "killed at step " << killedAt;
        }
        ASSERT_EQ(ForceRemoveActionLock(), 0);
      });
  EXPECT_GT(step, 15) << "too few steps to be a real restore";
  EXPECT_TRUE(Contains(LastAction(root), "Result=\"0\"")) << LastAction(root);
  EXPECT_EQ(ReadFile(root / "/opt/dir"), "a file where the directory was\n");
  EXPECT_EQ(fs::read_symlink(root / "/opt/link"), "dir");
  EXPECT_EQ(ReadFile(root / "/opt/new/c"), "new c\n");
  EXPECT_EQ(ReadFile(root / "/etc/brenmar/share/config.cdf"), "<DEFINITION>new</DEFINITION>\n");
  EXPECT_EQ(fs::status(root / "/opt").permissions(), static_cast<fs::perms>(0755));
  kx::tal::osdep::RemoveNamedEvent("SoftwareActionRequestReady");
}

TEST(DaemonSystemImageRefusal, FormatAndRestoreNeedPermissionWhenTheRootIsSlash) {
  kx::test::ScratchRoot root;
  kx::daemon::DaemonSettings settings;
  EXPECT_TRUE(kx::daemon::MayChangeWholeRoot(settings));
  fs::create_symlink("/", root / "/slash");
  for (const std::string& slash : std::vector<std::string>{"/", "//", "/tmp/..", root / "/slash", ""}) {
    ::setenv("KX_SYSTEM_ROOT", slash.c_str(), 1);
    EXPECT_FALSE(kx::daemon::MayChangeWholeRoot(settings)) << slash;
  }
  settings.allowFormatAndRestoreOfRoot = true;
  EXPECT_TRUE(kx::daemon::MayChangeWholeRoot(settings));
}

}  // namespace
