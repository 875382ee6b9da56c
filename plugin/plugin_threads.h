#pragma once
// The mDNS announcer as the frame drives it: created by orlaInit, reaped by the
// first request after it has finished, destroyed by orlaFinalize, which also
// withdraws the announcement. All four run under the plug-in lock.

#include "plugin/plugin_context.h"

namespace kx::plugin {

void StartAnnouncer(PluginContext& context);
void ReapAnnouncerIfFinished(PluginContext& context);
void DestroyAnnouncer(PluginContext& context);
void UnregisterAnnouncement();

}  // namespace kx::plugin
