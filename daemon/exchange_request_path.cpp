#include "daemon/exchange_request_path.h"

#include <stdexcept>

#include "exchange/paths.h"
#include "kx/tal/path.h"

namespace kx::daemon {
namespace {

bool HasParentComponent(const std::string& path) {
  for (size_t start = 0; start <= path.size();) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    if (path.compare(start, end - start, "..") == 0) return true;
    start = end + 1;
  }
  return false;
}

}  // namespace

std::string LocalExchangePath(const std::string& written) {
  if (written.empty() || written.front() != '/' || HasParentComponent(written)) {
    throw std::invalid_argument("not a path in the action exchange directory: " + written);
  }
  const std::string path = tal::CleanPath(written);
  const std::string directory = exchange::ActionExchangeDirectory();
  const std::string runMode = exchange::TargetPathInExchangeBase(false, exchange::kExchangeDirectoryName);
  const std::string safeMode = exchange::TargetPathInExchangeBase(true, exchange::kExchangeDirectoryName);
  for (const std::string& prefix :
       {directory, tal::RootedPath(runMode), tal::RootedPath(safeMode), runMode, safeMode}) {
    if (path.size() > prefix.size() + 1 && path.compare(0, prefix.size() + 1, prefix + "/") == 0) {
      return directory + path.substr(prefix.size());
    }
  }
  throw std::invalid_argument("not a path in the action exchange directory: " + written);
}

}  // namespace kx::daemon
