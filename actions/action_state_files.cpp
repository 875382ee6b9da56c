#include "actions/action_state_files.h"

#include <exception>

#include "exchange/paths.h"
#include "actions/ownership.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"
#include "kx/tal/time_text.h"

namespace kx::actions {
namespace {

bool IsPlainFileName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}


}  // namespace

bool CreateActionXML(const std::string& fileName, const std::string& text) noexcept {
  try {
    if (!IsPlainFileName(fileName)) return false;
    const std::string path = tal::JoinPath(exchange::ConfigurationDirectory(), fileName);
    tal::WriteTextFile(path, text);
    SetToDefaultOwnerGroupAndPermissions(path);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

std::string LastActionLine(const std::string& actionId, const std::string& actionType,
                           int32_t result, std::time_t stopTime) {
  return "<Last Id=\"" + EscapeXmlAttribute(actionId) + "\" ActionType=\"" +
         EscapeXmlAttribute(actionType) + "\" StopTime=\"" +
         tal::TimeToText(stopTime, "%Y-%m-%d", "%H:%M:%S %Z") + "\" Result=\"" +
         std::to_string(result) + "\"/>\n";
}

std::string EscapeXmlAttribute(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&': escaped += "&amp;"; break;
      case '<': escaped += "&lt;"; break;
      case '>': escaped += "&gt;"; break;
      case '"': escaped += "&quot;"; break;
      default: escaped += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    }
  }
  return escaped;
}

}  // namespace kx::actions
