#include "daemon/operation_runner.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "daemon/rooted_target.h"
#include "ini/ini_document.h"
#include "ini/ini_parser.h"
#include "ini/ini_writer.h"
#include "kx/tal/path.h"

namespace kx::daemon {
namespace {

using Kind = FileOperation::Kind;

std::string Render(const ini::Document& document, const std::string& path) {
  char* buffer = nullptr;
  size_t size = 0;
  FILE* stream = ::open_memstream(&buffer, &size);
  if (stream == nullptr) throw std::runtime_error("cannot render " + path);
  const int result = ini::WriteDocument(document, stream);
  std::fclose(stream);
  std::string text(buffer, size);
  std::free(buffer);
  if (result < 0) throw std::runtime_error("cannot render " + path);
  return text;
}

// Merges the keys of `text` into the INI file, which keeps its mode and owner.
void MergeIni(Transaction& transaction, const std::string& path, const std::string& text) {
  ini::Document document;
  FileAttributes attributes;
  struct stat info {};
  if (LStat(path, info)) {
    if (document.Load(path) < 0) throw std::runtime_error("cannot read the INI file " + path);
    attributes = FileAttributes{static_cast<mode_t>(info.st_mode & 07777), info.st_uid, info.st_gid};
  }
  ini::Document merge;
  if (ini::ParseText(text, merge) < 0) throw std::runtime_error("cannot read the INI text for " + path);
  for (const ini::Section& section : merge.Sections()) {
    for (const ini::Key& key : section.keys) {
      if (document.SetText(section.name, key.name, key.value, key.quote) < 0) {
        throw std::runtime_error("cannot set " + section.name + "/" + key.name + " in " + path);
      }
    }
  }
  transaction.WriteText(path, Render(document, path), attributes);
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
