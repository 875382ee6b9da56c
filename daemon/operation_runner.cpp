#include "daemon/operation_runner.h"

#include <sys/stat.h>

#include <stdexcept>

#include "daemon/rooted_target.h"
#include "ini/ini_merge.h"
#include "kx/tal/path.h"

namespace kx::daemon {
namespace {

using Kind = FileOperation::Kind;

// Merges the keys of `text` into the INI file, which keeps its mode and owner,
// every other key and its comments and blank lines. Anything but a regular
// file in its place, a link included, is refused.
void MergeIni(Transaction& transaction, const std::string& path, const std::string& text) {
  std::string current;
  FileAttributes attributes;
  struct stat info {};
  if (LStat(path, info)) {
    try {
      current = ReadRegularFile(path, info);
    } catch (const std::exception&) {
      throw std::runtime_error("cannot read the INI file " + path);
    }
    attributes = FileAttributes{static_cast<mode_t>(info.st_mode & 07777), info.st_uid, info.st_gid};
  }
  std::string merged;
  if (ini::MergeText(current, text, merged) < 0) throw std::runtime_error("cannot merge the INI text into " + path);
  transaction.WriteText(path, merged, attributes);
}

}  // namespace

void RunOperation(Transaction& transaction, const FileOperation& operation) {
  const std::string path =
      operation.targetPath.empty() ? operation.hostPath : ResolveTarget(operation.targetPath).hostPath;
  if (operation.kind == Kind::kRemove) {
    struct stat info {};
    if (LStat(path, info) && !S_ISDIR(info.st_mode)) transaction.Remove(path);
    return;
  }
  if (operation.kind == Kind::kDirectory) {
    transaction.MakeDirectories(path);
    return;
  }
  transaction.MakeDirectories(tal::DirectoryPart(path));
  switch (operation.kind) {
    case Kind::kCopy:
      transaction.CopyFile(path, operation.content, operation.attributes);
      break;
    case Kind::kSymlink:
      transaction.MakeSymlink(path, operation.content, operation.attributes.owner, operation.attributes.group);
      break;
    case Kind::kMergeIni:
      MergeIni(transaction, path, operation.content);
      break;
    case Kind::kText:
      transaction.WriteText(path, operation.content, operation.attributes);
      break;
    default:
      break;
  }
}

}  // namespace kx::daemon
