#include "daemon/transaction_location.h"

#include "actions/exchange_paths.h"
#include "kx/tal/path.h"

namespace kx::daemon {

Transaction::Paths DaemonTransactionPaths() {
  return Transaction::Paths{tal::RootedPath("/var/local/kx/transaction"), actions::InstalledConfigurationPath(),
                            actions::FailedInstallationMarkerPath()};
}

}  // namespace kx::daemon
