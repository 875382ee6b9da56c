#pragma once
// The daemon's settings: the optional INI file "kxsid.ini" of the configuration
// directory, read for every request so that a change needs no restart.
//
//   [Repository]
//   Directory=/var/local/kx/repository   the local software repository (a path
//                                        of the controller, below the root)
//   [Target]                             what this controller is, matched against
//   Processor=                           the PROCESSOR, DEVICECLASS and OS
//   DeviceClass=                         conditions of a package; an empty value
//   OS=                                  matches every package

#include <string>

namespace kx::daemon {

constexpr char kSettingsFileName[] = "kxsid.ini";
constexpr char kDefaultRepository[] = "/var/local/kx/repository";

struct DaemonSettings {
  std::string repositoryDirectory;  // host path
  std::string processor;
  std::string deviceClass;
  std::string osName;
};

// Missing file or keys give the defaults.
DaemonSettings LoadDaemonSettings();

}  // namespace kx::daemon
