#pragma once
// The action state files in the configuration directory ("lastAction.xml" and
// the like), written whole and handed to the default owner, group and mode.

#include <cstdint>
#include <ctime>
#include <string>

namespace kx::actions {

// Writes `text` as the file `fileName` of the configuration directory, then sets
// the default owner, group and mode (a failure there is logged, not returned).
// False when the name is not a plain file name or the file cannot be written;
// never throws.
bool CreateActionXML(const std::string& fileName, const std::string& text) noexcept;

// Text made safe inside a double-quoted XML attribute: & < > " escaped, control
// characters turned into blanks.
std::string EscapeXmlAttribute(const std::string& text);

// The one-line "lastAction.xml" form:
// <Last Id="…" ActionType="…" StopTime="<local %Y-%m-%d %H:%M:%S %Z>" Result="<signed decimal>"/>\n
// The ID and type are escaped for an XML attribute.
std::string LastActionLine(const std::string& actionId, const std::string& actionType,
                           int32_t result, std::time_t stopTime);

}  // namespace kx::actions
