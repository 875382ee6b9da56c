#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <tuple>

#include "platform/ownership.h"
#include "platform/remove_dir_hierarchy.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scratch_root.h"

namespace {

using namespace kx::platform;
namespace fs = std::filesystem;

// The IDs of the default owner and group, or false when the test cannot change owners.
bool DefaultIds(uid_t& opuser, gid_t& kx) {
  const passwd* user = getpwnam("opuser");
  const group* grp = getgrnam("kx");
  if (geteuid() != 0 || user == nullptr || grp == nullptr) return false;
  opuser = user->pw_uid;
  kx = grp->gr_gid;
  return true;
}

// Owner, group and permission bits.
std::tuple<uid_t, gid_t, mode_t> Owner(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
  return {info.st_uid, info.st_gid, info.st_mode & 07777};
}

TEST(OwnershipTest, SymbolicModesAndUnknownNames) {
  const std::pair<const char*, int32_t> modes[] = {{"rw-rw-r--", 0664}, {"rwxrwxrwx", 0777}, {"---------", 0},
                                                   {"r-x------", 0500}, {"wrxwrxwrx", 0111}, {"RW-RW-R--", 0},
                                                   {"rw-rw-r-", -1},    {"rw-rw-r---", -1},  {"", -1}};
  for (const auto& [text, mode] : modes) EXPECT_EQ(SymbolicModeToMode(text), mode) << text;
  for (const char* name : {"", "no-such-kx"}) EXPECT_EQ(GetUserID(name) + GetGroupID(name), -2) << name;
  EXPECT_EQ(GetUserID("root") + GetGroupID("root"), 0);
}

// Shared files end with the default owner, group and mode, for real; unknown
// or empty names fall back to the defaults.
TEST(OwnershipTest, SharedFilesAndFallbacksGetTheDefaultOwner) {
  uid_t opuser;
  gid_t kx;
  if (!DefaultIds(opuser, kx)) GTEST_SKIP() << "needs root and the user opuser and group kx";
  kx::test::ScratchRoot root;
  root.WriteFile("/state.xml", "<Last/>\n");
  const std::string path = root / "/state.xml";
  ASSERT_EQ(SetToDefaultOwnerGroupAndPermissions(path), 0);
  EXPECT_EQ(Owner(path), std::make_tuple(opuser, kx, mode_t{0664}));
  for (const auto& [user, group] : std::initializer_list<std::pair<const char*, const char*>>{
           {"no-such-user-kx", "root"}, {"root", "no-such-group-kx"}, {"", "root"}, {"root", ""}}) {
    ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
    EXPECT_EQ(SetOwnerAndGroup(path, user, group), 0);
    EXPECT_EQ(Owner(path), std::make_tuple(opuser, kx, mode_t{0664})) << user << ":" << group;
  }
  EXPECT_EQ(SetOwnerAndGroup(path, "root", "root"), 0);
  EXPECT_EQ(std::get<0>(Owner(path)), 0u);
  EXPECT_EQ(SetOwnerAndGroup(root / "/missing", "root", "root"), -1);
}

// Gives `path` the default owner and mode in a mount namespace whose user and
// group files know neither "opuser" nor "kx". Exits 0 when the mode was still
// set, 1 when not, 2 when the namespace cannot be made.
[[noreturn]] void DefaultOwnerWithoutTheDefaultNames(const std::string& path, const std::string& emptyFile) {
  const bool isolated = ::unshare(CLONE_NEWNS) == 0 &&
                        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                        ::mount(emptyFile.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) == 0 &&
                        ::mount(emptyFile.c_str(), "/etc/group", nullptr, MS_BIND, nullptr) == 0;
  if (!isolated || getpwnam("opuser") != nullptr || getgrnam("kx") != nullptr) std::_Exit(2);
  const bool modeSet = SetToDefaultOwnerGroupAndPermissions(path) == 0 && std::get<2>(Owner(path)) == 0664;
  std::_Exit(modeSet ? 0 : 1);
}

// Without the default names the owner stays as it is, but the mode is set. A
// fresh process (the death-test style "threadsafe" re-runs this binary) has
// no IDs cached from earlier tests.
TEST(OwnershipTest, ModeIsSetEvenWhenTheDefaultNamesAreUnknown) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root for a private mount namespace";
#ifdef KX_UNDER_EMULATION
  GTEST_SKIP() << "the fresh process would exec the test program itself, which only the emulator can run";
#endif
  kx::test::ScratchRoot root;
  root.WriteFile("/state.xml", "<Last/>\n");
  root.WriteFile("/empty", "");
  const std::string path = root / "/state.xml";
  ASSERT_EQ(chmod(path.c_str(), 0644), 0);
  const pid_t probe = fork();
  if (probe == 0) {
    const bool canIsolate = ::unshare(CLONE_NEWNS) == 0;
    std::_Exit(canIsolate ? 0 : 2);
  }
  int status = 0;
  ASSERT_EQ(waitpid(probe, &status, 0), probe);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) GTEST_SKIP() << "no mount namespaces here";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(DefaultOwnerWithoutTheDefaultNames(path, root / "/empty"), testing::ExitedWithCode(0), "");
}

TEST(RemoveDirHierarchyTest, RemovesTheTreeButNotWhatLinksPointTo) {
  kx::test::ScratchRoot root;
  root.WriteFile("/tree/a/b/c/file", "x");
  root.WriteFile("/tree/a/.hidden", "x");
  root.WriteFile("/outside/keep", "x");
  fs::create_directory_symlink(root / "/outside", root / "/tree/a/link");
  fs::create_directory_symlink(root / "/outside", root / "/link-to-dir");
  EXPECT_EQ(RemoveDirHierarchy(root / "/tree"), 0);
  EXPECT_EQ(RemoveDirHierarchy(root / "/link-to-dir"), 0);
  EXPECT_FALSE(fs::exists(root / "/tree") || fs::exists(root / "/link-to-dir"));
  EXPECT_TRUE(fs::exists(root / "/outside/keep"));
  EXPECT_EQ(RemoveDirHierarchy(root / "/missing"), -1);
}

}  // namespace
