#include "daemon/image_reader.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <string_view>
#include <system_error>

#include "daemon/below_root.h"
#include "kx/tal/osdep/posix_io.h"

namespace kx::daemon {
namespace {

constexpr size_t kBlockSize = size_t{64} * 1024;

// "a/b", "./a/b", "a/b/" (a directory) are plain; "" is the root.
bool PlainRelativePath(std::string_view path, std::string& relative) {
  while (path.substr(0, 2) == "./") path.remove_prefix(2);
  if (path == ".") path = "";
  if (!path.empty() && path.back() == '/') path.remove_suffix(1);
  if (!path.empty() && path.front() == '/') return false;
  for (size_t start = 0; start < path.size();) {
    size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    const std::string_view part = path.substr(start, end - start);
    if (part.empty() || part == "." || part == "..") return false;
    start = end + 1;
  }
  relative.assign(path);
  return true;
}

// Why a plain path is beyond the limits, or "".
std::string BeyondLimits(const std::string& path) {
  if (path.size() > kMaxImagePathLength) return "a path longer than " + std::to_string(kMaxImagePathLength) + " bytes";
  size_t depth = 0;
  for (size_t start = 0; start < path.size(); ++depth) {
    const size_t end = std::min(path.find('/', start), path.size());
    if (end - start > kMaxImageNameLength) {
      return "a name longer than " + std::to_string(kMaxImageNameLength) + " bytes";
    }
    start = end + 1;
  }
  if (depth > kMaxImagePathDepth) return "a path deeper than " + std::to_string(kMaxImagePathDepth) + " levels";
  return "";
}

// A name for messages: a hostile one may be megabytes long.
std::string Shown(const char* name) {
  constexpr size_t kShownLength = 200;
  if (name == nullptr) return "(no name)";
  const std::string_view text(name);
  return text.size() <= kShownLength ? std::string(text) : std::string(text.substr(0, kShownLength)) + "...";
}

std::string Reason(archive* reader) {
  const char* text = archive_error_string(reader);
  return text != nullptr ? text : "unknown error";
}

}  // namespace

// Opened without blocking, so that a FIFO in the image's place is refused, not waited on.
ImageFile::ImageFile(const std::string& path) : file_(OpenBelowRoot(path, O_RDONLY | O_NOCTTY | O_NONBLOCK)) {
  struct stat info {};
  if (!file_.IsOpen() && errno == ELOOP) throw ImageRefused("a symbolic link lies on the way to the image " + path);
  if (!file_.IsOpen() && errno == EXDEV) throw ImageRefused("the image " + path + " is not below the system root");
  if (!file_.IsOpen() || ::fstat(file_.Get(), &info) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot open the image " + path);
  }
  if (!S_ISREG(info.st_mode)) throw ImageRefused(path + " is not a regular file");
  size_ = static_cast<uint64_t>(info.st_size);
}

ImageReader::ImageReader(const ImageFile& file) : fileSize_(file.Size()), reader_(archive_read_new()) {
  if (reader_ == nullptr) throw std::bad_alloc();
  if (::lseek(file.Descriptor(), 0, SEEK_SET) != 0 || archive_read_support_filter_gzip(reader_) != ARCHIVE_OK ||
      archive_read_support_format_tar(reader_) != ARCHIVE_OK ||
      archive_read_open_fd(reader_, file.Descriptor(), kBlockSize) != ARCHIVE_OK ||
      archive_filter_code(reader_, 0) != ARCHIVE_FILTER_GZIP) {
    const std::string reason = archive_error_string(reader_) != nullptr ? Reason(reader_) : "not gzip-compressed";
    archive_read_free(reader_);
    throw ImageRefused("no system image: " + reason);
  }
}

// Closing the reader leaves the descriptor open: it is the ImageFile's.
ImageReader::~ImageReader() { archive_read_free(reader_); }

bool ImageReader::Next(ImageEntry& entry) {
  for (;;) {
    archive_entry* header = nullptr;
    const int status = archive_read_next_header(reader_, &header);
    if (status == ARCHIVE_EOF) return false;
    if (status != ARCHIVE_OK && status != ARCHIVE_WARN) {
      throw ImageRefused("the image is damaged: " + Reason(reader_));
    }
    const char* name = archive_entry_pathname(header);
    const std::string shown = Shown(name);
    if (name == nullptr || !PlainRelativePath(name, entry.relativePath)) {
      throw ImageRefused("the image holds an entry outside the root: " + shown);
    }
    const std::string beyond = BeyondLimits(entry.relativePath);
    if (!beyond.empty()) throw ImageRefused("the image holds " + beyond + ": " + shown);
    if (archive_entry_hardlink(header) != nullptr) throw ImageRefused("the image holds a hard link: " + shown);
    switch (archive_entry_filetype(header)) {
      case AE_IFDIR:
        entry.type = ImageEntry::Type::kDirectory;
        break;
      case AE_IFREG:
        entry.type = ImageEntry::Type::kFile;
        break;
      case AE_IFLNK:
        entry.type = ImageEntry::Type::kSymlink;
        break;
      default:
        throw ImageRefused("the image holds a device, pipe or socket: " + shown);
    }
    if (entry.relativePath.empty()) continue;  // the root itself keeps what it has
    entry.mode = archive_entry_perm(header) & 07777;
    entry.owner = static_cast<uid_t>(archive_entry_uid(header));
    entry.group = static_cast<gid_t>(archive_entry_gid(header));
    entry.modified = timespec{archive_entry_mtime(header), archive_entry_mtime_nsec(header)};
    const char* link = archive_entry_symlink(header);
    entry.linkText = link != nullptr ? link : "";
    if (entry.type == ImageEntry::Type::kSymlink && entry.linkText.empty()) {
      throw ImageRefused("the image holds a link without a target: " + shown);
    }
    if (entry.linkText.size() > kMaxImagePathLength) {
      throw ImageRefused("the image holds a link text longer than " + std::to_string(kMaxImagePathLength) +
                         " bytes: " + shown);
    }
    return true;
  }
}

void ImageReader::CopyContentTo(int fd) {
  char buffer[kBlockSize];
  for (;;) {
    const la_ssize_t got = archive_read_data(reader_, buffer, sizeof buffer);
    if (got == 0) return;
    if (got < 0) throw ImageRefused("the image is damaged: " + Reason(reader_));
    if (!tal::osdep::WriteAll(fd, buffer, static_cast<size_t>(got))) {
      throw std::system_error(errno, std::generic_category(), "cannot write");
    }
  }
}

int ImageReader::PercentRead() const {
  if (fileSize_ == 0) return 100;
  const int64_t read = archive_filter_bytes(reader_, -1);
  return read <= 0 ? 0 : static_cast<int>(std::min<uint64_t>(100, static_cast<uint64_t>(read) * 100 / fileSize_));
}

}  // namespace kx::daemon
