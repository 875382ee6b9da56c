#pragma once
// The DNS-SD registration of this controller: one per process. Avahi's threaded
// poll keeps it announced, renamed on collision, until it is withdrawn.

namespace kx::discovery {

class StopSignal;

constexpr char kServiceType[] = "_kx-swinstl._tcp";

// Registers the controller under its host name as an instance of
// `serviceType`, on the system web server's port, after asking the local
// web-server locator for it (up to 30 attempts a second apart). A registration
// already in place is withdrawn first. Returns 1 on success, 0 on failure; also
// 0, with nothing registered, when `stop` is raised while the locator is asked.
int mDnsRegisterService(const char* serviceType, const StopSignal* stop = nullptr);

// Withdraws the registration and frees it; does nothing when there is none.
void mDnsUnregisterService();

}  // namespace kx::discovery
