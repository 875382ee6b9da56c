#pragma once
// Test programs run as child processes: any program, and the real kx-webhost
// started for one test on a free loopback port.

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kx::test {

class ChildProcess {
 public:
  // `words`: the program and its arguments; `environment`: extra "NAME=value"
  // entries; `errorFile`: where standard error goes (empty: the test's own).
  explicit ChildProcess(std::vector<std::string> words, const std::vector<std::string>& environment = {},
                        const std::string& errorFile = {});
  ~ChildProcess();  // kills the program if it still runs
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // The next line the program prints; nullopt once it ends or stays silent that long.
  std::optional<std::string> ReadLine(int timeoutMs);
  // Sends the signal and returns the wait status, -1 after 20 seconds.
  int Stop(int signal);
  // The wait status of a program that ends by itself, -1 after 20 seconds.
  int WaitForExit();

 private:
  pid_t pid_ = -1;
  int output_ = -1;
  int status_ = -1;
};

class WebhostProcess : public ChildProcess {
 public:
  // --listen 127.0.0.1:0 --locator-port 0 and the given arguments (later ones win);
  // throws when the host does not report its port.
  explicit WebhostProcess(const std::vector<std::string>& arguments, const std::string& errorFile = {});
  uint16_t Port() const { return port_; }
  // "http" or "https", as the host reported.
  const std::string& Scheme() const { return scheme_; }

 private:
  uint16_t port_ = 0;
  std::string scheme_;
};

struct CommandResult {
  int status = -1;     // the exit status; -1 when it did not exit
  std::string output;  // standard output and error together
};

// A shell command, for the programs a test drives as a person would (curl,
// gnutls-cli, certtool, kx-webhost's own commands).
CommandResult RunCommand(const std::string& command);

}  // namespace kx::test
