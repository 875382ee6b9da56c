#pragma once
// The plug-in's two threads of its own, as the frame drives them.

namespace kx::plugin {

// The mDNS announcer: created by orlaInit, reaped by the first request after it
// has finished, destroyed by orlaFinalize, which also withdraws the announcement.
// All four run under the plug-in lock.
void StartAnnouncer();
void ReapAnnouncerIfFinished();
void DestroyAnnouncer();
void UnregisterAnnouncement();

// After a successful request that asked for it: wakes the installation daemon or
// restarts the controller into install mode, on a thread of its own.
void StartRestartThread();

}  // namespace kx::plugin
