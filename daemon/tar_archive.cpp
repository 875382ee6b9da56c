#include "daemon/tar_archive.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "daemon/file_operations.h"
#include "daemon/status_log.h"
#include "kx/tal/file_finder.h"
#include "kx/tal/path.h"
#include "kx/tal/string_base.h"
#include "kx/tal/text_file.h"
#include "platform/no_window_external_application.h"
#include "platform/remove_dir_hierarchy.h"

namespace kx::daemon {
namespace {

std::string ReadLinkText(const std::string& path, off_t size) {
  std::string text(static_cast<size_t>(size) + 1, '\0');
  const ssize_t length = ::readlink(path.c_str(), text.data(), text.size());
  if (length < 0 || static_cast<size_t>(length) >= text.size())
    throw std::runtime_error("cannot read the link " + path);
  text.resize(static_cast<size_t>(length));
  return text;
}

// tar reads the archive through a descriptor opened here, as file_operations.h
// opens files, so that it never follows a link to it or on its way.
void RunTar(const std::string& archive, const std::string& directory) {
  struct stat info {};
  const tal::osdep::FileDescriptor opened = OpenRegularFile(archive, info);
  // A copy without close-on-exec, for tar to inherit.
  const tal::osdep::FileDescriptor inherited(::fcntl(opened.Get(), F_DUPFD, 3));
  if (!inherited.IsOpen()) throw std::system_error(errno, std::generic_category(), "cannot hand on " + archive);
  const std::string messages = directory + ".messages";
  RemoveFileIfPresent(messages);
  platform::NoWindowExternalApplication tar(tal::Utf8ToWide(messages), tal::Utf8ToWide(messages), "");
  const int status = tar.startAndComplete(
      "tar", {"-x", "-o", "-f", "/proc/self/fd/" + std::to_string(inherited.Get()), "-C", directory});
  if (status == 0) return;
  std::string reason = "exit status " + std::to_string(status);
  try {
    reason += ": " + tal::ReadWholeFile(messages);
  } catch (const std::exception&) {
    // the exit status alone must do
  }
  throw std::runtime_error("cannot unpack " + archive + " (" + reason + ")");
}

}  // namespace

std::vector<ArchiveEntry> UnpackArchive(const std::string& archive, const std::string& directory) {
  // What cannot be removed makes the unpacking below fail, with its reason.
  if (tal::PathExists(directory)) static_cast<void>(platform::RemoveDirHierarchy(directory));
  tal::CreateDirectories(directory, 0700);
  RunTar(archive, directory);

  std::vector<ArchiveEntry> entries;
  for (const std::string& path : tal::FindFiles(directory, "*", true)) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) continue;
    ArchiveEntry entry;
    entry.relativePath = path.substr(directory.size() + (directory.back() == '/' ? 0 : 1));
    entry.hostPath = path;
    entry.mode = info.st_mode & 0777;
    if (S_ISREG(info.st_mode)) {
      entry.type = ArchiveEntry::Type::kFile;
    } else if (S_ISDIR(info.st_mode)) {
      entry.type = ArchiveEntry::Type::kDirectory;
    } else if (S_ISLNK(info.st_mode)) {
      entry.type = ArchiveEntry::Type::kSymlink;
      entry.linkText = ReadLinkText(path, info.st_size);
    } else {
      ReportInfo("warning: " + archive + ": " + entry.relativePath + " is not a file, directory or link: left out");
      continue;
    }
    entries.push_back(std::move(entry));
  }
  std::sort(entries.begin(), entries.end(),
            [](const ArchiveEntry& a, const ArchiveEntry& b) { return a.relativePath < b.relativePath; });
  return entries;
}

}  // namespace kx::daemon
