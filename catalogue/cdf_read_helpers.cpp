#include "catalogue/cdf_read_helpers.h"

#include "catalogue/attribute_reader.h"
#include "catalogue/type_readers.h"

namespace kx::catalogue::cdf {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// TITLE as a child element, or else as an attribute of the element itself.
std::string TitleOf(const ElementScanner& scanner, const Element& element) {
  if (auto title = scanner.First(element.inside, "TITLE")) return ContentText(*title);
  return ReadAttributeOr(element.attributes, "TITLE", "");
}

ComponentReference ReferenceOf(const ElementScanner& scanner, const Element& element) {
  ComponentReference reference;
  reference.name = ReadAttributeOr(element.attributes, "NAME", "");
  reference.version = ParseVersion(ReadAttributeOr(element.attributes, "VERSION", ""));
  reference.title = TitleOf(scanner, element);
  return reference;
}

}  // namespace

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::string ContentText(const Element& element) { return std::string(Trim(element.content)); }

std::string ChildText(const ElementScanner& scanner, TextSpan span, std::string_view name) {
  auto element = scanner.First(span, name);
  return element ? ContentText(*element) : std::string();
}

TargetSupportVisitors TargetSupportReaders(const ElementScanner& scanner, TargetSupport& target) {
  auto readOs = [&scanner, &target](const Element& os) {
    OsRequirement requirement;
    requirement.name = ReadAttributeOr(os.attributes, "VALUE", "");
    if (auto version = scanner.First(os.inside, "OSVERSION")) {
      requirement.version = ParseVersion(ReadAttributeOr(version->attributes, "VALUE", ""));
    }
    target.operatingSystems.push_back(std::move(requirement));
  };

  static const std::pair<std::string_view, TargetValueAdder> kLists[] = {
      {"PROCESSOR", &TargetSupport::AddProcessor},
      {"EXCEPTPROCESSOR", &TargetSupport::AddExceptProcessor},
      {"DEVICECLASS", &TargetSupport::AddDeviceClass}};
  // Two pointers fit std::function's own storage; a copied member pointer would not.
  auto listReader = [&target](const auto& list) {
    return ElementScanner::NamedVisitor(list.first, [&target, &list](const Element& element) {
      (target.*list.second)(ReadAttributeOr(element.attributes, "VALUE", ""));
    });
  };
  return {ElementScanner::NamedVisitor("OS", readOs), listReader(kLists[0]), listReader(kLists[1]),
          listReader(kLists[2])};
}

void ReadFeature(const ElementScanner& scanner, const Element& feature, std::vector<Feature>& features) {
  const FeatureSelection selection = ReadFeatureSelection(feature.attributes);
  // A FEATURE with nothing inside names its package by its own attributes.
  if (Trim(feature.content).empty()) {
    ComponentReference reference;
    reference.name = ReadAttributeOr(feature.attributes, "NAME", "");
    reference.version = ParseVersion(ReadAttributeOr(feature.attributes, "VERSION", ""));
    reference.title = ReadAttributeOr(feature.attributes, "TITLE", "");
    features.push_back({std::move(reference), selection});
    return;
  }
  scanner.ForEach(feature.inside, "SOFTPKG", [&](const Element& package) {
    features.push_back({ReferenceOf(scanner, package), selection});
  });
}

void ReadFeatures(const ElementScanner& scanner, TextSpan span, std::vector<Feature>& features) {
  scanner.ForEach(span, "FEATURE", [&](const Element& feature) { ReadFeature(scanner, feature, features); });
}

void ReadStackItems(const ElementScanner& scanner, TextSpan span, std::string_view elementName, StackItemKind kind,
                    size_t addonGroup, std::vector<StackItem>& items) {
  scanner.ForEach(span, elementName, [&](const Element& element) {
    StackItem item;
    item.component = ReferenceOf(scanner, element);
    item.kind = kind;
    item.type = ReadAttributeOr(element.attributes, "TYPE", "");
    item.addonGroup = addonGroup;
    item.selected = ReadYesAttribute(element.attributes, "SELECT");
    item.hidden = ReadYesAttribute(element.attributes, "HIDE");
    items.push_back(std::move(item));
  });
}

}  // namespace kx::catalogue::cdf
