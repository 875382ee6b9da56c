#include "tests/daemon/daemon_process.h"

#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace kx::test {

DaemonProcess::DaemonProcess(const std::string& root, const std::vector<std::string>& environment) {
  std::vector<std::string> words = {KXSID_PATH, "--root", root};
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  std::vector<std::string> variables(environment);
  for (char** entry = environ; *entry != nullptr; ++entry) variables.emplace_back(*entry);
  std::vector<char*> envp;
  for (std::string& variable : variables) envp.push_back(variable.data());
  envp.push_back(nullptr);

  int pipe[2];
  if (::pipe(pipe) != 0) throw std::runtime_error("pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, pipe[0]);
  const int failed = ::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipe[1]);
  output_ = pipe[0];
  if (failed != 0) throw std::runtime_error("cannot start " + words[0]);
}

DaemonProcess::~DaemonProcess() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  ::close(output_);
}

bool DaemonProcess::WaitUntilReady() {
  std::string line;
  char c = 0;
  pollfd waiting{output_, POLLIN, 0};
  while (::poll(&waiting, 1, 30000) == 1 && ::read(output_, &c, 1) == 1) {
    if (c != '\n') {
      line += c;
    } else if (line == "kxsid: waiting for requests") {
      return true;
    } else {
      line.clear();
    }
  }
  return false;
}

int DaemonProcess::WaitForExit() {
  for (int waited = 0; pid_ > 0 && waited < 2000; ++waited) {
    if (::waitpid(pid_, &status_, WNOHANG) == pid_) {
      pid_ = -1;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return pid_ > 0 ? -1 : status_;
}

int DaemonProcess::Stop(int signal) {
  if (pid_ > 0) ::kill(pid_, signal);
  return WaitForExit();
}

}  // namespace kx::test
