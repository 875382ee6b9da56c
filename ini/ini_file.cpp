// Document::Load, WriteToStream and ChangedOnDisk: moving a document between
// memory and files other than by a full save (see ini_save.cpp).

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>

#include "ini/ini_document.h"
#include "ini/ini_parser.h"
#include "ini/ini_writer.h"

namespace kx::ini {
namespace {

struct FileCloser {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};

int ReadAll(std::FILE* stream, std::string& text) {
  char buffer[65536];
  size_t got = 0;
  while ((got = std::fread(buffer, 1, sizeof buffer, stream)) > 0) text.append(buffer, got);
  return std::ferror(stream) != 0 ? kErrorUnreadable : kOk;
}

// errno values that have a code of their own; anything else becomes `fallback`.
int CodeForErrno(int error, int fallback) {
  switch (error) {
    case ENOMEM:
    case EACCES:
    case EINVAL:
    case ENOSPC:
      return -error;
    default:
      return fallback;
  }
}

}  // namespace

int Document::Load(const std::string& path) {
  if (path.empty() || path.size() > kMaxFileName) return kErrorInvalid;
  std::unique_ptr<std::FILE, FileCloser> stream(std::fopen(path.c_str(), "rbe"));
  struct stat status {};
  if (!stream) return ::stat(path.c_str(), &status) == 0 ? kErrorUnreadable : kErrorInvalid;
  const uint32_t stamp = ::fstat(fileno(stream.get()), &status) == 0 ? static_cast<uint32_t>(status.st_mtime) : 0;
  try {
    std::string text;
    int result = ReadAll(stream.get(), text);
    if (result < 0) return result;
    // Parsed apart from this document, so a failure leaves it as it was.
    Document parsed(options_);
    result = ParseText(text, parsed);
    if (result < 0) return result;
    sections_ = std::move(parsed.sections_);
    trailingComments_ = std::move(parsed.trailingComments_);
    sectionIndex_ = std::move(parsed.sectionIndex_);
    keyIndex_ = std::move(parsed.keyIndex_);
    fileName_ = path;
    stamp_ = stamp;
    return result;
  } catch (const std::bad_alloc&) {
    return kErrorNoMemory;
  }
}

int Document::WriteToStream(std::FILE* stream, long length) {
  if (stream == nullptr) return kErrorInvalid;
  if ((options_ & kOptionSafeSave) != 0) return kErrorNotPossible;
  if (length == 0) {
    std::fflush(stream);  // nothing buffered may land after the truncation
    if (::ftruncate(fileno(stream), 0) != 0) return CodeForErrno(errno, kErrorNotPossible);
    if (std::fseek(stream, 0, SEEK_SET) != 0) return kErrorNotPossible;
  }
  return WriteDocument(*this, stream);
}

int Document::ChangedOnDisk() const {
  if (fileName_.empty()) return kErrorNoFileName;
  struct stat status {};
  if (::stat(fileName_.c_str(), &status) != 0) return kErrorInvalid;
  return static_cast<uint32_t>(status.st_mtime) != stamp_ ? 1 : 0;
}

}  // namespace kx::ini
