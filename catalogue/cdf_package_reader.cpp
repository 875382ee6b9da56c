#include "catalogue/cdf_package_reader.h"

#include <unordered_set>

#include "catalogue/attribute_reader.h"
#include "catalogue/cdf_read_helpers.h"
#include "catalogue/short_list.h"
#include "catalogue/type_readers.h"
#include "kx/tal/log.h"

namespace kx::catalogue::cdf {
namespace {

constexpr std::string_view kDefaultIniTarget = "/kx-rt.ini";
constexpr std::string_view kSharedIniTarget = "/etc/brenmar/share/kx-rt.ini";

// Hashing and equality of names under NamesEqual.
struct FoldedNameHash {
  size_t operator()(std::string_view name) const {
    size_t hash = 0;
    for (char c : name) hash = hash * 131 + static_cast<unsigned char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    return hash;
  }
};
struct FoldedNameEqual {
  bool operator()(std::string_view a, std::string_view b) const { return NamesEqual(a, b); }
};

Codebase ReadCodebase(std::string_view attributes) {
  Codebase codebase;
  codebase.fileName = ReadAttributeOr(attributes, "FILENAME", "");
  codebase.type = ReadCodebaseType(attributes);
  if (auto target = ReadAttribute(attributes, "TARGET")) {
    codebase.target = std::move(*target);
  } else if (codebase.type != CodebaseType::kTar) {
    codebase.target = codebase.fileName;
  } else {
    // An archive unpacks into the directory it came from.
    const size_t slash = codebase.fileName.rfind('/');
    if (slash != std::string::npos) codebase.target = codebase.fileName.substr(0, slash == 0 ? 1 : slash);
  }
  codebase.permissions = ReadAttributeOr(attributes, "PERMISSIONS", "");
  codebase.owner = ReadAttributeOr(attributes, "OWNER", "");
  codebase.group = ReadAttributeOr(attributes, "GROUP", "");
  codebase.version = ParseVersion(ReadAttributeOr(attributes, "VERSION", ""));
  return codebase;
}

Symlink ReadSymlink(std::string_view attributes) {
  Symlink symlink;
  symlink.source = ReadAttributeOr(attributes, "SOURCE", "");
  symlink.link = ReadAttributeOr(attributes, "LINK", "");
  symlink.permissions = ReadAttributeOr(attributes, "PERMISSIONS", "");
  symlink.owner = ReadAttributeOr(attributes, "OWNER", "");
  symlink.group = ReadAttributeOr(attributes, "GROUP", "");
  return symlink;
}

MergeIni ReadMergeIni(const Element& element) {
  MergeIni merge;
  merge.target = ReadAttributeOr(element.attributes, "TARGET", "");
  // Both forms name the one INI file of the runtime.
  if (merge.target.empty() || merge.target == kSharedIniTarget) merge.target = kDefaultIniTarget;
  merge.fileName = ReadAttributeOr(element.attributes, "FILENAME", "");
  constexpr std::string_view kCdataBegin = "<![CDATA[";
  std::string_view text = Trim(element.content);
  if (text.substr(0, kCdataBegin.size()) == kCdataBegin) {
    text.remove_prefix(kCdataBegin.size());
    merge.text = std::string(text.substr(0, text.find("]]>")));
  } else {
    merge.text = std::string(element.content);
  }
  return merge;
}

// DEPENDENCY and SOFTDEPENDENCY elements of one IMPLEMENTATION. Exact and strict
// dependencies go before loose ones, so that everything walking the list meets
// the exact requirements first; within each group DEPENDENCY entries come before
// SOFTDEPENDENCY ones, each in document order.
//
// Entries go straight into the package's list in document order; Finish reorders
// them only when they are not in group order already (the usual case is).
class DependencyReader {
 public:
  DependencyReader(const ElementScanner& scanner, Package& package) : scanner_(scanner), package_(package) {}

  void Read(const Element& element, bool soft) {
    const std::string_view type = ReadAttributeText(element.attributes, "TYPE").value_or("");
    if (type == "STACK") {
      // Soft ones after all others, as if read in a second pass.
      if (soft) {
        softStackDependencies_.push_back(element);
      } else {
        ReadStackDependency(element);
      }
      return;
    }
    auto child = scanner_.First(element.inside, "SOFTPKG");
    if (!child) return;  // names nothing to depend on
    auto name = ReadAttribute(child->attributes, "NAME");
    if (!name) return;
    // A second DEPENDENCY on a name is ignored; SOFTDEPENDENCY entries are not checked.
    if (!soft && HasDependencyOn(*name)) return;

    Version version = ParseVersion(ReadAttributeOr(child->attributes, "VERSION", ""));
    std::string title = ChildText(scanner_, child->inside, "TITLE");
    std::unique_ptr<BaseDependency> dependency;
    bool loose = false;
    if (type == "EXACT") {
      dependency =
          std::make_unique<ExactVersionDependency>(std::move(*name), std::move(version), std::move(title), soft);
    } else if (type == "STRICT") {
      dependency = std::make_unique<StrictDependency>(std::move(*name), std::move(version), std::move(title), soft);
    } else {
      dependency = std::make_unique<LooseDependency>(std::move(*name), std::move(version), std::move(title), soft);
      loose = true;
    }
    const uint8_t group = GroupOf(loose, soft);
    inGroupOrder_ = inGroupOrder_ && group >= lastGroup_;
    lastGroup_ = group;
    AppendToShortList(package_.dependencies, std::move(dependency));
    if (!soft) RememberHardName(*package_.dependencies.back());
  }

  void Finish() {
    for (const Element& element : softStackDependencies_) ReadStackDependency(element);
    if (inGroupOrder_) return;
    DependencyList& list = package_.dependencies;
    DependencyList ordered;
    ordered.reserve(list.size());
    for (uint8_t group = 0; group < 4; ++group) {
      for (auto& dependency : list) {
        if (dependency && GroupOf(*dependency) == group) ordered.push_back(std::move(dependency));
      }
    }
    list = std::move(ordered);
  }

 private:
  void ReadStackDependency(const Element& element) {
    auto stackDep = scanner_.First(element.inside, "STACKDEP");
    if (!stackDep) return;
    StackDependency dependency;
    dependency.name = ReadAttributeOr(stackDep->attributes, "NAME", "");
    dependency.versionText = ReadAttributeOr(stackDep->attributes, "VERSION", "");
    dependency.title = ChildText(scanner_, stackDep->inside, "TITLE");
    ReadStackItems(scanner_, stackDep->inside, "STACKITEM", StackItemKind::kMember, StackItem::kNoGroup,
                   dependency.items);
    // The first stack dependency is the stack the package installs.
    if (!package_.stack) {
      package_.stack = std::make_unique<SoftwareSet>();
      package_.stack->name = dependency.name;
      package_.stack->versionText = dependency.versionText;
      package_.stack->title = dependency.title;
      package_.stack->items = dependency.items;
    }
    package_.stackItems.push_back(std::move(dependency));
  }

  // 0 exact or strict, 2 loose; plus 1 for SOFTDEPENDENCY.
  static uint8_t GroupOf(bool loose, bool soft) { return static_cast<uint8_t>((loose ? 2 : 0) + (soft ? 1 : 0)); }
  static uint8_t GroupOf(const BaseDependency& dependency) {
    return GroupOf(dynamic_cast<const StrictDependency*>(&dependency) == nullptr, dependency.isSoft);
  }

  // Few dependencies are looked up in the list itself, with no allocation; past
  // the limit a set keeps the reading of many linear.
  static constexpr size_t kLinearSearchLimit = 16;

  bool HasDependencyOn(std::string_view name) const {
    if (!names_.empty()) return names_.count(name) != 0;
    for (const auto& dependency : package_.dependencies) {
      if (!dependency->isSoft && NamesEqual(dependency->name, name)) return true;
    }
    return false;
  }

  // Past the limit, fills the set with every hard dependency's name, then adds
  // each new one. The objects keep their names in place, so the views stay valid.
  void RememberHardName(const BaseDependency& added) {
    if (++hardCount_ <= kLinearSearchLimit) return;
    if (!names_.empty()) {
      names_.insert(added.name);
      return;
    }
    for (const auto& dependency : package_.dependencies) {
      if (!dependency->isSoft) names_.insert(dependency->name);
    }
  }

  const ElementScanner& scanner_;
  Package& package_;
  bool inGroupOrder_ = true;
  uint8_t lastGroup_ = 0;
  size_t hardCount_ = 0;
  std::unordered_set<std::string_view, FoldedNameHash, FoldedNameEqual> names_;
  std::vector<Element> softStackDependencies_;
};

void ReadImplementation(const ElementScanner& scanner, const Element& implementation, Package& package) {
  package.extraText = ReadAttributeOr(implementation.attributes, "TARGET", "");
  DependencyReader dependencies(scanner, package);
  TargetSupportVisitors target = TargetSupportReaders(scanner, package);
  const ElementScanner::NamedVisitor readers[] = {
      std::move(target[0]),
      std::move(target[1]),
      std::move(target[2]),
      std::move(target[3]),
      {"CODEBASE", [&](const Element& e) { AppendToShortList(package.codebases, ReadCodebase(e.attributes)); }},
      {"SYMLINK", [&](const Element& e) { package.symlinks.push_back(ReadSymlink(e.attributes)); }},
      {"DEPENDENCY", [&](const Element& e) { dependencies.Read(e, false); }},
      {"SOFTDEPENDENCY", [&](const Element& e) { dependencies.Read(e, true); }},
      {"MERGEINI", [&](const Element& e) { package.mergeIni.push_back(ReadMergeIni(e)); }}};
  scanner.ForEachOf(implementation.inside, readers);
  dependencies.Finish();
}

void ReadDynamicAddons(const std::vector<Element>& elements, const Package& package, DynamicAddonList& dynamicAddons) {
  std::shared_ptr<const ComponentReference> identity;
  for (const Element& element : elements) {
    std::string key = ReadAttributeOr(element.attributes, "KEY", "");
    if (!IsValidAddonKey(key)) {
      KX_LOG(tal::logmask::kError,
             "Repository::ReadCdfContent found dynamic add-on " + package.name + " with invalid key " + key);
      continue;
    }
    if (!identity) {
      identity =
          std::make_shared<const ComponentReference>(ComponentReference{package.name, package.version, package.title});
    }
    DynamicAddon addon;
    addon.addon = identity;
    addon.stackKey = std::move(key);
    addon.group = ReadAttributeOr(element.attributes, "GROUP", "");
    addon.selected = ReadYesAttribute(element.attributes, "SELECT");
    addon.hidden = ReadYesAttribute(element.attributes, "HIDE");
    dynamicAddons.push_back(std::move(addon));
  }
}

}  // namespace

std::unique_ptr<Package> ReadPackage(const ElementScanner& scanner, const Element& element,
                                     DynamicAddonList& dynamicAddons) {
  const std::string_view attributes = element.attributes;
  auto name = ReadAttribute(attributes, "NAME");
  auto version = ReadAttribute(attributes, "VERSION");
  if (!name || !version) return nullptr;
  auto package = std::make_unique<Package>();
  if (!ReadVisibilityType(attributes, package->type)) return nullptr;
  package->effectiveType = package->type;
  package->name = std::move(*name);
  package->version = ParseVersion(*version);
  package->compatibilityVersion = ParseVersion(ReadAttributeOr(attributes, "COMPATIBILITY", *version));
  package->oldestCompatibleVersion = ParseVersion(ReadAttributeOr(attributes, "OLDESTCOMPATIBLEVERSION", ""));
  package->hideVersion = ReadYesAttribute(attributes, "HIDEVERSION");
  package->originText = ReadAttributeOr(attributes, "URL", "");
  package->providesOs = ReadYesAttribute(attributes, "PROVIDESOS");
  // One walk over the package finds the first TITLE, ABSTRACT and IMPLEMENTATION
  // and every ISADDONOFSTACK and FEATURE, at any depth, as separate searches would.
  std::optional<Element> title, abstract, implementation;
  std::vector<Element> addonOf;
  const ElementScanner::NamedVisitor parts[] = {
      {"TITLE",
       [&title](const Element& e) {
         if (!title) title = e;
       }},
      {"ABSTRACT",
       [&abstract](const Element& e) {
         if (!abstract) abstract = e;
       }},
      {"IMPLEMENTATION",
       [&implementation](const Element& e) {
         if (!implementation) implementation = e;
       }},
      {"ISADDONOFSTACK", [&addonOf](const Element& e) { addonOf.push_back(e); }},
      {"FEATURE", [&scanner, &package](const Element& e) { ReadFeature(scanner, e, package->features); }}};
  scanner.ForEachOf(element.inside, parts);
  if (title) package->title = ContentText(*title);
  if (abstract) package->abstract = ContentText(*abstract);
  ReadDynamicAddons(addonOf, *package, dynamicAddons);
  if (implementation) ReadImplementation(scanner, *implementation, *package);
  return package;
}

}  // namespace kx::catalogue::cdf
