#pragma once
// The action state files: "currentAction.xml" (and the progress region), which
// the daemon keeps while an action runs, and the one-line "lastAction.xml" for
// the action that ended. Written by the daemon, by the action-lock service for
// an interrupted action, and by SoftwareUpdate for a refused one; read by Progress.

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace kx::exchange {

// A state file longer than this is not read: it cannot be the daemon's.
constexpr size_t kMaxStateFileSize = size_t{1} << 20;

// Text made safe inside a double-quoted XML attribute: & < > " escaped, control
// characters turned into blanks.
std::string EscapeXmlAttribute(std::string_view text);

// <Last Id="…" ActionType="…" StopTime="<local %Y-%m-%d %H:%M:%S %Z>" Result="<signed decimal>"/>\n
std::string LastActionLine(std::string_view actionId, std::string_view actionType, int32_t result,
                           std::time_t stopTime);

// The "lastAction.xml" line for the action of a "currentAction.xml" element that
// never finished: its Id and ActionType as written there.
std::string LastActionLineOf(std::string_view currentElement, int32_t result, std::time_t stopTime);

// <Current Id="…" ActionType="…" StartTime="<local %Y-%m-%d %H:%M:%S %Z>" Percent="0..100" Step="…"/>\n
// (the percent is clamped to 0..100).
std::string CurrentActionElement(std::string_view actionId, std::string_view actionType, std::time_t startTime,
                                 int percent, std::string_view step);

// The value of attribute `name` of an element's text, as written there (not
// unescaped); "" when it is missing.
std::string AttributeValue(std::string_view element, std::string_view name);

}  // namespace kx::exchange
