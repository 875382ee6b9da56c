#include "daemon/update_plan.h"

#include <algorithm>

#include "catalogue/status.h"
#include "exchange/paths.h"
#include "exchange/request_files.h"
#include "exchange/result_codes.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"

namespace kx::daemon {
namespace {

using catalogue::Package;

const std::string kCatalogue = exchange::kInstallCatalogueName;

bool SamePackage(const Package& a, const Package& b) {
  return catalogue::NamesEqual(a.name, b.name) && catalogue::VersionPartsEqual(a.version, b.version);
}

const Package* FindIn(const catalogue::Repository& repository, const Package& wanted, const std::string& skipFile) {
  for (const auto& package : repository.Packages()) {
    if (SamePackage(*package, wanted) && tal::LastComponent(package->cdfFile) != skipFile) return package.get();
  }
  return nullptr;
}

bool Contains(const std::vector<const Package*>& list, const Package* package) {
  return std::find(list.begin(), list.end(), package) != list.end();
}

}  // namespace

std::string Describe(const Package& package) {
  return (package.title.empty() ? std::string("package") : package.title) + " " + package.version.text + " (" +
         package.name + ")";
}

UpdateCatalogues::UpdateCatalogues(const std::string& actionDirectory, const DaemonSettings& settings)
    : installCdf_(tal::JoinPath(actionDirectory, exchange::kInstallCatalogueName)),
      installed_(exchange::ConfigurationDirectory()),
      actionPackages_(actionDirectory),
      repository_(settings.repositoryDirectory) {
  const std::string configuration = exchange::InstalledConfigurationPath();
  if (tal::PathExists(configuration) && installed_.LoadOneDocument(configuration) < 0) {
    throw UpdateRefused(exchange::kResultFail, "cannot read the installed configuration " + configuration);
  }

  std::string text;
  try {
    text = tal::ReadWholeFile(installCdf_);
  } catch (const std::exception& error) {
    throw UpdateRefused(exchange::kResultInvalidArgument, "cannot read " + kCatalogue + ": " + error.what());
  }
  catalogue::StackList stacks;
  catalogue::SectionList sections;
  catalogue::DynamicAddonList addons;
  const int status = catalogue::ReadCdfDocument(text, wanted_, stacks, sections, addons);
  if (status == catalogue::status::kUnsupportedCdfVersion) {
    throw UpdateRefused(exchange::kResultInvalidArgument, kCatalogue + ": CDF version 8.0 or later is not supported");
  }
  if (wanted_.empty()) {
    // An update that removes everything is far more likely a mistake than a wish.
    throw UpdateRefused(exchange::kResultInvalidArgument, kCatalogue + " names no package");
  }

  // Packages these catalogues cannot give are refused by name when they are looked for.
  static_cast<void>(actionPackages_.LoadDirectory(actionDirectory, true));
  if (tal::IsDirectory(settings.repositoryDirectory)) static_cast<void>(repository_.Load());
}

const Package* UpdateCatalogues::FindDefinition(const Package& wanted) const {
  if (const Package* found = FindIn(actionPackages_, wanted, exchange::kInstallCatalogueName)) return found;
  return FindIn(repository_, wanted, "");
}

UpdatePlan UpdateCatalogues::Plan() const {
  UpdatePlan plan;
  for (size_t i = 0; i < wanted_.size(); ++i) {
    const Package& wanted = *wanted_[i];
    for (size_t j = 0; j < i; ++j) {
      if (catalogue::NamesEqual(wanted_[j]->name, wanted.name)) {
        throw UpdateRefused(exchange::kResultInvalidArgument, kCatalogue + " names " + wanted.name + " twice");
      }
    }
    const Package* installed = installed_.FindPackage(wanted.name);
    if (installed != nullptr && catalogue::VersionPartsEqual(installed->version, wanted.version)) {
      plan.kept.push_back(installed);
      plan.configuration.push_back(installed);
      continue;
    }
    const Package* definition = FindDefinition(wanted);
    if (definition == nullptr) {
      throw UpdateRefused(
          exchange::kResultUpdateBlocked,
          Describe(wanted) + " is neither in the action directory nor in the repository " + repository_.Directory());
    }
    plan.installs.push_back(definition);
    plan.configuration.push_back(definition);
  }
  for (const auto& installed : installed_.Packages()) {
    if (!Contains(plan.kept, installed.get())) plan.removals.push_back(installed.get());
  }
  return plan;
}

}  // namespace kx::daemon
