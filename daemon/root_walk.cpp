#include "daemon/root_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include "daemon/below_root.h"
#include "kx/tal/path.h"

namespace kx::daemon {

using Visit = std::function<void(const std::string&, const struct stat&)>;

// Sorted, so that an image is the same for the same tree.
std::vector<std::string> DirectoryNames(const std::string& directory) {
  tal::osdep::FileDescriptor opened = OpenBelowRoot(directory, O_RDONLY | O_DIRECTORY);
  DIR* stream = opened.IsOpen() ? ::fdopendir(opened.Get()) : nullptr;
  if (stream == nullptr) throw std::system_error(errno, std::generic_category(), "cannot read " + directory);
  static_cast<void>(opened.Release());  // closedir closes it
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = ::readdir(stream)) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
      names.emplace_back(entry->d_name);
  }
  const int error = errno;
  ::closedir(stream);
  if (error != 0) throw std::system_error(error, std::generic_category(), "cannot read " + directory);
  std::sort(names.begin(), names.end());
  return names;
}

namespace {

// Only one directory's names are held per level of depth.
void WalkDirectory(const std::string& root, const std::string& relativeDirectory, const ImageScope& scope,
                   const Visit& visit) {
  const std::string directory = relativeDirectory.empty() ? root : tal::JoinPath(root, relativeDirectory);
  for (const std::string& name : DirectoryNames(directory)) {
    const std::string relative = relativeDirectory.empty() ? name : relativeDirectory + "/" + name;
    if (scope.Excludes(relative)) continue;
    struct stat info {};
    const std::string path = tal::JoinPath(root, relative);
    const EntryBelowRoot entry(path);
    if (!entry.IsOpen() || ::fstatat(entry.Directory(), entry.Name(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) continue;  // gone meanwhile
      throw std::system_error(errno, std::generic_category(), "cannot examine " + path);
    }
    visit(relative, info);
    if (S_ISDIR(info.st_mode)) WalkDirectory(root, relative, scope, visit);
  }
}

}  // namespace

void WalkRoot(const ImageScope& scope, const Visit& visit) {
  WalkDirectory(tal::CleanPath(tal::SystemRoot()), "", scope, visit);
}

}  // namespace kx::daemon
