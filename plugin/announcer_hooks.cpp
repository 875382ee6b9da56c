#include <exception>
#include <memory>
#include <string>

#include "discovery/mdns_announcer.h"
#include "discovery/mdns_service.h"
#include "kx/tal/log.h"
#include "plugin/plugin_threads.h"

namespace kx::plugin {

void StartAnnouncer(PluginContext& context) {
  context.announcer.reset();  // a repeated orlaInit: the earlier thread is stopped first
  try {
    context.announcer = std::make_unique<discovery::mDnsAnnouncer>();
  } catch (const std::exception& e) {
    KX_LOG(tal::logmask::kError2, std::string("Could not start the mDNS announcer: ") + e.what());
  }
}

void ReapAnnouncerIfFinished(PluginContext& context) {
  if (context.announcer != nullptr && context.announcer->Finished()) context.announcer.reset();
}

void DestroyAnnouncer(PluginContext& context) { context.announcer.reset(); }

void UnregisterAnnouncement() { discovery::mDnsUnregisterService(); }

}  // namespace kx::plugin
