#include "tests/host/webhost_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace kx::test {

ChildProcess::ChildProcess(std::vector<std::string> words, const std::vector<std::string>& environment,
                           const std::string& errorFile) {
  std::vector<std::string> variables(environment);
  for (char** entry = environ; *entry != nullptr; ++entry) variables.emplace_back(*entry);
  std::vector<char*> argv, envp;
  for (std::string& word : words) argv.push_back(word.data());
  for (std::string& variable : variables) envp.push_back(variable.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  int pipe[2];
  if (::pipe(pipe) != 0) throw std::runtime_error("pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, pipe[0]);
  if (!errorFile.empty()) {
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  }
  const int failed = ::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipe[1]);
  output_ = pipe[0];
  if (failed != 0) throw std::runtime_error("cannot start " + words[0]);
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  ::close(output_);
}

std::optional<std::string> ChildProcess::ReadLine(int timeoutMs) {
  std::string line;
  char c = 0;
  pollfd waiting{output_, POLLIN, 0};
  while (::poll(&waiting, 1, timeoutMs) == 1 && ::read(output_, &c, 1) == 1) {
    if (c == '\n') return line;
    line += c;
  }
  return std::nullopt;
}

int ChildProcess::WaitForExit() {
  for (int waited = 0; pid_ > 0 && waited < 2000; ++waited) {
    if (::waitpid(pid_, &status_, WNOHANG) == pid_) {
      pid_ = -1;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return pid_ > 0 ? -1 : status_;
}

int ChildProcess::Stop(int signal) {
  if (pid_ > 0) ::kill(pid_, signal);
  return WaitForExit();
}

WebhostProcess::WebhostProcess(const std::vector<std::string>& arguments, const std::string& errorFile)
    : ChildProcess(
          [&] {
            std::vector<std::string> words = {KX_WEBHOST_PATH, "--listen", "127.0.0.1:0", "--locator-port", "0"};
            words.insert(words.end(), arguments.begin(), arguments.end());
            return words;
          }(),
          {}, errorFile) {
  // "kx-webhost: listening on http(s)://HOST:<port>", after what it says of a certificate it made.
  std::string line;
  for (int lines = 0; lines < 5 && line.find("listening on ") == std::string::npos; ++lines) {
    line = ReadLine(20000).value_or("");
  }
  const size_t address = line.find("://");
  const size_t colon = address == std::string::npos ? address : line.rfind(':');
  const long port =
      colon == std::string::npos || colon <= address ? 0 : std::strtol(line.c_str() + colon + 1, nullptr, 10);
  if (port <= 0 || port > 65535) throw std::runtime_error("kx-webhost did not start: \"" + line + "\"");
  scheme_ = line.substr(line.find("listening on ") + 13, address - line.find("listening on ") - 13);
  port_ = static_cast<uint16_t>(port);
}

CommandResult RunCommand(const std::string& command) {
  CommandResult result;
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return result;
  char buffer[4096];
  for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.output.append(buffer, got);
  const int status = ::pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

}  // namespace kx::test
