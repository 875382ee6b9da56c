#include "catalogue/cdf_package_writer.h"

#include "catalogue/cdf_write_primitives.h"

namespace kx::catalogue::cdf {
namespace {

const char* CodebaseTypeName(CodebaseType type) {
  switch (type) {
    case CodebaseType::kOptional:
      return "OPTIONAL";
    case CodebaseType::kSystem:
      return "SYSTEM";
    case CodebaseType::kTar:
      return "TAR";
    case CodebaseType::kFile:
      break;
  }
  return nullptr;  // a plain file is what a missing TYPE means
}

const char* SelectionName(FeatureSelection selection) {
  switch (selection) {
    case FeatureSelection::kNotSelected:
      return "NO";
    case FeatureSelection::kTarget:
      return "TARGET";
    case FeatureSelection::kSelectedWithDependencies:
      return "YESDEPS";
    case FeatureSelection::kSelected:
      break;
  }
  return "YES";
}

// `<name VALUE="value"/>` at two tabs: the IMPLEMENTATION children with one value.
void WriteValueElement(std::string& out, std::string_view name, std::string_view value) {
  out += "\t\t<";
  out += name;
  WriteAttribute(out, "VALUE", value);
  out += "/>\n";
}

void WriteTargetSupport(std::string& out, const TargetSupport& target) {
  for (const auto& processor : target.processors) WriteValueElement(out, "PROCESSOR", processor);
  for (const auto& processor : target.exceptProcessors) WriteValueElement(out, "EXCEPTPROCESSOR", processor);
  for (const auto& deviceClass : target.deviceClasses) WriteValueElement(out, "DEVICECLASS", deviceClass);
  for (const OsRequirement& os : target.operatingSystems) {
    if (os.version.text.empty()) {
      WriteValueElement(out, "OS", os.name);
      continue;
    }
    out += "\t\t<OS";
    WriteAttribute(out, "VALUE", os.name);
    out += "><OSVERSION";
    WriteAttribute(out, "VALUE", os.version.text);
    out += "/></OS>\n";
  }
}

void WriteCodebase(std::string& out, const Codebase& codebase) {
  out += "\t\t<CODEBASE";
  WriteAttribute(out, "FILENAME", codebase.fileName);
  WriteAttribute(out, "TARGET", codebase.target);
  if (const char* type = CodebaseTypeName(codebase.type)) WriteAttribute(out, "TYPE", type);
  WriteAttribute(out, "PERMISSIONS", codebase.permissions);
  WriteAttribute(out, "OWNER", codebase.owner);
  WriteAttribute(out, "GROUP", codebase.group);
  if (!codebase.version.text.empty()) WriteAttribute(out, "VERSION", codebase.version.text);
  out += "/>\n";
}

void WriteSymlink(std::string& out, const Symlink& symlink) {
  out += "\t\t<SYMLINK";
  WriteAttribute(out, "SOURCE", symlink.source);
  WriteAttribute(out, "LINK", symlink.link);
  WriteAttribute(out, "PERMISSIONS", symlink.permissions);
  WriteAttribute(out, "OWNER", symlink.owner);
  WriteAttribute(out, "GROUP", symlink.group);
  out += "/>\n";
}

// Soft dependencies become SOFTDEPENDENCY elements. The list is written in its
// order; the reader keeps exact and strict ones ahead of loose ones again.
void WriteDependency(std::string& out, const BaseDependency& dependency) {
  const char* element = dependency.isSoft ? "SOFTDEPENDENCY" : "DEPENDENCY";
  out += "\t\t<";
  out += element;
  // ExactVersionDependency derives from StrictDependency: ask for it first.
  if (dynamic_cast<const ExactVersionDependency*>(&dependency) != nullptr) {
    WriteAttribute(out, "TYPE", "EXACT");
  } else if (dynamic_cast<const StrictDependency*>(&dependency) != nullptr) {
    WriteAttribute(out, "TYPE", "STRICT");
  }
  out += ">\n\t\t\t<SOFTPKG";
  WriteAttribute(out, "NAME", dependency.name);
  WriteAttribute(out, "VERSION", dependency.version.text);
  if (dependency.title.empty()) {
    out += "/>\n";
  } else {
    out += ">\n\t\t\t";
    WriteTextElement(out, "TITLE", dependency.title, 0, false);
    out += "\t\t\t</SOFTPKG>\n";
  }
  out += "\t\t</";
  out += element;
  out += ">\n";
}

// Stack items carry their title as an attribute: a TITLE element inside them
// would be taken for the STACKDEP's own title when that has none.
void WriteStackDependency(std::string& out, const StackDependency& dependency) {
  out += "\t\t<DEPENDENCY";
  WriteAttribute(out, "TYPE", "STACK");
  out += ">\n\t\t\t<STACKDEP";
  WriteAttribute(out, "NAME", dependency.name);
  if (!dependency.versionText.empty()) WriteAttribute(out, "VERSION", dependency.versionText);
  out += ">\n";
  if (!dependency.title.empty()) WriteTextElement(out, "TITLE", dependency.title, 4, false);
  for (const StackItem& item : dependency.items) {
    out += "\t\t\t\t<STACKITEM";
    WriteAttribute(out, "NAME", item.component.name);
    WriteAttribute(out, "VERSION", item.component.version.text);
    if (!item.component.title.empty()) WriteAttribute(out, "TITLE", item.component.title);
    if (!item.type.empty()) WriteAttribute(out, "TYPE", item.type);
    if (item.selected) WriteAttribute(out, "SELECT", "YES");
    if (item.hidden) WriteAttribute(out, "HIDE", "YES");
    out += "/>\n";
  }
  out += "\t\t\t</STACKDEP>\n\t\t</DEPENDENCY>\n";
}

void WriteMergeIni(std::string& out, const MergeIni& merge) {
  out += "\t\t<MERGEINI";
  WriteAttribute(out, "TARGET", merge.target);
  if (!merge.fileName.empty()) WriteAttribute(out, "FILENAME", merge.fileName);
  out += '>';
  WriteCdata(out, merge.text);
  out += "\n\t\t</MERGEINI>\n";
}

void WriteFeature(std::string& out, const Feature& feature) {
  out += "\t<FEATURE";
  WriteAttribute(out, "NAME", feature.component.name);
  WriteAttribute(out, "VERSION", feature.component.version.text);
  WriteAttribute(out, "TITLE", feature.component.title);
  WriteAttribute(out, "SELECT", SelectionName(feature.selection));
  out += "/>\n";
}

}  // namespace

const char* VisibilityName(ComponentType type) {
  switch (type) {
    case ComponentType::kHidden:
      return "HIDDEN";
    case ComponentType::kSystem:
      return "SYSTEM";
    case ComponentType::kStartup:
      return "STARTUP";
    case ComponentType::kVisible:
      break;
  }
  return "VISIBLE";
}

void WritePackage(std::string& out, const Package& package, const PackageWriteOptions& options) {
  out += "<SOFTPKG";
  WriteAttribute(out, "NAME", package.name);
  WriteAttribute(out, "VERSION", package.version.text);
  WriteAttribute(out, "TYPE", VisibilityName(options.writeEffectiveType ? package.effectiveType : package.type));
  if (package.hideVersion) WriteAttribute(out, "HIDEVERSION", "YES");
  WriteAttribute(out, "COMPATIBILITY", package.compatibilityVersion.text);
  WriteAttribute(out, "OLDESTCOMPATIBLEVERSION", package.oldestCompatibleVersion.text);
  if (package.providesOs) WriteAttribute(out, "PROVIDESOS", "YES");
  if (!options.urlBase.empty()) WriteAttribute(out, "URL", BuildUrl(package, options.urlBase, options.rootPath));
  out += ">\n";
  WriteTextElement(out, "TITLE", package.title, 1, false);
  WriteTextElement(out, "ABSTRACT", package.abstract, 1, false);

  out += "\t<IMPLEMENTATION";
  if (!package.extraText.empty()) WriteAttribute(out, "TARGET", package.extraText);
  out += ">\n";
  WriteTargetSupport(out, package);
  for (const Codebase& codebase : package.codebases) WriteCodebase(out, codebase);
  for (const Symlink& symlink : package.symlinks) WriteSymlink(out, symlink);
  for (const auto& dependency : package.dependencies) WriteDependency(out, *dependency);
  for (const StackDependency& dependency : package.stackItems) WriteStackDependency(out, dependency);
  for (const MergeIni& merge : package.mergeIni) WriteMergeIni(out, merge);
  out += "\t</IMPLEMENTATION>\n";

  for (const Feature& feature : package.features) WriteFeature(out, feature);
  out += "</SOFTPKG>\n";
}

}  // namespace kx::catalogue::cdf
