#pragma once
// What a software update changes. "install.cdf" names the wanted set of
// packages by NAME and VERSION; "config.cdf" holds the installed set. Each
// wanted package that is not installed in that version is looked up, first
// among the CDF documents that the action directory holds besides
// "install.cdf", then in the local software repository; its files are found
// relative to the directory of its CDF.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "catalogue/repository.h"
#include "daemon/daemon_settings.h"

namespace kx::daemon {

// The update is not carried out and nothing has been changed. `code` is the
// result for "lastAction.xml".
class UpdateRefused : public std::runtime_error {
 public:
  UpdateRefused(int32_t code, const std::string& reason) : std::runtime_error(reason), code_(code) {}
  int32_t Code() const { return code_; }

 private:
  int32_t code_;
};

struct UpdatePlan {
  // The new "config.cdf": the wanted packages in the order of "install.cdf".
  std::vector<const catalogue::Package*> configuration;
  // Installed packages to take away: removed, or replaced by another version.
  std::vector<const catalogue::Package*> removals;
  // Definitions of the packages to put in: added, or another version.
  std::vector<const catalogue::Package*> installs;
  // Installed packages that stay as they are.
  std::vector<const catalogue::Package*> kept;
};

// Reads the catalogues and owns what the plan points into.
class UpdateCatalogues {
 public:
  // `actionDirectory`: where "install.cdf" lies. Throws UpdateRefused when a
  // document cannot be read.
  UpdateCatalogues(const std::string& actionDirectory, const DaemonSettings& settings);
  UpdateCatalogues(const UpdateCatalogues&) = delete;
  UpdateCatalogues& operator=(const UpdateCatalogues&) = delete;

  // Throws UpdateRefused when a wanted package is named twice or has no definition.
  UpdatePlan Plan() const;

 private:
  const catalogue::Package* FindDefinition(const catalogue::Package& wanted) const;

  std::string installCdf_;
  catalogue::Repository installed_;
  catalogue::Repository actionPackages_;
  catalogue::Repository repository_;
  catalogue::PackageList wanted_;
};

// "<title> <version> (<NAME>)", for messages.
std::string Describe(const catalogue::Package& package);

}  // namespace kx::daemon
