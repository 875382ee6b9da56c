#include "catalogue/type_readers.h"

#include <optional>
#include <string>
#include <utility>

#include "catalogue/attribute_reader.h"

namespace kx::catalogue {
namespace {

template <class Enum, size_t N>
std::optional<Enum> Lookup(std::string_view word, const std::pair<const char*, Enum> (&table)[N]) {
  for (const auto& [text, value] : table) {
    if (word == text) return value;
  }
  return std::nullopt;
}

template <class Enum, size_t N>
bool ReadTypeAttribute(std::string_view attributes, Enum& type, const std::pair<const char*, Enum> (&table)[N]) {
  std::optional<std::string_view> word = ReadAttributeText(attributes, "TYPE");
  if (!word) return true;
  std::optional<Enum> value = Lookup(*word, table);
  if (value) type = *value;
  return value.has_value();
}

}  // namespace

bool ReadVisibilityType(std::string_view attributes, ComponentType& type) {
  static const std::pair<const char*, ComponentType> kWords[] = {{"VISIBLE", ComponentType::kVisible},
                                                                 {"HIDDEN", ComponentType::kHidden},
                                                                 {"SYSTEM", ComponentType::kSystem},
                                                                 {"STARTUP", ComponentType::kStartup}};
  return ReadTypeAttribute(attributes, type, kWords);
}

bool ReadStackType(std::string_view attributes, StackType& type) {
  static const std::pair<const char*, StackType> kWords[] = {
      {"GOLD", StackType::kGold}, {"PREDEFINED", StackType::kPredefined}, {"USERDEFINED", StackType::kUserDefined}};
  return ReadTypeAttribute(attributes, type, kWords);
}

CodebaseType ReadCodebaseType(std::string_view attributes) {
  static const std::pair<const char*, CodebaseType> kWords[] = {
      {"OPTIONAL", CodebaseType::kOptional}, {"SYSTEM", CodebaseType::kSystem}, {"TAR", CodebaseType::kTar}};
  std::optional<std::string_view> word = ReadAttributeText(attributes, "TYPE");
  return word ? Lookup(*word, kWords).value_or(CodebaseType::kFile) : CodebaseType::kFile;
}

FeatureSelection ReadFeatureSelection(std::string_view attributes) {
  static const std::pair<const char*, FeatureSelection> kWords[] = {
      {"NO", FeatureSelection::kNotSelected},
      {"TARGET", FeatureSelection::kTarget},
      {"YESDEPS", FeatureSelection::kSelectedWithDependencies}};
  std::optional<std::string_view> word = ReadAttributeText(attributes, "SELECT");
  return word ? Lookup(*word, kWords).value_or(FeatureSelection::kSelected) : FeatureSelection::kSelected;
}

}  // namespace kx::catalogue
