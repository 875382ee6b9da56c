#include "actions/action_command.h"

#include "catalogue/attribute_reader.h"
#include "catalogue/element_scanner.h"

namespace kx::actions {

ActionCommand ReadActionCommand(std::string_view body) {
  ActionCommand command;
  const catalogue::ElementScanner scanner(body);
  const auto element = scanner.First(scanner.Whole(), "WSACTIONCOMMAND");
  if (!element) return command;
  // Read as written: action IDs are compared exactly, so no upper-casing of braces.
  if (const auto name = catalogue::ReadAttributeText(element->attributes, "NAME")) {
    command.actionId = std::string(*name);
  }
  if (const auto autoReboot = catalogue::ReadAttributeText(element->attributes, "AUTOREBOOT")) {
    command.autoReboot = std::string(*autoReboot);
  }
  return command;
}

}  // namespace kx::actions
