#include "catalogue/legacy_packages.h"

#include <string_view>

#include "catalogue/repository.h"
#include "catalogue/status.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/path.h"

namespace kx::catalogue {

// Stored exactly as older controllers shipped them. The first SOFTPKG start tag
// lacks its ">"; the tolerant reader still takes its attributes.
const LegacyPackage kLegacyPackages[kLegacyPackageCount] = {
    {"KXINI/2.6.0", "install.rts",
     "<?xml version=\"1.0\"?><SOFTPKG NAME=\"{E6108D44-DB8E-420B-843F-E94A2E161D91}\" VERSION=\"2.6.0\" "
     "TYPE=\"HIDDEN\"<TITLE>KXINI</TITLE><IMPLEMENTATION><OS VALUE=\"PharLap\"/><CODEBASE "
     "FILENAME=\"[[DIR]]/kxini32.dll\" TARGET=\"/kx-rt/system/kxini32.dll\"/></IMPLEMENTATION></SOFTPKG>"},
    {"Utilities/BIOS Updater/10.3", "update5A10.rts",
     "<?xml version=\"1.0\"?><SOFTPKG NAME=\"PharLap\" VERSION=\"10.3\" TYPE=\"SYSTEM\"><TITLE>Embedded OS "
     "Updater</TITLE><IMPLEMENTATION><PROCESSOR VALUE=\"5A10\"/><OS VALUE=\"PharLap\"/><CODEBASE "
     "FILENAME=\"[[DIR]]/5A10/flashupd.exe\" TARGET=\"/kx-rt/system/flashupd.exe\"/><MERGEINI "
     "TARGET=\"/kx-rt.ini\">[STARTUP]\nMainExe=/kx-rt/system/flashupd.exe\n</MERGEINI></IMPLEMENTATION></SOFTPKG>"},
    {"Utilities/BIOS Updater/10.4", "update5B20.rts",
     "<?xml version=\"1.0\"?><SOFTPKG NAME=\"PharLap\" VERSION=\"10.4\" TYPE=\"SYSTEM\"><TITLE>Embedded OS "
     "Updater</TITLE><IMPLEMENTATION><PROCESSOR VALUE=\"5B20\"/><OS VALUE=\"PharLap\"/><CODEBASE "
     "FILENAME=\"[[DIR]]/5B20/flashupd.exe\" TARGET=\"/kx-rt/system/flashupd.exe\"/><CODEBASE "
     "FILENAME=\"[[DIR]]/5B20/hdmon.bin\" TARGET=\"/hdmon.bin\"/><CODEBASE FILENAME=\"[[DIR]]/5B20/ph_exec.exe\" "
     "TARGET=\"/ph_exec.exe\"/><MERGEINI TARGET=\"/kx-rt.ini\">[STARTUP]\nMainExe=/kx-rt/system/flashupd.exe\n"
     "</MERGEINI></IMPLEMENTATION></SOFTPKG>"},
};

std::string ReplaceDirectoryPlaceholder(std::string text, const std::string& directory) {
  constexpr std::string_view kPlaceholder = "[[DIR]]";
  // The search goes on after each replacement, so a directory that itself holds
  // the placeholder is inserted once rather than replaced without end.
  for (size_t at = text.find(kPlaceholder); at != std::string::npos; at = text.find(kPlaceholder, at)) {
    text.replace(at, kPlaceholder.size(), directory);
    at += directory.size();
  }
  return text;
}

int AddLegacyPackage(Repository& repository, const LegacyPackage& package) {
  std::string payloadDirectory;
  try {
    payloadDirectory = tal::JoinPath(repository.Directory(), package.payloadDirectory);
    if (!tal::PathExists(tal::JoinPath(payloadDirectory, package.markerFile))) return 0;
  } catch (const tal::exception::Exception&) {
    return 0;
  }
  const std::string text = ReplaceDirectoryPlaceholder(package.text, payloadDirectory);
  return repository.LoadText(text, payloadDirectory, "") == status::kOk ? 1 : 0;
}

void AddLegacyPackages(Repository& repository) {
  for (const LegacyPackage& package : kLegacyPackages) AddLegacyPackage(repository, package);
}

}  // namespace kx::catalogue
