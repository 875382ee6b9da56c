#include "host/user_commands.h"

#include <fcntl.h>
#include <sys/file.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <optional>
#include <stdexcept>

#include "host/private_file.h"
#include "host/users_file.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/path.h"

namespace kx::webhost {
namespace {

using tal::osdep::FileDescriptor;

constexpr size_t kMaxPassword = 1024;

// Held while the file is read and replaced, on the directory: the file itself is
// replaced by a rename.
FileDescriptor LockDirectoryOf(const std::string& usersPath) {
  const std::string directory = tal::DirectoryPart(usersPath).empty() ? "." : tal::DirectoryPart(usersPath);
  tal::CreateDirectories(directory, 0755);
  FileDescriptor lock = tal::osdep::Open(directory, O_RDONLY | O_DIRECTORY);
  if (!lock.IsOpen() || tal::osdep::RetryOnInterrupt([&] { return ::flock(lock.Get(), LOCK_EX); }) != 0) {
    throw std::runtime_error("cannot lock " + directory);
  }
  return lock;
}

// The file's text, checked as the host will read it; empty when there is none.
std::string CurrentText(const std::string& usersPath) {
  std::string text = ReadUsersFileText(usersPath).value_or(std::string());
  ParseUsers(text, usersPath);
  return text;
}

std::optional<std::string> ReadLine(int input) {
  std::string line;
  char c = 0;
  ssize_t got = 0;
  while ((got = tal::osdep::RetryOnInterrupt([&] { return ::read(input, &c, 1); })) == 1 && c != '\n') {
    if (line.size() > kMaxPassword) return std::nullopt;
    line += c;
  }
  if (got < 0 || (got == 0 && line.empty())) return std::nullopt;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

std::optional<std::string> AskWithoutEcho(int input, const char* prompt) {
  termios saved{};
  ::tcgetattr(input, &saved);
  termios quiet = saved;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  ::tcsetattr(input, TCSAFLUSH, &quiet);
  std::fputs(prompt, stderr);
  std::optional<std::string> line = ReadLine(input);
  ::tcsetattr(input, TCSAFLUSH, &saved);
  std::fputs("\n", stderr);
  return line;
}

std::string ReadPassword(int input, const std::string& name) {
  std::optional<std::string> password;
  if (::isatty(input)) {
    password = AskWithoutEcho(input, ("Password for " + name + ": ").c_str());
    if (password && AskWithoutEcho(input, "The same again: ") != password) {
      throw std::runtime_error("the two passwords differ");
    }
  } else {
    password = ReadLine(input);
  }
  if (!password || password->empty() || password->size() > kMaxPassword) {
    throw std::runtime_error("expected a password of 1 to " + std::to_string(kMaxPassword) +
                             " bytes on standard input");
  }
  return *password;
}

}  // namespace

int AddUser(const std::string& usersPath, const std::string& name, int passwordInput) try {
  if (!IsValidUserName(name)) {
    throw std::runtime_error("a user name has 1 to 64 bytes, without \":\" or control characters");
  }
  const std::string password = ReadPassword(passwordInput, name);
  const FileDescriptor lock = LockDirectoryOf(usersPath);
  const std::string text = CurrentText(usersPath);
  const bool exists = WithoutUser(text, name).has_value();
  WritePrivateFile(usersPath, WithUser(text, name, HashPassword(password)));
  std::cout << "kx-webhost: " << (exists ? "changed the password of " : "added ") << "user " << name << " in "
            << usersPath << std::endl;
  return 0;
} catch (const std::exception& error) {
  std::cerr << "kx-webhost: --add-user: " << error.what() << std::endl;
  return 1;
}

int RemoveUser(const std::string& usersPath, const std::string& name) try {
  const FileDescriptor lock = LockDirectoryOf(usersPath);
  const std::optional<std::string> text = WithoutUser(CurrentText(usersPath), name);
  if (!text) throw std::runtime_error("no user " + name + " in " + usersPath);
  WritePrivateFile(usersPath, *text);
  std::cout << "kx-webhost: removed user " << name << " from " << usersPath << std::endl;
  return 0;
} catch (const std::exception& error) {
  std::cerr << "kx-webhost: --remove-user: " << error.what() << std::endl;
  return 1;
}

}  // namespace kx::webhost
