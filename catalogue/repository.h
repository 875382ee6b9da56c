#pragma once
// The in-memory software catalogue: every package, stack, section and dynamic
// add-on that the CDF files of one directory describe, plus the built-in legacy
// packages whose payload is present.
//
// Load() starts from empty package, stack and section lists each time, but the
// dynamic add-on list and the visibility table are kept from earlier loads and
// only grow: add-ons are joined only to stacks that lack them, and a name keeps
// the visibility it was first given. One thread uses a repository at a time;
// a process-wide lock guards the clearing of the lists and the "load if not
// loaded" step of the queries.
//
// The action methods use it like this:
//   Repository installed(configDirectory);
//   int status = installed.LoadOneDocument(JoinPath(configDirectory, "config.cdf"));
//   if (status < 0) ...  // the configuration could not be loaded
//   // software-update pre-check: the first stack decides
//   auto stacks = installed.SupportedStacks();
//   if (stacks.status == 0 && !stacks.entries.empty() && BlocksSoftwareUpdate(*stacks.entries.front())) ...
//   // safe-mode check
//   bool safeMode = installed.FindPackage(kSafeModeComponent) != nullptr;

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue/cdf_reader.h"
#include "catalogue/visibility_table.h"

namespace kx::catalogue {

// The component whose presence in the installed configuration means that the
// controller runs its safe-mode software set.
constexpr const char* kSafeModeComponent = "{217664C0-3392-4B49-A504-A9D4807906CA}";

// The update-blocking flag of the pre-check's first entry is the stack's package-
// system flag (OPKGSYSTEM="YES"): software installed as a package-system stack is
// managed by the package system, so a CDF software update must not replace it.
inline bool BlocksSoftwareUpdate(const SoftwareSet& stack) { return stack.packageSystem; }

// Entries of a query: `status` is 0, or the negative status of the load that the
// query had to run first (then `entries` is empty).
template <class Entry>
struct QueryResult {
  int status = 0;
  std::vector<const Entry*> entries;
};

class Repository {
 public:
  explicit Repository(std::string directory);
  virtual ~Repository();
  Repository(const Repository&) = delete;
  Repository& operator=(const Repository&) = delete;

  // Fills the repository from its directory's "*.cdf" files (in name order) and
  // the legacy packages. 0; -17 when the directory does not exist; -8 when it
  // cannot be listed or a foundation exception occurs (the loaded flag is then
  // cleared). A bad file is skipped silently.
  [[nodiscard]] int Load();

  // Load() for one document in place of the directory, without legacy packages:
  // for the installed configuration ("config.cdf"). Returns LoadFile's status;
  // a negative one clears the loaded flag. From then on the queries reload this
  // document, not the directory, when the repository is not loaded.
  [[nodiscard]] int LoadOneDocument(const std::string& path);

  // Appends the "*.cdf" files of `directory`; unless `skipPostProcessing`, then
  // joins add-ons and extends the visibility table. -1 for an empty path, -8
  // when the directory cannot be listed, else 0 whatever the files held.
  [[nodiscard]] int LoadDirectory(const std::string& directory, bool skipPostProcessing);
  // The subdirectory "User Components", without post-processing.
  [[nodiscard]] int LoadUserComponents();
  // -1 for an empty path; -8 when the file cannot be read or the path has no
  // directory part; else LoadText's status.
  [[nodiscard]] int LoadFile(const std::string& path);
  // Reads the document and, on status 0, appends its entries, giving each package
  // `directory` as sourcePath and `path` as cdfFile. No duplicate check: equal
  // NAME and VERSION from two files give two entries. Returns 0, 1 or -11.
  [[nodiscard]] int LoadText(std::string_view text, const std::string& directory, const std::string& path);

  // The visibility table's entry for the name, or `fallback` when it has none.
  ComponentType Visibility(std::string_view name, ComponentType fallback) const;

  // Packages for which CheckTargetSupport (OS compared by name only) answers 0;
  // only VISIBLE ones unless `allTypes`. Loads the catalogue first when needed.
  QueryResult<Package> SupportedPackages(std::string_view processor, std::string_view deviceClass,
                                         std::string_view osName, bool allTypes);
  // Stacks for which CheckTargetSupport answers 0, without a type filter. With
  // no target values every stack is listed. Loads the catalogue first when needed.
  QueryResult<SoftwareSet> SupportedStacks(std::string_view processor = {}, std::string_view deviceClass = {},
                                           std::string_view osName = {});

  // The first package named `name` (NamesEqual), or null when there is none.
  const Package* FindPackage(std::string_view name) const;

  const std::string& Directory() const { return directory_; }
  const PackageList& Packages() const { return packages_; }
  const StackList& Stacks() const { return stacks_; }
  const SectionList& Sections() const { return sections_; }
  const DynamicAddonList& DynamicAddons() const { return dynamicAddons_; }
  bool IsLoaded() const { return loaded_; }
  // The process-wide load counter's value at this repository's last successful load.
  uint32_t Generation() const { return generation_; }

 private:
  void StartLoad();
  [[nodiscard]] int FinishLoad();
  void JoinDynamicAddons();
  [[nodiscard]] int EnsureLoaded();

  std::string directory_;
  std::string documentPath_;  // set by LoadOneDocument
  PackageList packages_;
  SectionList sections_;
  StackList stacks_;
  DynamicAddonList dynamicAddons_;
  VisibilityTable visibility_;
  bool loaded_ = false;
  uint32_t generation_ = 0;
};

}  // namespace kx::catalogue
