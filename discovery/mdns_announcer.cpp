#include "discovery/mdns_announcer.h"

#include <string>

#include "discovery/mdns_service.h"
#include "kx/tal/log.h"

namespace kx::discovery {

mDnsAnnouncer::mDnsAnnouncer() { Start(kThreadName); }

mDnsAnnouncer::~mDnsAnnouncer() {
  stop_.Raise();
  try {
    Join();
  } catch (const std::exception&) {
    // not joinable: nothing left to wait for
  }
}

int mDnsAnnouncer::proc() {
  KX_LOG(tal::logmask::kEntry, "mDnsAnnouncer::proc()");
  if (mDnsRegisterService(kServiceType, &stop_) == 0 && !stop_.Raised()) {
    KX_LOG(tal::logmask::kError2, std::string("Failed to register service \"") + kServiceType + "\"");
  }
  finished_.store(true, std::memory_order_release);
  return 0;
}

}  // namespace kx::discovery
