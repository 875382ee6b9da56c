#include "catalogue/repository.h"

#include <atomic>
#include <mutex>

#include "catalogue/dynamic_addon_join.h"
#include "catalogue/legacy_packages.h"
#include "catalogue/status.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/file_finder.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"

namespace kx::catalogue {
namespace {

// Recursive: a query holds it while it runs Load(), which takes it again.
std::recursive_mutex& CatalogueLock() {
  static std::recursive_mutex lock;
  return lock;
}

// Numbers successful loads across all repositories of the process.
std::atomic<uint32_t> loadCounter{0};

template <class List>
void MoveAppend(List& to, List& from) {
  to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
}

}  // namespace

Repository::Repository(std::string directory) : directory_(std::move(directory)) {}

Repository::~Repository() = default;

int Repository::Load() {
  if (!tal::PathExists(directory_)) return status::kDirectoryMissing;
  try {
    tal::FindFiles(directory_, "*");
  } catch (const tal::exception::Exception&) {
    return status::kIoFailure;
  }
  StartLoad();
  try {
    if (LoadDirectory(directory_, true) != status::kOk) {
      loaded_ = false;
      return status::kIoFailure;
    }
    AddLegacyPackages(*this);
    return FinishLoad();
  } catch (const tal::exception::Exception&) {
    loaded_ = false;
    return status::kIoFailure;
  }
}

int Repository::LoadOneDocument(const std::string& path) {
  documentPath_ = path;
  StartLoad();
  try {
    const int result = LoadFile(path);
    if (result < 0) {
      loaded_ = false;
      return result;
    }
    static_cast<void>(FinishLoad());  // the load's own status is the answer
    return result;
  } catch (const tal::exception::Exception&) {
    loaded_ = false;
    return status::kIoFailure;
  }
}

// The flag is cleared under the lock and set again at once: it means "a load is
// in progress or succeeded".
void Repository::StartLoad() {
  {
    std::lock_guard<std::recursive_mutex> lock(CatalogueLock());
    packages_.clear();
    sections_.clear();
    stacks_.clear();
    loaded_ = false;
  }
  loaded_ = true;
}

int Repository::FinishLoad() {
  generation_ = ++loadCounter;
  JoinDynamicAddons();
  ExtendVisibilityTable(visibility_, packages_);
  return status::kOk;
}

int Repository::LoadDirectory(const std::string& directory, bool skipPostProcessing) {
  if (directory.empty()) return status::kInvalidInput;
  std::vector<std::string> files;
  try {
    files = tal::FindFiles(directory, "*.cdf");
  } catch (const tal::exception::Exception&) {
    return status::kIoFailure;
  }
  for (const std::string& file : files) static_cast<void>(LoadFile(file));  // a bad file only contributes nothing
  if (!skipPostProcessing) {
    JoinDynamicAddons();
    ExtendVisibilityTable(visibility_, packages_);
  }
  return status::kOk;
}

int Repository::LoadUserComponents() { return LoadDirectory(tal::JoinPath(directory_, "User Components"), true); }

int Repository::LoadFile(const std::string& path) {
  if (path.empty()) return status::kInvalidInput;
  const std::string directory = tal::DirectoryPart(path);
  if (directory.empty()) return status::kIoFailure;
  std::string text;
  try {
    text = tal::ReadWholeFile(path);
  } catch (const tal::exception::Exception&) {
    return status::kIoFailure;
  }
  return LoadText(text, directory, path);
}

int Repository::LoadText(std::string_view text, const std::string& directory, const std::string& path) {
  PackageList packages;
  StackList stacks;
  SectionList sections;
  DynamicAddonList addons;
  const int result = ReadCdfDocument(text, packages, stacks, sections, addons);
  if (result != status::kOk) return result;  // empty, or a version the reader refuses
  for (auto& package : packages) {
    package->sourcePath = directory;
    package->cdfFile = path;
  }
  for (auto& stack : stacks) stack->sourcePath = directory;
  MoveAppend(packages_, packages);
  MoveAppend(stacks_, stacks);
  MoveAppend(sections_, sections);
  MoveAppend(dynamicAddons_, addons);
  return result;
}

void Repository::JoinDynamicAddons() {
  for (const DynamicAddon& addon : dynamicAddons_) {
    for (auto& stack : stacks_) JoinDynamicAddon(*stack, addon);
  }
}

ComponentType Repository::Visibility(std::string_view name, ComponentType fallback) const {
  const auto entry = visibility_.find(name);
  return entry == visibility_.end() ? fallback : entry->second;
}

int Repository::EnsureLoaded() {
  std::lock_guard<std::recursive_mutex> lock(CatalogueLock());
  if (loaded_) return status::kOk;
  const int result = documentPath_.empty() ? Load() : LoadOneDocument(documentPath_);
  return result < 0 ? result : status::kOk;  // an empty document is loaded too
}

QueryResult<Package> Repository::SupportedPackages(std::string_view processor, std::string_view deviceClass,
                                                   std::string_view osName, bool allTypes) {
  QueryResult<Package> result;
  result.status = EnsureLoaded();
  if (result.status != status::kOk) return result;
  for (const auto& package : packages_) {
    if (!allTypes && package->type != ComponentType::kVisible) continue;
    if (CheckTargetSupport(*package, processor, deviceClass, osName, Version{}, true) == status::kOk) {
      result.entries.push_back(package.get());
    }
  }
  return result;
}

QueryResult<SoftwareSet> Repository::SupportedStacks(std::string_view processor, std::string_view deviceClass,
                                                     std::string_view osName) {
  QueryResult<SoftwareSet> result;
  result.status = EnsureLoaded();
  if (result.status != status::kOk) return result;
  for (const auto& stack : stacks_) {
    if (CheckTargetSupport(*stack, processor, deviceClass, osName, Version{}, true) == status::kOk) {
      result.entries.push_back(stack.get());
    }
  }
  return result;
}

const Package* Repository::FindPackage(std::string_view name) const {
  for (const auto& package : packages_) {
    if (NamesEqual(package->name, name)) return package.get();
  }
  return nullptr;
}

}  // namespace kx::catalogue
