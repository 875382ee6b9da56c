#include "daemon/daemon_settings.h"

#include "actions/exchange_paths.h"
#include "ini/ini_document.h"
#include "kx/tal/path.h"

namespace kx::daemon {

DaemonSettings LoadDaemonSettings() {
  ini::Document document;
  const std::string path = tal::JoinPath(actions::ConfigurationDirectory(), kSettingsFileName);
  if (tal::PathExists(path)) document.Load(path);

  std::string repository = kDefaultRepository;
  document.GetText("Repository", "Directory", repository);
  DaemonSettings settings;
  settings.repositoryDirectory = tal::RootedPath(tal::CleanPath("/" + repository));
  document.GetText("Target", "Processor", settings.processor);
  document.GetText("Target", "DeviceClass", settings.deviceClass);
  document.GetText("Target", "OS", settings.osName);
  return settings;
}

}  // namespace kx::daemon
