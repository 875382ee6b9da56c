#include "plugin/plugin_threads.h"

namespace kx::plugin {

// The signalling thread is not built yet.
void StartRestartThread() {}

}  // namespace kx::plugin
