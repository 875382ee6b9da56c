#pragma once
// Scratch controllers for the daemon tests: the sample repository, actions
// handed to the daemon directly, and snapshots of the installed tree.

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/daemon/test_image.h"
#include "tests/host/webhost_process.h"
#include "tests/support/scratch_root.h"

namespace kx::test {

// The real kxsid under the root; `environment`: extra "NAME=value" entries.
struct DaemonProcess : ChildProcess {
  explicit DaemonProcess(const std::string& root, const std::vector<std::string>& environment = {})
      : ChildProcess({KXSID_PATH, "--root", root}, environment) {}
  // True once start-up (recovery and waiting requests) is done; false when it ended first.
  bool WaitUntilReady() {
    while (const auto line = ReadLine(30000)) {
      if (*line == "kxsid: waiting for requests") return true;
    }
    return false;
  }
};
// Asks with `request` for an action, kills kxsid at step 1, 2, ... of it and starts it again
// (every other time after the plug-in's clearing of the action in run mode), then calls
// `recovered(step)`; until a run gets through whole. Returns the step of that run, 0 on failure.
int KillAtEveryStep(const ScratchRoot& root, int maxSteps, const std::function<void()>& request,
                    const std::function<void(int)>& recovered);
// A start of the daemon that carries out what waits and stops again; true when all went well.
bool RunDaemonOnce(const ScratchRoot& root);

// The sample repository of daemon/samples in "/var/local/kx/repository", its
// archive packed with the tar program.
void InstallSampleRepository(const ScratchRoot& root);
// The text of a file of daemon/samples ("install-hello.cdf").
std::string SampleFile(const std::string& name);

// Takes the action lock for `actionId` (when not held yet); its directory.
std::string TakeActionLock(const std::string& actionId);
// Takes the lock and places "install.cdf" in the action's directory, as the
// SoftwareUpdate web method does.
void RequestUpdate(const std::string& actionId, const std::string& installCdf);

// Every entry below the root (type, mode, owner, content or link text), except
// the action exchange, the temporary directories and the state files, which
// change with every action whatever it does.
using RootSnapshot = std::map<std::string, std::string>;
RootSnapshot SnapshotRoot(const ScratchRoot& root);
// The paths whose entries differ, for failure messages.
std::string Differences(const RootSnapshot& before, const RootSnapshot& after);

}  // namespace kx::test
