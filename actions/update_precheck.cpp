#include "actions/update_precheck.h"

#include "catalogue/repository.h"
#include "exchange/paths.h"
#include "exchange/result_codes.h"

namespace kx::actions {

int32_t SoftwareUpdatePreCheck(const std::string& action) {
  catalogue::Repository installed(exchange::ConfigurationDirectory());
  const int loadStatus = installed.LoadOneDocument(exchange::InstalledConfigurationPath());
  if (loadStatus < 0) return loadStatus;
  const auto stacks = installed.SupportedStacks();
  if (stacks.status != 0 || stacks.entries.empty()) return exchange::kResultOk;
  if (!catalogue::BlocksSoftwareUpdate(*stacks.entries.front())) return exchange::kResultOk;
  return action.empty() ? exchange::kResultUpdateBlockedNoAction : exchange::kResultUpdateBlocked;
}

}  // namespace kx::actions
