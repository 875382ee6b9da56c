#include <exception>
#include <memory>
#include <string>

#include "discovery/mdns_announcer.h"
#include "discovery/mdns_service.h"
#include "kx/tal/log.h"
#include "plugin/plugin_threads.h"

namespace kx::plugin {
namespace {

// Null until orlaInit; null again once reaped or destroyed. Guarded by the plug-in lock.
std::unique_ptr<discovery::mDnsAnnouncer> announcer;

}  // namespace

void StartAnnouncer() {
  announcer.reset();  // a repeated orlaInit: the earlier thread is stopped first
  try {
    announcer = std::make_unique<discovery::mDnsAnnouncer>();
  } catch (const std::exception& e) {
    KX_LOG(tal::logmask::kError2, std::string("Could not start the mDNS announcer: ") + e.what());
  }
}

void ReapAnnouncerIfFinished() {
  if (announcer != nullptr && announcer->Finished()) announcer.reset();
}

void DestroyAnnouncer() { announcer.reset(); }

void UnregisterAnnouncement() { discovery::mDnsUnregisterService(); }

}  // namespace kx::plugin
