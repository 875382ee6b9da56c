#include "host/upload_store.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "exchange/paths.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/path.h"

namespace kx::webhost {
namespace {

constexpr char kPrefix[] = "upload-";

// The process id and a counter make every name unique for the life of the
// host, so a path removed twice never hits a newer upload.
std::string NewFileTemplate(const std::string& directory) {
  static std::atomic<uint64_t> counter{0};
  return tal::JoinPath(directory, kPrefix + std::to_string(::getpid()) + "-" + std::to_string(++counter) + "-XXXXXX");
}

// Only the upload directory itself is private; missing parents get the usual mode.
void CreateDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return;
  try {
    tal::CreateDirectories(tal::DirectoryPart(path), 0755);
  } catch (const std::exception&) {
  }
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    throw std::system_error(errno, std::generic_category(), "cannot create " + path);
  }
}

}  // namespace

void RemoveLeftoverUploads() {
  for (const bool safeMode : {false, true}) {
    const std::string directory =
        tal::RootedPath(exchange::TargetPathInExchangeBase(safeMode, exchange::kUploadDirectoryName));
    DIR* listing = ::opendir(directory.c_str());
    if (listing == nullptr) continue;
    while (const dirent* entry = ::readdir(listing)) {
      if (std::string(entry->d_name).rfind(kPrefix, 0) == 0) ::unlink(tal::JoinPath(directory, entry->d_name).c_str());
    }
    ::closedir(listing);
  }
}

UploadFile::UploadFile(const std::string& directory) {
  CreateDirectory(directory);
  path_ = NewFileTemplate(directory);
  descriptor_.Reset(::mkostemp(path_.data(), O_CLOEXEC));
  if (!descriptor_.IsOpen())
    throw std::system_error(errno, std::generic_category(), "cannot create an upload file in " + directory);
}

UploadFile::~UploadFile() {
  descriptor_.Close();
  ::unlink(path_.c_str());
}

bool UploadFile::Write(const char* data, size_t size) {
  if (!tal::osdep::WriteAll(descriptor_.Get(), data, size)) return false;
  size_ += size;
  return true;
}

bool UploadFile::Close() { return descriptor_.Close() == 0; }

}  // namespace kx::webhost
