#pragma once
// Carrying out prepared file operations inside a transaction.

#include "daemon/package_files.h"
#include "daemon/transaction.h"

namespace kx::daemon {

// The target is resolved again first, so that links made by earlier operations
// of the same update are followed below the root too. Missing directories are
// made. Throws on failure; the caller rolls the transaction back.
void RunOperation(Transaction& transaction, const FileOperation& operation);

}  // namespace kx::daemon
