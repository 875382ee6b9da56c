#include "daemon/image_packer.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "daemon/below_root.h"
#include "daemon/root_walk.h"
#include "daemon/status_log.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/path.h"

namespace kx::daemon {
namespace {

constexpr size_t kChunkSize = size_t{64} * 1024;

struct ArchiveWriter {
  archive* handle = archive_write_new();
  ~ArchiveWriter() { archive_write_free(handle); }
};

struct EntryDeleter {
  void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};

[[noreturn]] void Fail(archive* handle, const std::string& what) {
  const char* reason = archive_error_string(handle);
  throw std::runtime_error(what + ": " + (reason != nullptr ? reason : "unknown error"));
}

std::string LinkText(const std::string& path, off_t size) {
  std::vector<char> text(static_cast<size_t>(size) + 1);
  const EntryBelowRoot entry = ReachBelowRoot(path);
  const ssize_t length = ::readlinkat(entry.Directory(), entry.Name(), text.data(), text.size());
  if (length < 0 || static_cast<size_t>(length) >= text.size()) {
    throw std::system_error(length < 0 ? errno : EOVERFLOW, std::generic_category(), "cannot read the link " + path);
  }
  return std::string(text.data(), static_cast<size_t>(length));
}

class Packer {
 public:
  Packer(int fd, const std::function<void(const PackProgress&)>& onProgress) : onProgress_(onProgress) {
    if (writer_.handle == nullptr || !entry_) throw std::bad_alloc();
    // The GNU format keeps names as the bytes they are (pax would translate
    // them through a locale the controller does not have) and has no limit
    // on their length; every tar reads it.
    if (archive_write_add_filter_gzip(writer_.handle) != ARCHIVE_OK ||
        archive_write_set_format_gnutar(writer_.handle) != ARCHIVE_OK ||
        archive_write_open_fd(writer_.handle, fd) != ARCHIVE_OK) {
      Fail(writer_.handle, "cannot start the image");
    }
  }

  void Add(const std::string& relativePath, const struct stat& info) {
    const std::string path = tal::JoinPath(root_, relativePath);
    if (!S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode) && !S_ISLNK(info.st_mode)) {
      ReportInfo("warning: " + path + " is not a file, directory or link: left out of the image");
      return;
    }
    archive_entry* entry = entry_.get();
    archive_entry_clear(entry);
    archive_entry_copy_pathname(entry, relativePath.c_str());
    archive_entry_set_filetype(entry, info.st_mode & S_IFMT);
    archive_entry_set_perm(entry, info.st_mode & 07777);
    archive_entry_set_uid(entry, info.st_uid);
    archive_entry_set_gid(entry, info.st_gid);
    archive_entry_set_mtime(entry, info.st_mtim.tv_sec, info.st_mtim.tv_nsec);
    archive_entry_set_size(entry, S_ISREG(info.st_mode) ? info.st_size : 0);
    if (S_ISLNK(info.st_mode)) archive_entry_copy_symlink(entry, LinkText(path, info.st_size).c_str());
    if (!S_ISREG(info.st_mode)) {
      WriteHeader(path);
      return;
    }
    // Opened before the header is written, so that an unreadable file fails
    // the image instead of leaving a hole in it.
    const tal::osdep::FileDescriptor file = OpenBelowRoot(path, O_RDONLY | O_NOCTTY);
    if (!file.IsOpen()) throw std::system_error(errno, std::generic_category(), "cannot open " + path);
    WriteHeader(path);
    CopyContent(file.Get(), static_cast<uint64_t>(info.st_size), path);
  }

  void AddToTotal(const struct stat& info) {
    if (S_ISREG(info.st_mode)) progress_.bytesTotal += static_cast<uint64_t>(info.st_size);
  }

  void Finish() {
    if (archive_write_close(writer_.handle) != ARCHIVE_OK) Fail(writer_.handle, "cannot finish the image");
  }

 private:
  void WriteHeader(const std::string& path) {
    if (archive_write_header(writer_.handle, entry_.get()) != ARCHIVE_OK) Fail(writer_.handle, "cannot pack " + path);
  }

  // Exactly the size the header announced: a file that grew meanwhile is cut,
  // one that shrank is filled up with zeros (and reported).
  void CopyContent(int fd, uint64_t size, const std::string& path) {
    for (uint64_t left = size; left > 0;) {
      const size_t wanted = left < buffer_.size() ? static_cast<size_t>(left) : buffer_.size();
      ssize_t got = tal::osdep::RetryOnInterrupt([&] { return ::read(fd, buffer_.data(), wanted); });
      if (got < 0) throw std::system_error(errno, std::generic_category(), "cannot read " + path);
      if (got == 0) {
        ReportInfo("warning: " + path + " shrank while it was packed: filled up with zeros");
        std::fill(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(wanted), '\0');
        got = static_cast<ssize_t>(wanted);
      }
      if (archive_write_data(writer_.handle, buffer_.data(), static_cast<size_t>(got)) != got) {
        Fail(writer_.handle, "cannot pack " + path);
      }
      left -= static_cast<uint64_t>(got);
      progress_.bytesDone += static_cast<uint64_t>(got);
      onProgress_(progress_);
    }
  }

  const std::string root_ = tal::CleanPath(tal::SystemRoot());
  const std::function<void(const PackProgress&)>& onProgress_;
  ArchiveWriter writer_;
  std::unique_ptr<archive_entry, EntryDeleter> entry_{archive_entry_new()};
  std::vector<char> buffer_ = std::vector<char>(kChunkSize);
  PackProgress progress_;
};

}  // namespace

void PackImage(int fd, const ImageScope& scope, const std::function<void(const PackProgress&)>& onProgress) {
  Packer packer(fd, onProgress);
  WalkRoot(scope, [&](const std::string&, const struct stat& info) { packer.AddToTotal(info); });
  WalkRoot(scope, [&](const std::string& relativePath, const struct stat& info) { packer.Add(relativePath, info); });
  packer.Finish();
}

}  // namespace kx::daemon
