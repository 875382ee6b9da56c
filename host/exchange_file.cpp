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

// Opens the image one directory at a time, no link followed; -1 when it is not
// a regular file there.
int OpenImage(const std::string& actionDirectory, uint64_t& size) {
  const int exchangeDirectory =
      ::open(exchange::ActionExchangeDirectory().c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (exchangeDirectory < 0) return -1;
  const int action =
      ::openat(exchangeDirectory, actionDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  ::close(exchangeDirectory);
  if (action < 0) return -1;
  const int image = ::openat(action, exchange::kSystemImageName, O_RDONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
  ::close(action);
  struct stat info {};
  if (image >= 0 && ::fstat(image, &info) == 0 && S_ISREG(info.st_mode)) {
    size = static_cast<uint64_t>(info.st_size);
    return image;
  }
  if (image >= 0) ::close(image);
  return -1;
}

}  // namespace

MHD_Result QueueExchangeFile(MHD_Connection* connection, const std::string& urlPath) {
  const std::optional<std::string> actionDirectory = ActionDirectoryOf(urlPath.substr(sizeof kExchangeFilePrefix - 1));
  uint64_t size = 0;
  const int image = actionDirectory ? OpenImage(*actionDirectory, size) : -1;
  if (image < 0) return QueueTextReply(connection, MHD_HTTP_NOT_FOUND, "no such file\n");

  const ByteRange range =
      ParseByteRange(MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_RANGE), size);
  if (range.kind == ByteRange::Kind::kUnsatisfiable) {
    ::close(image);
    const std::string contentRange = "bytes */" + std::to_string(size);
    return QueueTextReply(connection, MHD_HTTP_RANGE_NOT_SATISFIABLE, "range not satisfiable\n",
                          MHD_HTTP_HEADER_CONTENT_RANGE, contentRange.c_str());
  }
  const bool part = range.kind == ByteRange::Kind::kPart;
  const uint64_t first = part ? range.first : 0;
  const uint64_t length = part ? range.last - range.first + 1 : size;
  // The response owns the descriptor from here on.
  MHD_Response* response = MHD_create_response_from_fd_at_offset64(length, image, first);
  if (response == nullptr) {
    ::close(image);
    return MHD_NO;
  }
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "application/gzip");
  MHD_add_response_header(response, MHD_HTTP_HEADER_ACCEPT_RANGES, "bytes");
  if (part) {
    const std::string contentRange =
        "bytes " + std::to_string(range.first) + "-" + std::to_string(range.last) + "/" + std::to_string(size);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_RANGE, contentRange.c_str());
  }
  const MHD_Result queued = MHD_queue_response(connection, part ? MHD_HTTP_PARTIAL_CONTENT : MHD_HTTP_OK, response);
  MHD_destroy_response(response);
  return queued;
}

}  // namespace kx::webhost
