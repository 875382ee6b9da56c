#include "exchange/paths.h"

#include <string_view>

#include "kx/tal/exception/exception.h"
#include "kx/tal/file_finder.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/path.h"

namespace kx::exchange {
namespace {

// The action exchange directory as the remote host names it.
constexpr std::string_view kExchangeName = "/.syscfg-action";
constexpr char kInstallMode[] = "Install Mode";

std::string InConfigurationDirectory(const char* name) { return tal::JoinPath(ConfigurationDirectory(), name); }

}  // namespace

std::string SafeModeMarkerPath() { return tal::RootedPath("/etc/brenmar/safemode"); }

std::string SystemStatePath() { return tal::RootedPath("/tmp/kx_system_state"); }

bool IsSafeMode() { return tal::PathExists(SafeModeMarkerPath()); }

bool IsInstallMode() {
  // The file lies in a directory every user can write to: read only a regular
  // file, and no more than the comparison needs.
  return tal::osdep::ReadSmallRegularFile(SystemStatePath(), sizeof kInstallMode - 1) == kInstallMode;
}

std::string ConfigurationDirectory() { return tal::RootedPath("/etc/brenmar/share"); }

std::string TargetPathInExchangeBase(bool safeMode, std::string_view name) {
  return (safeMode ? std::string(kUserFileSystem) + "/" : std::string("/")).append(name);
}

std::string ExchangeBase(bool withTrailingSeparator) {
  std::string base = tal::RootedPath(TargetPathInExchangeBase(IsSafeMode(), ""));
  if (!withTrailingSeparator) base.pop_back();
  return base;
}

std::string ActionExchangeDirectory() { return ExchangeBase(false) + std::string(kExchangeName); }

std::string UploadDirectory() { return ExchangeBase(true) + kUploadDirectoryName; }

std::string CurrentActionFilePath() { return InConfigurationDirectory(kCurrentActionFileName); }
std::string LastActionFilePath() { return InConfigurationDirectory(kLastActionFileName); }
std::string InstalledConfigurationPath() { return InConfigurationDirectory("config.cdf"); }
std::string FailedInstallationMarkerPath() { return InConfigurationDirectory("config.old"); }
std::string InstallationStatusLogPath() { return InConfigurationDirectory("log/installationStatus.log"); }

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

}  // namespace kx::exchange
