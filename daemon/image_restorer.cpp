#include "daemon/image_restorer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>
#include <vector>

#include "daemon/below_root.h"
#include "daemon/root_walk.h"
#include "daemon/status_log.h"
#include "kx/tal/path.h"

namespace kx::daemon {
namespace {

using Type = ImageEntry::Type;

class Restorer {
 public:
  Restorer(const ImageScope& scope, Transaction& transaction) : scope_(scope), transaction_(transaction) {}

  void Restore(const ImageEntry& entry, ImageReader& reader) {
    if (scope_.Excludes(entry.relativePath)) return;
    const std::string path = HostPath(entry.relativePath);
    MakeWayTo(entry.relativePath);
    struct stat info {};
    const bool exists = LStat(path, info);
    const bool isDirectory = exists && S_ISDIR(info.st_mode);
    const FileAttributes attributes = AttributesOf(entry);
    switch (entry.type) {
      case Type::kDirectory:
        if (exists && !isDirectory) transaction_.Remove(path);
        if (!isDirectory) transaction_.MakeDirectories(path);
        transaction_.SetDirectoryAttributes(path, attributes);
        directoryTimes_.emplace_back(path, entry.modified);
        break;
      case Type::kFile:
        if (isDirectory) RemoveTree(entry.relativePath);
        transaction_.WriteFile(
            path, [&](int fd) { reader.CopyContentTo(fd); }, attributes);
        break;
      case Type::kSymlink:
        if (isDirectory) RemoveTree(entry.relativePath);
        transaction_.MakeSymlink(path, entry.linkText, attributes.owner, attributes.group);
        break;
    }
  }

  // Last, since every entry made in a directory changes its time. Not part of
  // the transaction: a time alone is nothing to roll back.
  void SetDirectoryTimes() {
    for (const auto& [path, modified] : directoryTimes_) {
      const timespec times[2] = {{0, UTIME_OMIT}, modified};
      const EntryBelowRoot entry(path);
      if (!entry.IsOpen() || ::utimensat(entry.Directory(), entry.Name(), times, AT_SYMLINK_NOFOLLOW) != 0) {
        ReportInfo("warning: cannot set the time of " + path);
      }
    }
  }

 private:
  std::string HostPath(const std::string& relativePath) const { return tal::JoinPath(root_, relativePath); }

  FileAttributes AttributesOf(const ImageEntry& entry) const {
    FileAttributes attributes;
    attributes.mode = entry.mode;
    if (asRoot_) {
      attributes.owner = entry.owner;
      attributes.group = entry.group;
    }
    attributes.modified = entry.modified;
    return attributes;
  }

  // Every directory on the way to the entry is a real directory afterwards.
  void MakeWayTo(const std::string& relativePath) {
    const std::string parent = relativePath.substr(0, relativePath.rfind('/') + 1);
    if (parent.empty() || parent == preparedParent_) return;
    for (size_t slash = parent.find('/'); slash != std::string::npos; slash = parent.find('/', slash + 1)) {
      const std::string path = HostPath(parent.substr(0, slash));
      struct stat info {};
      if (!LStat(path, info)) {
        transaction_.MakeDirectories(HostPath(parent));
        break;
      }
      if (S_ISDIR(info.st_mode)) continue;
      transaction_.Remove(path);
      transaction_.MakeDirectories(path);
    }
    preparedParent_ = parent;
  }

  // Deepest first, each entry saved by the transaction.
  void RemoveTree(const std::string& relativePath) {
    const std::string path = HostPath(relativePath);
    for (const std::string& name : DirectoryNames(path)) {
      const std::string child = relativePath + "/" + name;
      if (scope_.Excludes(child)) {
        throw std::runtime_error("cannot replace the directory " + path + ": it holds " + child + ", which stays");
      }
      struct stat info {};
      if (!LStat(HostPath(child), info)) continue;
      if (S_ISDIR(info.st_mode)) {
        RemoveTree(child);
      } else {
        transaction_.Remove(HostPath(child));
      }
    }
    transaction_.RemoveDirectory(path);
    preparedParent_.clear();
  }

  const std::string root_ = tal::CleanPath(tal::SystemRoot());
  const bool asRoot_ = ::geteuid() == 0;
  const ImageScope& scope_;
  Transaction& transaction_;
  std::string preparedParent_;  // with its trailing "/"
  std::vector<std::pair<std::string, timespec>> directoryTimes_;
};

}  // namespace

void RestoreImage(const ImageFile& image, const ImageScope& scope, Transaction& transaction,
                  const std::function<void(int percent)>& onProgress) {
  Restorer restorer(scope, transaction);
  ImageReader reader(image);
  for (ImageEntry entry; reader.Next(entry);) {
    restorer.Restore(entry, reader);
    onProgress(reader.PercentRead());
  }
  restorer.SetDirectoryTimes();
}

}  // namespace kx::daemon
