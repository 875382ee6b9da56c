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
//   [Safety]
//   AllowFormatAndRestoreOfRoot=0        1: format and image restore are carried
//                                        out when the system root is "/" (on the
//                                        controller itself); otherwise they are
//                                        refused there, so that a developer's
//                                        machine is never emptied by accident

#include <string>

namespace kx::daemon {

constexpr char kSettingsFileName[] = "kxsid.ini";
constexpr char kDefaultRepository[] = "/var/local/kx/repository";

struct DaemonSettings {
  std::string repositoryDirectory;  // host path
  std::string processor;
  std::string deviceClass;
  std::string osName;
  bool allowFormatAndRestoreOfRoot = false;
};

// Missing file or keys give the defaults.
DaemonSettings LoadDaemonSettings();

// Whether a request that empties or overwrites the system root (format, image
// restore) may be carried out: when the root is not "/", or the settings allow it.
bool MayChangeWholeRoot(const DaemonSettings& settings);

}  // namespace kx::daemon
