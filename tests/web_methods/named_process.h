#pragma once
// A running process with a chosen command name: a copy of sleep under that
// name, since the kernel reports the program file's name as the command name.
// Killed and reaped when the object goes.

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace kx::test {

class NamedProcess {
 public:
  NamedProcess(const std::string& directory, const std::string& name) {
    namespace fs = std::filesystem;
    const std::string program = directory + "/" + name;
    fs::copy_file(fs::exists("/bin/sleep") ? "/bin/sleep" : "/usr/bin/sleep", program,
                  fs::copy_options::overwrite_existing);
    ::chmod(program.c_str(), 0755);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::execl(program.c_str(), name.c_str(), "300", static_cast<char*>(nullptr));
      ::_exit(127);
    }
    // Until the exec, the child still carries the test's command name.
    const std::string stat = "/proc/" + std::to_string(pid_) + "/stat";
    const std::string expected = std::to_string(pid_) + " (" + name + ")";
    for (int i = 0; i < 1000 && StatLine(stat).rfind(expected, 0) != 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  ~NamedProcess() {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  NamedProcess(const NamedProcess&) = delete;
  NamedProcess& operator=(const NamedProcess&) = delete;

 private:
  static std::string StatLine(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
  }

  pid_t pid_ = -1;
};

}  // namespace kx::test
