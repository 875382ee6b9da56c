#include "kx/tal/file_finder.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "kx/tal/exception/os_exception.h"
#include "kx/tal/path.h"

namespace kx::tal {
namespace {

struct DirCloser {
  void operator()(DIR* dir) const { ::closedir(dir); }
};

struct Entry {
  std::string name;
  bool isDirectory;
};

std::vector<Entry> SortedEntries(const std::string& directory) {
  std::unique_ptr<DIR, DirCloser> dir(::opendir(directory.c_str()));
  if (!dir) KX_THROW(osdep::PosixError);
  std::vector<Entry> entries;
  errno = 0;
  while (const dirent* item = ::readdir(dir.get())) {
    const std::string name = item->d_name;
    if (name == "." || name == "..") continue;
    bool isDirectory = item->d_type == DT_DIR;
    if (item->d_type == DT_UNKNOWN) {
      struct stat info;  // lstat: a link to a directory is not descended into
      isDirectory = ::lstat(JoinPath(directory, name).c_str(), &info) == 0 && S_ISDIR(info.st_mode);
    }
    entries.push_back({name, isDirectory});
  }
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return entries;
}

void Collect(const std::string& directory, const std::string& pattern, bool recurse, std::vector<std::string>& found) {
  for (const Entry& entry : SortedEntries(directory)) {
    const std::string path = JoinPath(directory, entry.name);
    if (recurse && entry.isDirectory) Collect(path, pattern, recurse, found);
    if (::fnmatch(pattern.c_str(), entry.name.c_str(), 0) == 0) found.push_back(path);
  }
}

}  // namespace

std::vector<std::string> FindFiles(const std::string& directory, const std::string& pattern,
                                   bool includeSubdirectories) {
  std::vector<std::string> found;
  Collect(directory, pattern, includeSubdirectories, found);
  return found;
}

}  // namespace kx::tal
