// Document::Save: writing a document to a path, with the safe save that writes a
// temporary file and renames it over the target so that the target is never
// seen half-written.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <new>

#include "ini/ini_document.h"
#include "ini/ini_test_hook.h"
#include "ini/ini_writer.h"
#include "kx/tal/osdep/posix_io.h"

namespace kx::ini {
namespace {

SafeSaveHook safeSaveHook = nullptr;

bool PathExists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

// Opening the target for update, or creating and removing it, shows that the
// rename will be allowed before any temporary file is made.
bool CanWriteTarget(const std::string& target) {
  const bool existed = PathExists(target);
  std::FILE* probe = std::fopen(target.c_str(), existed ? "r+be" : "wbe");
  if (probe == nullptr) return false;
  std::fclose(probe);
  if (!existed) std::remove(target.c_str());
  return true;
}

// "config.ini" -> "config.TMP"; "config.TMP" -> "config.TMP.TMP"; "config" -> "config.TMP".
std::string FixedTemporaryPath(const std::string& target) {
  const size_t slash = target.rfind('/');
  const size_t dot = target.rfind('.');
  const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash);
  if (hasExtension && target.compare(dot + 1, std::string::npos, "TMP") != 0) {
    return target.substr(0, dot + 1) + "TMP";
  }
  return target + ".TMP";
}

// "<directory of target>/ini$$.TMPXXXXXX" made unique by mkstemp.
int CreateUniqueTemporary(const std::string& target, std::string& temporary) {
  const size_t slash = target.rfind('/');
  temporary = (slash == std::string::npos ? std::string() : target.substr(0, slash + 1)) + "ini$$.TMPXXXXXX";
  if (!kx::tal::osdep::FileDescriptor(::mkstemp(temporary.data())).IsOpen()) return kErrorNoTemporary;
  ::chmod(temporary.c_str(), 0644);
  return kOk;
}

// The new file takes over the old one's owner, group and permission bits. Done
// on the temporary file before the rename, so the target never shows other ones.
// Best effort: an unprivileged caller cannot give a file away.
void CopyOwnerAndMode(const std::string& from, const std::string& to) {
  struct stat status {};
  if (::stat(from.c_str(), &status) != 0) return;
  const int ownerResult = ::chown(to.c_str(), status.st_uid, status.st_gid);
  static_cast<void>(ownerResult);
  ::chmod(to.c_str(), status.st_mode & 07777);  // after chown, which may clear set-id bits
}

int WriteFile(const Document& document, const std::string& path, bool sync) {
  std::FILE* stream = std::fopen(path.c_str(), "wbe");
  if (stream == nullptr) return kErrorCannotCreate;
  int result = WriteDocument(document, stream);
  if (result >= 0 && sync && (std::fflush(stream) != 0 || ::fsync(fileno(stream)) != 0)) {
    result = kErrorWriteFailed;
  }
  if (std::fclose(stream) != 0 && result >= 0) result = kErrorWriteFailed;
  // A failed plain save removes the target itself: it was truncated already.
  if (result < 0) std::remove(path.c_str());
  return result;
}

}  // namespace

void SetSafeSaveHookForTesting(SafeSaveHook hook) { safeSaveHook = hook; }

int Document::Save(const std::string& path) {
  if (path.empty() || path.size() > kMaxFileName) return kErrorInvalid;
  const bool sync = (options_ & kOptionSync) != 0;
  try {
    if ((options_ & kOptionSafeSave) == 0) {
      const int result = WriteFile(*this, path, sync);
      if (result < 0) return result;
      RecordFile(path);
      return result;
    }

    if (!CanWriteTarget(path)) return kErrorNotWritable;
    std::string temporary;
    if ((options_ & kOptionUniqueTemporary) != 0) {
      const int created = CreateUniqueTemporary(path, temporary);
      if (created < 0) return created;
    } else {
      temporary = FixedTemporaryPath(path);
    }
    const int result = WriteFile(*this, temporary, sync);
    if (result < 0) {
      std::remove(temporary.c_str());  // mkstemp made it even when the open failed
      return result;
    }
    if (safeSaveHook != nullptr) safeSaveHook(temporary.c_str());
    if (PathExists(path)) CopyOwnerAndMode(path, temporary);
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
      std::remove(temporary.c_str());
      return kErrorNotWritable;
    }
    RecordFile(path);
    return result;
  } catch (const std::bad_alloc&) {
    return kErrorNoMemory;
  }
}

void Document::RecordFile(const std::string& path) {
  struct stat status {};
  stamp_ = ::stat(path.c_str(), &status) == 0 ? static_cast<uint32_t>(status.st_mtime) : 0;
  fileName_ = path;
}

}  // namespace kx::ini
