#pragma once
// Reading a CDF document into catalogue objects.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue/component_base.h"
#include "catalogue/package.h"
#include "catalogue/software_set.h"

namespace kx::catalogue {

// SECTION: a titled group of FEATUREs.
struct CdfSection {
  std::string name;
  Version version;
  std::string title;
  std::string abstract;
  std::vector<Feature> features;
};

// A package that declares itself an add-on of a stack (ISADDONOFSTACK).
struct DynamicAddon {
  // The package's NAME, VERSION and TITLE, shared by all records of one package so
  // that a package naming many stacks does not multiply its texts.
  std::shared_ptr<const ComponentReference> addon;
  std::string stackKey;   // KEY: NAME of the stack to join
  std::string group;      // GROUP of the stack's add-ons to join
  bool selected = false;  // SELECT="YES"
  bool hidden = false;    // HIDE="YES"
};

using PackageList = std::vector<std::unique_ptr<Package>>;
using StackList = std::vector<std::unique_ptr<SoftwareSet>>;
using SectionList = std::vector<CdfSection>;
using DynamicAddonList = std::vector<DynamicAddon>;

// A stack key names a stack, and stacks are named by braced GUIDs: a key is valid
// when it is "{" 8-4-4-4-12 hexadecimal digits "}" and not the null GUID.
bool IsValidAddonKey(std::string_view key);

// Whether a document of this CDF VERSION can be read: its numbers (trailing zeros
// kept, so "8" is below "8.0") are below 8.0. No version at all is accepted.
bool IsSupportedCdfVersion(std::string_view version);

// Appends the document's stacks, packages (SOFTPKG), sections and dynamic add-ons
// to the lists, in document order. Returns 0 when something was read, 1 when the
// document held no package, stack or section, and -11 when its CDF version is not
// below 8.0; the lists are filled even then, and the caller discards them. Text
// after a NUL character is not read. Never throws for malformed text.
[[nodiscard]] int ReadCdfDocument(std::string_view text, PackageList& packages, StackList& stacks,
                                  SectionList& sections, DynamicAddonList& dynamicAddons);

}  // namespace kx::catalogue
