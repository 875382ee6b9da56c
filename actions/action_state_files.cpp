#include "actions/action_state_files.h"

#include <exception>

#include "exchange/paths.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"
#include "platform/ownership.h"

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
    static_cast<void>(platform::SetToDefaultOwnerGroupAndPermissions(path));  // logged there, not returned
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace kx::actions
