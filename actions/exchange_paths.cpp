#include "actions/exchange_paths.h"

#include <string_view>

#include "actions/system_mode.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/file_finder.h"
#include "kx/tal/path.h"

namespace kx::actions {
namespace {

constexpr std::string_view kExchangeName = "/.syscfg-action";

std::string InConfigurationDirectory(const char* name) {
  return tal::JoinPath(ConfigurationDirectory(), name);
}

}  // namespace

std::string ExchangeBase(bool withTrailingSeparator) {
  std::string base = tal::RootedPath(IsSafeMode() ? "/mnt/userfs/" : "/");
  if (!withTrailingSeparator) base.pop_back();
  return base;
}

std::string ActionExchangeDirectory() { return ExchangeBase(false) + std::string(kExchangeName); }

std::string CurrentActionFilePath() { return InConfigurationDirectory("currentAction.xml"); }
std::string LastActionFilePath() { return InConfigurationDirectory("lastAction.xml"); }
std::string InstalledConfigurationPath() { return InConfigurationDirectory("config.cdf"); }
std::string FailedInstallationMarkerPath() { return InConfigurationDirectory("config.old"); }
std::string InstallationStatusLogPath() {
  return InConfigurationDirectory("log/installationStatus.log");
}

std::string CurrentActionDirectory() {
  try {
    const std::string exchange = ActionExchangeDirectory();
    if (!tal::PathExists(exchange)) return std::string();
    const std::vector<std::string> entries = tal::FindFiles(exchange, "*");
    if (entries.empty() || !tal::PathExists(entries.front())) return std::string();
    std::string directory = entries.front();
    if (directory.back() != '/') directory += '/';
    return directory;
  } catch (const tal::exception::Exception&) {
    return std::string();
  }
}

std::string RequestFilePath(const std::string& name) {
  const std::string directory = CurrentActionDirectory();
  return directory.empty() ? std::string() : tal::JoinPath(directory, name);
}

std::string RelativeActionDirectory() {
  std::string directory = CurrentActionDirectory();
  if (directory.empty()) return std::string();
  directory.pop_back();
  return tal::JoinPath(kExchangeName, tal::LastComponent(directory));
}

std::string HostPathToLocalPath(const std::string& hostPath, bool wantTrailingSeparator) {
  std::string local = hostPath;
  const bool absolute = !hostPath.empty() && hostPath.front() == '/';
  // Cleaned before the root goes in front, so that ".." cannot climb above it.
  if (hostPath.compare(0, kExchangeName.size(), kExchangeName) == 0) {
    local = ExchangeBase(false) + tal::CleanPath(hostPath);
  } else if (absolute && tal::SystemRoot() != "/") {
    local = tal::RootedPath(tal::CleanPath(hostPath));
  }
  if (absolute && hostPath.back() == '/' && local.back() != '/') local += '/';
  const bool endsInSeparator = !local.empty() && local.back() == '/';
  if (!wantTrailingSeparator && endsInSeparator) local.pop_back();
  if (wantTrailingSeparator && !endsInSeparator) local += '/';
  return local;
}

}  // namespace kx::actions
