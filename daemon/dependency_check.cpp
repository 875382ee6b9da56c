#include "daemon/dependency_check.h"

#include "catalogue/target_support.h"
#include "daemon/status_log.h"
#include "exchange/result_codes.h"

namespace kx::daemon {
namespace {

using catalogue::BaseDependency;
using catalogue::Package;

bool IsMet(const BaseDependency& dependency, const std::vector<const Package*>& configuration) {
  for (const Package* candidate : configuration) {
    if (dependency.IsSatisfiedBy(*candidate)) return true;
  }
  return false;
}

std::string DescribeDependency(const BaseDependency& dependency) {
  return (dependency.title.empty() ? std::string() : dependency.title + " ") + dependency.version.text + " (" +
         dependency.name + ")";
}

}  // namespace

void CheckUpdate(const UpdatePlan& plan, const DaemonSettings& settings) {
  for (const Package* package : plan.configuration) {
    for (const auto& dependency : package->dependencies) {
      if (IsMet(*dependency, plan.configuration)) continue;
      const std::string message = Describe(*package) + " needs " + DescribeDependency(*dependency) +
                                  ", which the new configuration does not provide";
      if (!dependency->isSoft) throw UpdateRefused(exchange::kResultUpdateBlocked, message);
      ReportInfo("warning: " + message + " (a soft dependency: the update goes on)");
    }
  }
  for (const Package* package : plan.installs) {
    const int support = catalogue::CheckTargetSupport(*package, settings.processor, settings.deviceClass,
                                                      settings.osName, catalogue::Version{}, true);
    if (support != 0) {
      throw UpdateRefused(exchange::kResultUpdateBlocked,
                          Describe(*package) + " does not suit this controller (processor \"" + settings.processor +
                              "\", device class \"" + settings.deviceClass + "\", OS \"" + settings.osName + "\")");
    }
  }
}

}  // namespace kx::daemon
