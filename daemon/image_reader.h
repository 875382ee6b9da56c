#pragma once
// Reads a system image (a gzip-compressed tar) entry by entry, as a stream.
// Each entry is checked before it is handed out; the image is refused for
//   - a path that is absolute, holds ".." or is otherwise not plain
//     ("a//b", "a/./b"; a leading "./" is allowed)
//   - a type other than directory, regular file and symbolic link: hard
//     links, devices, pipes (the daemon's images never hold them)
//   - a symbolic link without text
//   - a path or link text beyond the limits below
//   - damaged or truncated data.
// The root itself ("./") is passed over.

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <stdexcept>
#include <string>

#include "kx/tal/osdep/posix_io.h"

struct archive;

namespace kx::daemon {

// Limits of an entry, far beyond any real tree and still cheap to check and
// restore: the longest path text the kernel takes (PATH_MAX less its NUL), for
// paths and link texts; the longest name of Linux file systems (NAME_MAX); and
// a depth that real trees, a few dozen levels at most, never come near, while
// each level costs the restore a directory to check on the way.
constexpr size_t kMaxImagePathLength = 4095;
constexpr size_t kMaxImageNameLength = 255;
constexpr size_t kMaxImagePathDepth = 256;

class ImageRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ImageEntry {
  enum class Type { kDirectory, kFile, kSymlink };
  std::string relativePath;  // "etc/x"
  Type type = Type::kFile;
  mode_t mode = 0;  // permission, set-ID and sticky bits
  uid_t owner = 0;
  gid_t group = 0;
  timespec modified{};
  std::string linkText;  // kSymlink
};

// The image file, opened once for every reading of it, so that a file put in
// its place meanwhile is not seen.
class ImageFile {
 public:
  // Throws ImageRefused when the file is not a regular file or a link lies on
  // the way to it (below_root.h), std::system_error when it cannot be opened.
  explicit ImageFile(const std::string& path);

  int Descriptor() const { return file_.Get(); }
  uint64_t Size() const { return size_; }

 private:
  tal::osdep::FileDescriptor file_;
  uint64_t size_ = 0;
};

// One reading of the image from its start.
class ImageReader {
 public:
  // Throws ImageRefused when the file is no gzip-compressed tar.
  explicit ImageReader(const ImageFile& file);
  ~ImageReader();
  ImageReader(const ImageReader&) = delete;
  ImageReader& operator=(const ImageReader&) = delete;

  // The next entry; false at the end. Content not read is skipped (and still
  // checked). Throws ImageRefused.
  bool Next(ImageEntry& entry);
  // Writes the content of the current file entry to `fd`. Throws
  // ImageRefused for damaged data, std::system_error when writing fails.
  void CopyContentTo(int fd);

  // How much of the image file has been read, 0 to 100.
  int PercentRead() const;

 private:
  uint64_t fileSize_ = 0;
  archive* reader_ = nullptr;
};

}  // namespace kx::daemon
