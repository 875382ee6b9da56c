#include "host/exchange_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

#include "exchange/action_directory_name.h"
#include "exchange/paths.h"
#include "exchange/request_files.h"
#include "host/byte_range.h"
#include "host/text_reply.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/path.h"

namespace kx::webhost {
namespace {

// "<exchange>/<action directory>/SystemImage.tgz" → the action directory's name.
std::optional<std::string> ActionDirectoryOf(const std::string& path) {
  const std::string prefix = std::string(exchange::kExchangeDirectoryName) + "/";
  const std::string image = std::string("/") + exchange::kSystemImageName;
  if (path.size() <= prefix.size() + image.size() || path.compare(0, prefix.size(), prefix) != 0 ||
      path.compare(path.size() - image.size(), image.size(), image) != 0) {
    return std::nullopt;
  }
  std::string directory = path.substr(prefix.size(), path.size() - prefix.size() - image.size());
  if (!exchange::IsActionDirectoryName(directory)) return std::nullopt;
  return directory;
}

// Opens the image one directory at a time, no link followed, and never blocks
// on a FIFO put in its place; not open when it is not a regular file there.
tal::osdep::FileDescriptor OpenImage(const std::string& actionDirectory, uint64_t& size) {
  using tal::osdep::OpenAt;
  const tal::osdep::FileDescriptor exchangeDirectory =
      tal::osdep::Open(exchange::ActionExchangeDirectory(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  if (!exchangeDirectory.IsOpen()) return {};
  const tal::osdep::FileDescriptor action =
      OpenAt(exchangeDirectory.Get(), actionDirectory, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  if (!action.IsOpen()) return {};
  tal::osdep::FileDescriptor image =
      OpenAt(action.Get(), exchange::kSystemImageName, O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK);
  struct stat info {};
  if (!image.IsOpen() || ::fstat(image.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
  size = static_cast<uint64_t>(info.st_size);
  return image;
}

}  // namespace

MHD_Result QueueExchangeFile(MHD_Connection* connection, const std::string& urlPath, unsigned& status) {
  const std::optional<std::string> actionDirectory = ActionDirectoryOf(urlPath.substr(sizeof kExchangeFilePrefix - 1));
  uint64_t size = 0;
  tal::osdep::FileDescriptor image = actionDirectory ? OpenImage(*actionDirectory, size) : tal::osdep::FileDescriptor();
  if (!image.IsOpen()) return QueueTextReply(connection, status = MHD_HTTP_NOT_FOUND, "no such file\n");

  const ByteRange range =
      ParseByteRange(MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_RANGE), size);
  if (range.kind == ByteRange::Kind::kUnsatisfiable) {
    const std::string contentRange = "bytes */" + std::to_string(size);
    return QueueTextReply(connection, status = MHD_HTTP_RANGE_NOT_SATISFIABLE, "range not satisfiable\n",
                          MHD_HTTP_HEADER_CONTENT_RANGE, contentRange.c_str());
  }
  const bool part = range.kind == ByteRange::Kind::kPart;
  const uint64_t first = part ? range.first : 0;
  const uint64_t length = part ? range.last - range.first + 1 : size;
  MHD_Response* response = MHD_create_response_from_fd_at_offset64(length, image.Get(), first);
  status = MHD_HTTP_INTERNAL_SERVER_ERROR;
  if (response == nullptr) return MHD_NO;
  image.Release();  // the response closes it
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "application/gzip");
  MHD_add_response_header(response, MHD_HTTP_HEADER_ACCEPT_RANGES, "bytes");
  if (part) {
    const std::string contentRange =
        "bytes " + std::to_string(range.first) + "-" + std::to_string(range.last) + "/" + std::to_string(size);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_RANGE, contentRange.c_str());
  }
  status = part ? MHD_HTTP_PARTIAL_CONTENT : MHD_HTTP_OK;
  const MHD_Result queued = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return queued;
}

}  // namespace kx::webhost
