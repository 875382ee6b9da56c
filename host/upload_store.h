#pragma once
// Uploaded files while their request runs, in exchange::UploadDirectory():
// beside the action exchange directory in use, so that the plug-in can move an
// upload into the current action directory with a rename.

#include <cstdint>
#include <memory>
#include <string>

#include "kx/tal/osdep/posix_io.h"

namespace kx::webhost {

// Removes upload files that a host which ended abruptly left in either mode's
// upload directory.
void RemoveLeftoverUploads();

// One upload being written. The file is removed when this object goes, unless
// the plug-in has moved it away by then.
class UploadFile {
 public:
  // Creates a new empty file (mode 0600) in `directory`, creating the directory
  // (mode 0700) when missing. Throws std::system_error.
  explicit UploadFile(const std::string& directory);
  ~UploadFile();
  UploadFile(const UploadFile&) = delete;
  UploadFile& operator=(const UploadFile&) = delete;

  // Appends; false (with errno set) when the file system refused.
  bool Write(const char* data, size_t size);
  // Closes the file; false when the last data could not be written.
  bool Close();

  const std::string& Path() const { return path_; }
  uint64_t Size() const { return size_; }

 private:
  std::string path_;
  tal::osdep::FileDescriptor descriptor_;
  uint64_t size_ = 0;
};

}  // namespace kx::webhost
