#include "plugin/plugin_threads.h"

namespace kx::plugin {

// The announcer is not built yet: nothing to start, reap or withdraw.
void StartAnnouncer() {}
void ReapAnnouncerIfFinished() {}
void DestroyAnnouncer() {}
void UnregisterAnnouncement() {}

}  // namespace kx::plugin
