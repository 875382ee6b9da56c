#include "catalogue/cdf_reader.h"

#include "catalogue/attribute_reader.h"
#include "catalogue/cdf_package_reader.h"
#include "catalogue/cdf_read_helpers.h"
#include "catalogue/element_scanner.h"
#include "catalogue/status.h"
#include "catalogue/type_readers.h"

namespace kx::catalogue {
namespace {

bool IsHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f'); }

std::unique_ptr<SoftwareSet> ReadStack(const ElementScanner& scanner, const Element& element) {
  using cdf::ChildText;
  const std::string_view attributes = element.attributes;
  auto stack = std::make_unique<SoftwareSet>();
  stack->name = ReadAttributeOr(attributes, "NAME", "");
  stack->packageSystem = ReadYesAttribute(attributes, "OPKGSYSTEM");
  stack->versionText = ReadAttributeOr(attributes, "VERSION", "");
  stack->group = ReadAttributeOr(attributes, "GROUP", "");
  ReadStackType(attributes, stack->type);  // an unknown word keeps the default; the stack stays
  stack->title = ChildText(scanner, element.inside, "TITLE");
  stack->abstract = ChildText(scanner, element.inside, "ABSTRACT");
  stack->intent = ChildText(scanner, element.inside, "INTENT");
  scanner.ForEachOf(element.inside, cdf::TargetSupportReaders(scanner, *stack));
  cdf::ReadStackItems(scanner, element.inside, "STACKITEM", StackItemKind::kMember, StackItem::kNoGroup, stack->items);
  scanner.ForEach(element.inside, "ADDONGROUP", [&](const Element& group) {
    const size_t index = stack->addonGroups.size();
    stack->addonGroups.push_back({ReadAttributeOr(group.attributes, "NAME", ""),
                                  ReadAttributeOr(group.attributes, "OLDESTCOMPATIBLEVERSION", "0")});
    cdf::ReadStackItems(scanner, group.inside, "ADDON", StackItemKind::kAddon, index, stack->items);
    cdf::ReadStackItems(scanner, group.inside, "ADDONDEP", StackItemKind::kAddonDependency, index, stack->items);
  });
  return stack;
}

CdfSection ReadSection(const ElementScanner& scanner, const Element& element) {
  CdfSection section;
  section.name = ReadAttributeOr(element.attributes, "NAME", "");
  section.version = ParseVersion(ReadAttributeOr(element.attributes, "VERSION", ""));
  section.title = cdf::ChildText(scanner, element.inside, "TITLE");
  section.abstract = cdf::ChildText(scanner, element.inside, "ABSTRACT");
  cdf::ReadFeatures(scanner, element.inside, section.features);
  return section;
}

}  // namespace

bool IsValidAddonKey(std::string_view key) {
  constexpr std::string_view kNullGuid = "{00000000-0000-0000-0000-000000000000}";
  if (key.size() != kNullGuid.size() || key.front() != '{' || key.back() != '}' || key == kNullGuid) return false;
  for (size_t i = 1; i + 1 < key.size(); ++i) {
    const bool dash = i == 9 || i == 14 || i == 19 || i == 24;
    if (dash ? key[i] != '-' : !IsHexDigit(key[i])) return false;
  }
  return true;
}

bool IsSupportedCdfVersion(std::string_view version) {
  static const VersionNumbers kFirstUnsupported = {8, 0};
  return !NumbersAtLeast(ParseVersionNumbers(version), kFirstUnsupported);
}

int ReadCdfDocument(std::string_view text, PackageList& packages, StackList& stacks, SectionList& sections,
                    DynamicAddonList& dynamicAddons) {
  const ElementScanner scanner(text.substr(0, text.find('\0')));
  const size_t entriesBefore = packages.size() + stacks.size() + sections.size();
  std::optional<std::string> version;
  // Stacks, packages and sections go to lists of their own, so one walk serves
  // all three: each list gets exactly what a pass of its own would find.
  scanner.ForEachOf(scanner.Whole(),
                    {{"?CDF",
                      [&](const Element& e) {
                        if (!version) version = ReadAttributeOr(e.attributes, "VERSION", "");
                      }},
                     {"STACK", [&](const Element& e) { stacks.push_back(ReadStack(scanner, e)); }},
                     {"SOFTPKG",
                      [&](const Element& e) {
                        if (auto package = cdf::ReadPackage(scanner, e, dynamicAddons))
                          packages.push_back(std::move(package));
                      }},
                     {"SECTION", [&](const Element& e) { sections.push_back(ReadSection(scanner, e)); }}});

  // Checked after reading on purpose: a rejected document has filled the lists too.
  if (!IsSupportedCdfVersion(version.value_or(""))) return status::kUnsupportedCdfVersion;
  return packages.size() + stacks.size() + sections.size() == entriesBefore ? status::kNothingRead : status::kOk;
}

}  // namespace kx::catalogue
