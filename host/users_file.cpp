#include "host/users_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "kx/tal/osdep/posix_io.h"

namespace kx::webhost {
namespace {

constexpr size_t kMaxUserName = 64;
constexpr size_t kMaxFileBytes = 1 << 20;

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();  // written on another system
    lines.push_back(line);
  }
  return lines;
}

bool IsEntry(const std::string& line) { return !line.empty() && line[0] != '#'; }

std::string_view NameOf(std::string_view line) { return line.substr(0, line.find(':')); }

std::string JoinLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

}  // namespace

bool IsValidUserName(std::string_view name) {
  if (name.empty() || name.size() > kMaxUserName) return false;
  for (const char c : name) {
    if (c == ':' || static_cast<unsigned char>(c) < 0x20 || c == 0x7f) return false;
  }
  return true;
}

Users ParseUsers(const std::string& text, const std::string& path) {
  Users users;
  const std::vector<std::string> lines = Lines(text);
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string& line = lines[i];
    if (!IsEntry(line)) continue;
    const auto malformed = [&](const std::string& reason) {
      return std::runtime_error(path + ", line " + std::to_string(i + 1) + ": " + reason);
    };
    const size_t colon = line.find(':');
    const std::string name = line.substr(0, colon);
    if (colon == std::string::npos || !IsValidUserName(name)) throw malformed("expected NAME:pbkdf2-sha256:...");
    std::optional<PasswordHash> hash = ParsePasswordHash(std::string_view(line).substr(colon + 1));
    if (!hash) {
      throw malformed("not a password hash of kx-webhost --add-user (pbkdf2-sha256, at least " +
                      std::to_string(kPasswordRounds) + " rounds)");
    }
    if (!users.emplace(name, std::move(*hash)).second) throw malformed("user \"" + name + "\" is named twice");
  }
  return users;
}

std::optional<Users> ReadUsersFile(const std::string& path) {
  const std::optional<std::string> text = ReadUsersFileText(path);
  if (!text) return std::nullopt;
  return ParseUsers(*text, path);
}

std::optional<std::string> ReadUsersFileText(const std::string& path) {
  using tal::osdep::FileDescriptor;
  const FileDescriptor file = tal::osdep::Open(path, O_RDONLY | O_NONBLOCK);
  if (!file.IsOpen() && errno == ENOENT) return std::nullopt;
  struct stat info {};
  if (!file.IsOpen() || ::fstat(file.Get(), &info) != 0) {
    throw std::runtime_error("cannot read the users file " + path + ": " + std::strerror(errno));
  }
  if (!S_ISREG(info.st_mode)) throw std::runtime_error("the users file " + path + " is not a regular file");
  if ((info.st_mode & (S_IROTH | S_IWOTH)) != 0) {
    throw std::runtime_error("others may read or write the users file " + path + ": chmod o-rw " + path);
  }
  if (info.st_size > static_cast<off_t>(kMaxFileBytes)) {
    throw std::runtime_error("the users file " + path + " is larger than 1 MiB");
  }
  std::string text(static_cast<size_t>(info.st_size), '\0');
  const ssize_t got = tal::osdep::ReadUpTo(file.Get(), text.data(), text.size());
  if (got < 0) throw std::runtime_error("cannot read the users file " + path + ": " + std::strerror(errno));
  text.resize(static_cast<size_t>(got));
  return text;
}

std::string WithUser(const std::string& text, const std::string& name, const PasswordHash& hash) {
  const std::string entry = name + ":" + FormatPasswordHash(hash);
  std::vector<std::string> lines = Lines(text);
  bool replaced = false;
  for (std::string& line : lines) {
    if (IsEntry(line) && NameOf(line) == name) {
      line = entry;
      replaced = true;
    }
  }
  if (!replaced) lines.push_back(entry);
  return JoinLines(lines);
}

std::optional<std::string> WithoutUser(const std::string& text, const std::string& name) {
  std::vector<std::string> lines = Lines(text);
  const size_t before = lines.size();
  lines.erase(std::remove_if(lines.begin(), lines.end(),
                             [&](const std::string& line) { return IsEntry(line) && NameOf(line) == name; }),
              lines.end());
  if (lines.size() == before) return std::nullopt;
  return JoinLines(lines);
}

}  // namespace kx::webhost
