#include "tests/host/webhost_process.h"

#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace kx::test {
namespace {

// The first line the host prints, or "" when none comes within the time.
std::string ReadFirstLine(int descriptor) {
  std::string line;
  char c = 0;
  pollfd waiting{descriptor, POLLIN, 0};
  while (::poll(&waiting, 1, 20000) == 1 && ::read(descriptor, &c, 1) == 1 && c != '\n') line += c;
  return line;
}

}  // namespace

WebhostProcess::WebhostProcess(const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {KX_WEBHOST_PATH, "--listen", "127.0.0.1:0", "--locator-port", "0"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  int pipe[2];
  if (::pipe(pipe) != 0) throw std::runtime_error("pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, pipe[0]);
  const int failed = ::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipe[1]);
  output_ = pipe[0];
  if (failed != 0) throw std::runtime_error("cannot start " + words[0]);

  // "kx-webhost: listening on http://127.0.0.1:<port>"
  const std::string line = ReadFirstLine(output_);
  const size_t address = line.find("listening on http://");
  const size_t colon = address == std::string::npos ? address : line.find(':', address + 20);
  const long port = colon == std::string::npos ? 0 : std::strtol(line.c_str() + colon + 1, nullptr, 10);
  if (port <= 0 || port > 65535) {
    Stop(SIGKILL);
    ::close(output_);
    throw std::runtime_error("kx-webhost did not start: \"" + line + "\"");
  }
  port_ = static_cast<uint16_t>(port);
}

WebhostProcess::~WebhostProcess() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  if (output_ >= 0) ::close(output_);
}

int WebhostProcess::Stop(int signal) {
  if (pid_ <= 0) return exitStatus_;
  ::kill(pid_, signal);
  for (int waited = 0; waited < 2000; ++waited) {
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      exitStatus_ = status;
      return status;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return -1;
}

}  // namespace kx::test
