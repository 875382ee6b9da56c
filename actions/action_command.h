#pragma once
// The action command that a remote host puts in a POST body:
//   <WSACTIONCOMMAND NAME="<action ID>" AUTOREBOOT="YES|NO" .../>
// found anywhere in the text with the catalogue's tolerant element scan.

#include <optional>
#include <string>
#include <string_view>

namespace kx::actions {

struct ActionCommand {
  std::string actionId;                   // empty when the element or NAME is absent
  std::optional<std::string> autoReboot;  // as written; absent when not given
};

// The first WSACTIONCOMMAND element of the text; an empty command when there is none.
ActionCommand ReadActionCommand(std::string_view body);

}  // namespace kx::actions
