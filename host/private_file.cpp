#include "host/private_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/path.h"

namespace kx::webhost {

void WritePrivateFile(const std::string& path, const std::string& text) {
  using tal::osdep::FileDescriptor;
  const std::string temporary = path + ".tmp";
  const auto fail = [&](const char* step) {
    const int error = errno;
    ::unlink(temporary.c_str());
    throw std::runtime_error("cannot " + std::string(step) + " " + path + ": " + std::strerror(error));
  };
  FileDescriptor file = tal::osdep::Open(temporary, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0600);
  if (!file.IsOpen()) fail("create");
  if (::fchmod(file.Get(), 0600) != 0 || !tal::osdep::WriteAll(file.Get(), text.data(), text.size()) ||
      ::fsync(file.Get()) != 0 || file.Close() != 0) {
    fail("write");
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) fail("replace");
  const FileDescriptor directory = tal::osdep::Open(tal::DirectoryPart(path), O_RDONLY | O_DIRECTORY);
  if (directory.IsOpen()) ::fsync(directory.Get());
}

}  // namespace kx::webhost
