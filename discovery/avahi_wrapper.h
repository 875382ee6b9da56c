#pragma once
// Avahi's threaded poll with the one client that runs on it.
//
// Avahi calls the client and entry-group callbacks on the poll's own thread,
// which holds the poll lock while it does. Taking that lock again there would
// deadlock, so AvahiThreadedPollLock and AvahiThreadedPollUnlock do nothing
// inside a callback: code that builds entries takes the lock without caring
// which thread it runs on.

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <memory>

namespace kx::discovery {

struct AvahiPollClient;

using AvahiClientStateCallback = void (*)(AvahiPollClient& client, AvahiClientState state, void* userdata);
using AvahiGroupStateCallback = void (*)(AvahiEntryGroup* group, AvahiEntryGroupState state, void* userdata);

// Creates a threaded poll, not started yet, and a client on it. The callback may
// already run, on this thread, before this returns. On failure returns null
// with Avahi's error code in `error` (AVAHI_ERR_NO_DAEMON when none answers).
AvahiPollClient* AvahiClientNew(AvahiClientStateCallback callback, void* userdata, int& error);
// Stops the poll if it still runs, then frees the client, its entry groups and
// the poll. Null is ignored.
void AvahiClientFree(AvahiPollClient* client);
struct AvahiClientDeleter {
  void operator()(AvahiPollClient* client) const { AvahiClientFree(client); }
};
using AvahiClientPtr = std::unique_ptr<AvahiPollClient, AvahiClientDeleter>;
// The Avahi client itself, for the avahi_client_* calls.
AvahiClient* AvahiClientHandle(AvahiPollClient& client);

// A new entry group of the client; null on failure (avahi_client_errno tells
// why). Call from a callback or under the poll lock.
AvahiEntryGroup* AvahiEntryGroupNew(AvahiPollClient& client, AvahiGroupStateCallback callback, void* userdata);
// Frees a group made by AvahiEntryGroupNew, withdrawing its entries. Call from a
// callback or under the poll lock.
void AvahiEntryGroupFree(AvahiPollClient& client, AvahiEntryGroup* group);

// Starts the poll's thread: 0, or a negative Avahi error code.
int AvahiThreadedPollStart(AvahiPollClient& client);
// Stops the poll's thread and waits for it. Not under the poll lock: the
// thread must be able to take it to see the request.
void AvahiThreadedPollStop(AvahiPollClient& client);
void AvahiThreadedPollLock(AvahiPollClient& client);
void AvahiThreadedPollUnlock(AvahiPollClient& client);

// Holds the poll lock for a scope.
class AvahiPollLock {
 public:
  explicit AvahiPollLock(AvahiPollClient& client) : client_(client) { AvahiThreadedPollLock(client_); }
  ~AvahiPollLock() { AvahiThreadedPollUnlock(client_); }
  AvahiPollLock(const AvahiPollLock&) = delete;
  AvahiPollLock& operator=(const AvahiPollLock&) = delete;

 private:
  AvahiPollClient& client_;
};

}  // namespace kx::discovery
