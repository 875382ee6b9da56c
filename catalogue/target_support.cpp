#include "catalogue/target_support.h"

#include "catalogue/short_list.h"
#include "catalogue/status.h"

namespace kx::catalogue {
namespace {

bool Contains(const std::vector<std::string>& list, std::string_view value) {
  for (const std::string& entry : list) {
    if (NamesEqual(entry, value)) return true;
  }
  return false;
}

bool OsMatches(const TargetSupport& entry, std::string_view osName, const Version& osVersion,
               bool compareOsByNameOnly) {
  if (compareOsByNameOnly) {
    if (osName.empty()) return true;
    for (const OsRequirement& os : entry.operatingSystems) {
      if (NamesEqual(os.name, osName)) return true;
    }
    return false;
  }
  if (osName.empty() && osVersion.parts.empty()) return true;
  for (const OsRequirement& os : entry.operatingSystems) {
    // An entry without OSVERSION has empty parts and is met by any version.
    if (NamesEqual(os.name, osName) && VersionAtLeast(osVersion, os.version)) return true;
  }
  return false;
}

}  // namespace

TargetSupport::~TargetSupport() = default;

void TargetSupport::AddProcessor(const std::string& value) { AppendToShortList(processors, value); }
void TargetSupport::AddExceptProcessor(const std::string& value) { AppendToShortList(exceptProcessors, value); }
void TargetSupport::AddDeviceClass(const std::string& value) { AppendToShortList(deviceClasses, value); }

bool MatchesTargetValue(std::string_view value, const std::vector<std::string>& list) {
  return value.empty() || list.empty() || Contains(list, value);
}

int CheckTargetSupport(const TargetSupport& entry, std::string_view processor, std::string_view deviceClass,
                       std::string_view osName, const Version& osVersion, bool compareOsByNameOnly) {
  using status::kOk;
  using status::kTargetMismatch;
  const auto& processors = entry.processors;
  const auto& deviceClasses = entry.deviceClasses;

  if (!entry.operatingSystems.empty() && !OsMatches(entry, osName, osVersion, compareOsByNameOnly)) {
    return status::kOsMismatch;
  }
  if (Contains(entry.exceptProcessors, processor)) return kTargetMismatch;
  if (processors.empty() && deviceClasses.empty()) return kOk;
  if (processor.empty() && deviceClass.empty()) return kOk;
  if (!processor.empty()) {
    // A processor match accepts the entry whatever its device classes say.
    if (Contains(processors, processor)) return kOk;
    if (deviceClasses.empty()) return kTargetMismatch;
    if (deviceClass.empty()) return kOk;
  }
  if (deviceClass.empty()) return kTargetMismatch;
  if (Contains(deviceClasses, deviceClass)) return kOk;
  if (!processors.empty()) return processor.empty() ? kOk : kTargetMismatch;
  if (!deviceClasses.empty()) return kTargetMismatch;
  return processor.empty() ? kOk : kTargetMismatch;
}

}  // namespace kx::catalogue
