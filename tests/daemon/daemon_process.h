#pragma once
// The real kxsid, started for a test under a system root.

#include <sys/types.h>

#include <string>
#include <vector>

namespace kx::test {

class DaemonProcess {
 public:
  // `environment`: extra "NAME=value" entries.
  DaemonProcess(const std::string& root, const std::vector<std::string>& environment = {});
  // Kills the daemon if it still runs.
  ~DaemonProcess();
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;

  // True once the daemon reports that start-up (recovery and waiting requests)
  // is done; false when it ended first or took more than 30 seconds.
  bool WaitUntilReady();
  // Sends the signal and returns the wait status, -1 after 20 seconds.
  int Stop(int signal);
  // The wait status of a daemon that ends by itself, -1 after 20 seconds.
  int WaitForExit();

 private:
  pid_t pid_ = -1;
  int output_ = -1;
  int status_ = -1;
};

}  // namespace kx::test
