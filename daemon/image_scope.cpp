#include "daemon/image_scope.h"

#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>

#include "daemon/file_operations.h"
#include "daemon/transaction_location.h"
#include "exchange/paths.h"
#include "kx/tal/path.h"

namespace kx::daemon {
namespace {

constexpr const char* kAlwaysExcluded[] = {"proc", "sys", "dev", "tmp", "run", "var/tmp"};

}  // namespace

std::string RelativeToRoot(const std::string& localPath) {
  const std::string root = tal::CleanPath(tal::SystemRoot());
  const std::string path = tal::CleanPath(localPath);
  const std::string prefix = root == "/" ? "/" : root + "/";
  if (path.size() <= prefix.size() || path.compare(0, prefix.size(), prefix) != 0) {
    throw std::invalid_argument(localPath + " does not lie below the system root");
  }
  return path.substr(prefix.size());
}

ImageScope::ImageScope(const std::string& blacklistFile) {
  excluded_.insert(std::begin(kAlwaysExcluded), std::end(kAlwaysExcluded));
  // Both modes' action exchange and upload directories.
  for (const bool safeMode : {false, true}) {
    for (const char* name : {exchange::kExchangeDirectoryName, exchange::kUploadDirectoryName}) {
      excluded_.insert(exchange::TargetPathInExchangeBase(safeMode, name).substr(1));  // relative to the root
    }
  }
  for (const std::string& own :
       {DaemonTransactionPaths().directory, exchange::FailedInstallationMarkerPath(), exchange::CurrentActionFilePath(),
        exchange::LastActionFilePath(), exchange::InstallationStatusLogPath()}) {
    excluded_.insert(RelativeToRoot(own));
  }
  // The files behind the named mutexes and events, wherever they are put.
  try {
    excluded_.insert(RelativeToRoot(tal::SharedFileDirectory()));
  } catch (const std::invalid_argument&) {
    // outside the root: never in an image
  }
  if (blacklistFile.empty()) return;
  const std::string base = tal::CleanPath(exchange::ExchangeBase(false) + "/");
  const std::string root = tal::CleanPath(tal::SystemRoot());
  struct stat info {};
  const std::string lines = ReadRegularFile(blacklistFile, info);
  for (size_t start = 0; start < lines.size();) {
    const size_t end = std::min(lines.find('\n', start), lines.size());
    std::string line = lines.substr(start, end - start);
    start = end + 1;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    // ".." stays below the base, as it would on the controller.
    const std::string path = tal::JoinPath(base, tal::CleanPath("/" + line));
    // The root itself: nothing is in the image.
    excluded_.insert(tal::CleanPath(path) == root ? std::string() : RelativeToRoot(path));
  }
}

bool ImageScope::Excludes(std::string_view relativePath) const {
  if (excluded_.count(std::string_view()) != 0) return true;
  for (size_t end = 0; end != std::string_view::npos;) {
    end = relativePath.find('/', end + 1);
    if (excluded_.count(relativePath.substr(0, end)) != 0) return true;
  }
  return false;
}

}  // namespace kx::daemon
