#include "daemon/daemon_settings.h"

#include <cstdlib>

#include "daemon/status_log.h"
#include "exchange/paths.h"
#include "ini/ini_document.h"
#include "kx/tal/path.h"

namespace kx::daemon {

DaemonSettings LoadDaemonSettings() {
  ini::Document document;
  const std::string path = tal::JoinPath(exchange::ConfigurationDirectory(), kSettingsFileName);
  if (tal::PathExists(path) && document.Load(path) < 0) ReportError("cannot read " + path + ": the defaults apply");

  std::string repository = kDefaultRepository;
  document.GetText("Repository", "Directory", repository);
  DaemonSettings settings;
  settings.repositoryDirectory = tal::RootedPath(tal::CleanPath("/" + repository));
  document.GetText("Target", "Processor", settings.processor);
  document.GetText("Target", "DeviceClass", settings.deviceClass);
  document.GetText("Target", "OS", settings.osName);
  std::string allow;
  document.GetText("Safety", "AllowFormatAndRestoreOfRoot", allow);
  settings.allowFormatAndRestoreOfRoot = allow == "1";
  return settings;
}

bool MayChangeWholeRoot(const DaemonSettings& settings) {
  if (settings.allowFormatAndRestoreOfRoot) return true;
  // "/.", "//" and a link to "/" are "/" too.
  char* root = ::realpath(tal::SystemRoot().c_str(), nullptr);
  const bool isSlash = root == nullptr || std::string(root) == "/";
  std::free(root);
  return !isSlash;
}

}  // namespace kx::daemon
