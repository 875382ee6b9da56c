#include "exchange/state_files.h"

#include <algorithm>

#include "kx/tal/time_text.h"

namespace kx::exchange {
namespace {

std::string LocalTime(std::time_t time) { return tal::TimeToText(time, "%Y-%m-%d", "%H:%M:%S %Z"); }

bool IsXmlBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// The line from attribute values already escaped for XML.
std::string LastLine(std::string_view id, std::string_view type, int32_t result, std::time_t stopTime) {
  std::string line = "<Last Id=\"";
  line.append(id).append("\" ActionType=\"").append(type);
  return line + "\" StopTime=\"" + LocalTime(stopTime) + "\" Result=\"" + std::to_string(result) + "\"/>\n";
}

}  // namespace

std::string EscapeXmlAttribute(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    }
  }
  return escaped;
}

std::string LastActionLine(std::string_view actionId, std::string_view actionType, int32_t result,
                           std::time_t stopTime) {
  return LastLine(EscapeXmlAttribute(actionId), EscapeXmlAttribute(actionType), result, stopTime);
}

std::string LastActionLineOf(std::string_view currentElement, int32_t result, std::time_t stopTime) {
  return LastLine(AttributeValue(currentElement, "Id"), AttributeValue(currentElement, "ActionType"), result, stopTime);
}

std::string CurrentActionElement(std::string_view actionId, std::string_view actionType, std::time_t startTime,
                                 int percent, std::string_view step) {
  return "<Current Id=\"" + EscapeXmlAttribute(actionId) + "\" ActionType=\"" + EscapeXmlAttribute(actionType) +
         "\" StartTime=\"" + LocalTime(startTime) + "\" Percent=\"" + std::to_string(std::clamp(percent, 0, 100)) +
         "\" Step=\"" + EscapeXmlAttribute(step) + "\"/>\n";
}

std::string AttributeValue(std::string_view element, std::string_view name) {
  const std::string opening = std::string(name) + "=\"";
  for (size_t at = element.find(opening); at != std::string_view::npos; at = element.find(opening, at + 1)) {
    if (at == 0 || !IsXmlBlank(element[at - 1])) continue;
    const size_t valueStart = at + opening.size();
    const size_t valueEnd = element.find('"', valueStart);
    if (valueEnd == std::string_view::npos) return std::string();
    return std::string(element.substr(valueStart, valueEnd - valueStart));
  }
  return std::string();
}

}  // namespace kx::exchange
