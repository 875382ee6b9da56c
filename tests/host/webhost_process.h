#pragma once
// The real kx-webhost, started for one test on a free loopback port.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kx::test {

class WebhostProcess {
 public:
  // Starts the host with --listen 127.0.0.1:0 --locator-port 0 and the given
  // arguments (later ones win), and waits for it to report its port.
  explicit WebhostProcess(const std::vector<std::string>& arguments);
  // Kills the host if it still runs.
  ~WebhostProcess();
  WebhostProcess(const WebhostProcess&) = delete;
  WebhostProcess& operator=(const WebhostProcess&) = delete;

  uint16_t Port() const { return port_; }
  // Sends the signal and waits for the host to end; returns its wait status,
  // or -1 when it did not end within 20 seconds. Once ended, only returns that status.
  int Stop(int signal);

 private:
  pid_t pid_ = -1;
  int exitStatus_ = -1;
  int output_ = -1;
  uint16_t port_ = 0;
};

}  // namespace kx::test
