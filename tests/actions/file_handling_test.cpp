#include <gtest/gtest.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <regex>
#include <thread>
#include <vector>

#include "actions/action_state_files.h"
#include "actions/ownership.h"
#include "actions/remove_dir_hierarchy.h"
#include "tests/actions/action_test_support.h"
#include "tests/support/scratch_root.h"

namespace {

using namespace kx::actions;
namespace fs = std::filesystem;

struct Ids {
  uid_t opuser;
  gid_t kx;
};

// The IDs of the default owner and group, or false when the test cannot change owners.
bool DefaultIds(Ids& ids) {
  const passwd* user = getpwnam("opuser");
  const group* grp = getgrnam("kx");
  if (geteuid() != 0 || user == nullptr || grp == nullptr) return false;
  ids = {user->pw_uid, grp->gr_gid};
  return true;
}

struct stat StatOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
  return info;
}

TEST(SymbolicModeTest, NineCharactersPositionByPosition) {
  const std::pair<const char*, int32_t> cases[] = {
      {"rw-rw-r--", 0664}, {"rwxrwxrwx", 0777}, {"---------", 0},   {"r-x------", 0500},
      {"wrxwrxwrx", 0111}, {"RW-RW-R--", 0},    {"rw-rw-r-", -1},   {"rw-rw-r---", -1},
      {"", -1},
  };
  for (const auto& [text, mode] : cases) EXPECT_EQ(SymbolicModeToMode(text), mode) << text;
}

TEST(OwnershipTest, UnknownOrEmptyNamesFallBackToTheDefaults) {
  Ids ids;
  if (!DefaultIds(ids)) GTEST_SKIP() << "needs root and the user opuser and group kx";
  kx::test::ScratchRoot root;
  root.WriteFile("/f", "x");
  const std::string path = root / "/f";
  const std::pair<const char*, const char*> fallbacks[] = {
      {"no-such-user-kx", "root"}, {"root", "no-such-group-kx"}, {"", "root"}, {"root", ""}};
  for (const auto& [user, group] : fallbacks) {
    ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
    EXPECT_EQ(SetOwnerAndGroup(path, user, group), 0);
    EXPECT_EQ(StatOf(path).st_uid, ids.opuser) << user << ":" << group;
    EXPECT_EQ(StatOf(path).st_gid, ids.kx) << user << ":" << group;
  }
  EXPECT_EQ(SetOwnerAndGroup(path, "root", "root"), 0);
  EXPECT_EQ(StatOf(path).st_uid, 0u);
  EXPECT_EQ(SetOwnerAndGroup(root / "/missing", "root", "root"), -1);
}

TEST(OwnershipTest, LookupsFromManyThreadsAgree) {
  EXPECT_EQ(GetUserID(""), -1);
  EXPECT_EQ(GetGroupID(""), -1);
  EXPECT_EQ(GetUserID("no-such-user-kx"), -1);
  EXPECT_EQ(GetGroupID("no-such-group-kx"), -1);
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&mismatches] {
      for (int i = 0; i < 200; ++i) mismatches += (GetUserID("root") != 0) + (GetGroupID("root") != 0);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(mismatches, 0);
}

TEST(RemoveDirHierarchyTest, RemovesTheTreeButNotWhatLinksPointTo) {
  kx::test::ScratchRoot root;
  root.WriteFile("/tree/a/b/c/file", "x");
  root.WriteFile("/tree/a/.hidden", "x");
  root.WriteFile("/tree/top", "x");
  root.WriteFile("/outside/keep", "x");
  fs::create_directory_symlink(root / "/outside", root / "/tree/a/link");
  EXPECT_EQ(RemoveDirHierarchy(root / "/tree"), 0);
  EXPECT_FALSE(fs::exists(root / "/tree"));
  EXPECT_TRUE(fs::exists(root / "/outside/keep"));

  fs::create_directory_symlink(root / "/outside", root / "/link-to-dir");
  EXPECT_EQ(RemoveDirHierarchy(root / "/link-to-dir"), 0);
  EXPECT_TRUE(fs::exists(root / "/outside/keep"));
  EXPECT_EQ(RemoveDirHierarchy(root / "/missing"), -1);
}

// Also the check that state files end with the default owner, group and mode for real.
TEST(ActionStateFilesTest, CreateActionXmlWritesWholeIntoTheConfigurationDirectory) {
  kx::test::ScratchRoot root;
  EXPECT_FALSE(CreateActionXML("lastAction.xml", "x"));  // no configuration directory
  root.WriteFile("/etc/brenmar/share/lastAction.xml", std::string(100, 'o'));
  EXPECT_TRUE(CreateActionXML("lastAction.xml", "<Last/>\n"));
  const std::string path = root / "/etc/brenmar/share/lastAction.xml";
  EXPECT_EQ(kx::test::ReadFile(path), "<Last/>\n");
  Ids ids;
  if (DefaultIds(ids)) {
    const struct stat info = StatOf(path);
    EXPECT_EQ(info.st_uid, ids.opuser);
    EXPECT_EQ(info.st_gid, ids.kx);
    EXPECT_EQ(info.st_mode & 07777, 0664u);
  }
  for (const char* name : {"", ".", "..", "../lastAction.xml", "log/x.xml"}) {
    EXPECT_FALSE(CreateActionXML(name, "x")) << name;
  }
  EXPECT_FALSE(fs::exists(root / "/etc/brenmar/lastAction.xml"));
}

TEST(ActionStateFilesTest, LastActionLineForm) {
  const std::regex form(
      "<Last Id=\"A1\" ActionType=\"SoftwareUpdate\" "
      "StopTime=\"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d \\S+\" Result=\"-2147219461\"/>\n");
  EXPECT_TRUE(std::regex_match(
      LastActionLine("A1", "SoftwareUpdate", static_cast<int32_t>(0x800407FBu), time(nullptr)), form));
  const std::string escaped = LastActionLine("a\"<&>", "T", 0, 0);
  EXPECT_EQ(escaped.rfind("<Last Id=\"a&quot;&lt;&amp;&gt;\" ActionType=\"T\" StopTime=\"", 0), 0u);
}

}  // namespace
