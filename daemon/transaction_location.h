#pragma once
// Where the daemon keeps the transaction of every change it makes to the
// controller (software update, image restore): "/var/local/kx/transaction"
// below the system root. Not in the action exchange directory: the plug-in
// clears that directory when it finds an action left over after a power loss,
// and the journal and backups must outlive that until the daemon's next start
// rolls the interrupted change back. On the same file system as the installed
// files, so that backups are hard links.

#include "daemon/transaction.h"

namespace kx::daemon {

Transaction::Paths DaemonTransactionPaths();

}  // namespace kx::daemon
