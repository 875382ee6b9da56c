#include "tests/daemon/daemon_test_support.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "platform/action_lock.h"

extern char** environ;

namespace kx::test {
namespace fs = std::filesystem;

namespace {

void RunProgram(std::vector<std::string> words) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t pid = -1;
  int status = -1;
  if (::posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0 || ::waitpid(pid, &status, 0) != pid ||
      status != 0) {
    throw std::runtime_error("failed: " + words[0]);
  }
}

bool IsLeftOut(const std::string& path) {
  static const char* const kLeftOut[] = {".syscfg-action",
                                         "mnt/userfs/.syscfg-action",
                                         ".kx-uploads",
                                         "tmp",
                                         "var/tmp",
                                         "etc/brenmar/share/currentAction.xml",
                                         "etc/brenmar/share/lastAction.xml",
                                         "etc/brenmar/share/log"};
  for (const std::string prefix : kLeftOut) {
    if (path == prefix || path.rfind(prefix + "/", 0) == 0) return true;
  }
  return false;
}

}  // namespace

bool RunDaemonOnce(const ScratchRoot& root) {
  DaemonProcess daemon(root.Path());
  return daemon.WaitUntilReady() && daemon.Stop(SIGTERM) == 0;
}

int KillAtEveryStep(const ScratchRoot& root, int maxSteps, const std::function<void()>& request,
                    const std::function<void(int)>& recovered) {
  for (int step = 1; step < maxSteps; ++step) {
    request();
    DaemonProcess killed(root.Path(), {"KXSID_KILL_AT_STEP=" + std::to_string(step)});
    if (killed.WaitUntilReady()) return killed.Stop(SIGTERM) == 0 ? step : 0;
    const int status = killed.WaitForExit();
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
      ADD_FAILURE() << "step " << step << ": status " << status;
      return 0;
    }
    if (step % 2 == 0) {  // the roll-back must not need the action
      std::string lastId;
      EXPECT_EQ(ConvertCurrentActionProgress(lastId), 0);
      EXPECT_EQ(ForceRemoveActionLock(), 0);
    }
    if (!RunDaemonOnce(root)) {
      ADD_FAILURE() << "no restart after step " << step;
      return 0;
    }
    recovered(step);
  }
  ADD_FAILURE() << "the action never got through";
  return 0;
}

std::string SampleFile(const std::string& name) { return ReadFile(std::string(KX_SAMPLES_DIR) + "/" + name); }

void InstallSampleRepository(const ScratchRoot& root) {
  const std::string repository = root / "/var/local/kx/repository";
  fs::create_directories(repository);
  fs::copy(std::string(KX_SAMPLES_DIR) + "/repository", repository, fs::copy_options::recursive);
  RunProgram(
      {"tar", "-cf", repository + "/greeting-1.0/greeting.tar", "-C", repository + "/greeting-1.0/archive", "."});
}

std::string TakeActionLock(const std::string& actionId) {
  std::string lockFile;
  if (ObtainActionLock(actionId, "daemon test", lockFile) < 0) throw std::runtime_error("no lock for " + actionId);
  return fs::path(lockFile).parent_path();
}

void RequestUpdate(const std::string& actionId, const std::string& installCdf) {
  std::ofstream(fs::path(TakeActionLock(actionId)) / "install.cdf", std::ios::binary) << installCdf;
}

RootSnapshot SnapshotRoot(const ScratchRoot& root) {
  RootSnapshot snapshot;
  const fs::path base(root.Path());
  for (auto entry = fs::recursive_directory_iterator(base); entry != fs::recursive_directory_iterator(); ++entry) {
    // Lexically: fs::relative would follow a link to the entry it names.
    const std::string path = entry->path().lexically_relative(base).string();
    if (IsLeftOut(path)) {
      if (entry->is_directory() && !entry->is_symlink()) entry.disable_recursion_pending();
      continue;
    }
    struct stat info {};
    ::lstat(entry->path().c_str(), &info);
    std::ostringstream text;
    text << std::oct << info.st_mode << std::dec << " " << info.st_uid << ":" << info.st_gid << " ";
    if (S_ISLNK(info.st_mode)) {
      text << "-> " << fs::read_symlink(entry->path()).string();
    } else if (S_ISREG(info.st_mode)) {
      text << ReadFile(entry->path());
    }
    snapshot[path] = text.str();
  }
  return snapshot;
}

std::string Differences(const RootSnapshot& before, const RootSnapshot& after) {
  std::string differences;
  for (const auto& [path, entry] : before) {
    const auto found = after.find(path);
    if (found == after.end()) {
      differences += "  gone: " + path + "\n";
    } else if (found->second != entry) {
      differences += "  changed: " + path + "\n";
    }
  }
  for (const auto& [path, entry] : after) {
    if (before.count(path) == 0) differences += "  new: " + path + "\n";
  }
  return differences;
}

}  // namespace kx::test
