#include "daemon/transaction_location.h"

#include "exchange/paths.h"
#include "kx/tal/path.h"

namespace kx::daemon {

Transaction::Paths DaemonTransactionPaths() {
  return Transaction::Paths{tal::RootedPath("/var/local/kx/transaction"), exchange::InstalledConfigurationPath(),
                            exchange::FailedInstallationMarkerPath()};
}

}  // namespace kx::daemon
