#include "kx/tal/path.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"

namespace kx::tal {

std::string JoinPath(std::string_view dir, std::string_view name) {
  if (dir.empty()) return std::string(name);
  if (name.empty()) return std::string(dir);
  std::string joined(dir);
  const bool dirHasSeparator = joined.back() == '/';
  const bool nameHasSeparator = name.front() == '/';
  if (dirHasSeparator && nameHasSeparator) {
    name.remove_prefix(1);
  } else if (!dirHasSeparator && !nameHasSeparator) {
    joined += '/';
  }
  joined += name;
  return joined;
}

std::string DirectoryPart(std::string_view path) {
  const auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return std::string();
  if (slash == 0) return "/";
  return std::string(path.substr(0, slash));
}

std::string LastComponent(std::string_view path) {
  if (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  const auto slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string CleanPath(std::string_view path) {
  const bool absolute = !path.empty() && path.front() == '/';
  std::vector<std::string_view> parts;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    const std::string_view part = path.substr(start, end - start);
    if (part.empty() || part == ".") {
      // repeated separator or current directory: nothing to keep
    } else if (part == "..") {
      if (!parts.empty() && parts.back() != "..") {
        parts.pop_back();
      } else if (!absolute) {
        parts.push_back(part);
      }
    } else {
      parts.push_back(part);
    }
    start = end + 1;
  }
  std::string cleaned = absolute ? "/" : "";
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) cleaned += '/';
    cleaned += parts[i];
  }
  if (cleaned.empty() && !path.empty()) cleaned = ".";
  return cleaned;
}

bool PathExists(const std::string& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0;
}

bool IsDirectory(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

namespace {
// KX_SYSTEM_ROOT when set and not empty, else null.
const char* RootVariable() {
  const char* root = std::getenv("KX_SYSTEM_ROOT");
  return (root != nullptr && *root != '\0') ? root : nullptr;
}
}  // namespace

std::string SystemRoot() {
  const char* root = RootVariable();
  return root != nullptr ? std::string(root) : std::string("/");
}

// Called for every fixed path on every request: built in one allocation.
std::string RootedPath(std::string_view targetAbsolutePath) {
  if (targetAbsolutePath.empty() || targetAbsolutePath.front() != '/') {
    KX_THROW(exception::InvalidArgument);
  }
  const char* rootVariable = RootVariable();
  const std::string_view root = rootVariable != nullptr ? rootVariable : "/";
  if (root == "/") return std::string(targetAbsolutePath);
  if (root.back() == '/') targetAbsolutePath.remove_prefix(1);
  std::string rooted;
  rooted.reserve(root.size() + targetAbsolutePath.size());
  rooted.append(root).append(targetAbsolutePath);
  return rooted;
}

std::string SystemConfigDirectory() { return RootedPath("/etc"); }

std::string SharedFileDirectory() {
  const char* dir = std::getenv("KXTALTMPSHAREDFILEDIR");
  if (dir != nullptr && *dir != '\0') return dir;
  return RootedPath("/var/tmp/brenmar/shared");
}

std::string SharedDataDirectory() { return RootedPath("/usr/share/brenmar"); }

void CreateDirectories(const std::string& path, unsigned mode) {
  if (path.empty() || IsDirectory(path)) return;
  const std::string parent = DirectoryPart(path);
  if (!parent.empty() && parent != path) CreateDirectories(parent, mode);
  if (::mkdir(path.c_str(), mode) != 0 && errno != EEXIST) {
    KX_THROW(osdep::PosixError);
  }
}

}  // namespace kx::tal
