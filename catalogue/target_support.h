#pragma once
// The conditions under which a catalogue entry applies to a controller: operating
// systems, processors (included and excluded) and device classes.

#include <string>
#include <string_view>
#include <vector>

#include "catalogue/version.h"

namespace kx::catalogue {

// One OS entry: the OS VALUE, with the OSVERSION VALUE as version text (empty
// when there is none). Same shape as a component reference; title stays empty.
struct OsRequirement {
  std::string name;
  Version version;
  std::string title;
};

class TargetSupport {
 public:
  TargetSupport() = default;
  TargetSupport(const TargetSupport&) = default;
  TargetSupport(TargetSupport&&) = default;
  TargetSupport& operator=(const TargetSupport&) = default;
  TargetSupport& operator=(TargetSupport&&) = default;
  virtual ~TargetSupport();

  // Virtual and of one signature: the CDF reader calls them through a table of
  // pointers to members, one per VALUE.
  virtual void AddProcessor(const std::string& value);
  virtual void AddExceptProcessor(const std::string& value);
  virtual void AddDeviceClass(const std::string& value);

  std::vector<OsRequirement> operatingSystems;
  std::vector<std::string> processors;
  std::vector<std::string> exceptProcessors;
  std::vector<std::string> deviceClasses;
};

using TargetValueAdder = void (TargetSupport::*)(const std::string&);

// True when the value is empty, the list is empty, or an entry equals the value
// (NamesEqual).
bool MatchesTargetValue(std::string_view value, const std::vector<std::string>& list);

// 0 when `entry` applies to the target, -5 when its processor or device class
// excludes it, -6 when its operating system does. With `compareOsByNameOnly` the
// OS version is ignored.
int CheckTargetSupport(const TargetSupport& entry, std::string_view processor, std::string_view deviceClass,
                       std::string_view osName, const Version& osVersion, bool compareOsByNameOnly);

}  // namespace kx::catalogue
