#include "discovery/avahi_wrapper.h"

#include <avahi-common/error.h>
#include <avahi-common/thread-watch.h>
#include <list>

namespace kx::discovery {
namespace {

// How deep this thread is inside callbacks of ours: on the poll's thread the
// poll lock is already held there.
thread_local int callbackDepth = 0;

class InsideCallback {
 public:
  InsideCallback() { ++callbackDepth; }
  ~InsideCallback() { --callbackDepth; }
  InsideCallback(const InsideCallback&) = delete;
  InsideCallback& operator=(const InsideCallback&) = delete;
};

}  // namespace

struct GroupBinding {
  AvahiEntryGroup* group = nullptr;
  AvahiGroupStateCallback callback = nullptr;
  void* userdata = nullptr;
};

struct AvahiPollClient {
  AvahiThreadedPoll* poll = nullptr;
  AvahiClient* client = nullptr;
  bool started = false;
  AvahiClientStateCallback callback = nullptr;
  void* userdata = nullptr;
  // One per entry group; a list, so the addresses Avahi holds stay valid.
  std::list<GroupBinding> groups;
};

namespace {

void OnClientState(AvahiClient* avahiClient, AvahiClientState state, void* userdata) {
  auto& self = *static_cast<AvahiPollClient*>(userdata);
  // The first call comes from inside avahi_client_new, before it has returned.
  if (self.client == nullptr) self.client = avahiClient;
  InsideCallback inside;
  self.callback(self, state, self.userdata);
}

void OnGroupState(AvahiEntryGroup* group, AvahiEntryGroupState state, void* userdata) {
  const auto& binding = *static_cast<GroupBinding*>(userdata);
  InsideCallback inside;
  binding.callback(group, state, binding.userdata);
}

}  // namespace

AvahiPollClient* AvahiClientNew(AvahiClientStateCallback callback, void* userdata, int& error) {
  auto* self = new AvahiPollClient;
  self->callback = callback;
  self->userdata = userdata;
  self->poll = avahi_threaded_poll_new();
  if (self->poll == nullptr) {
    error = AVAHI_ERR_NO_MEMORY;
    delete self;
    return nullptr;
  }
  error = AVAHI_OK;
  AvahiClient* client =
      avahi_client_new(avahi_threaded_poll_get(self->poll), AvahiClientFlags(0), &OnClientState, self, &error);
  if (client == nullptr) {
    avahi_threaded_poll_free(self->poll);
    delete self;
    return nullptr;
  }
  self->client = client;
  return self;
}

void AvahiClientFree(AvahiPollClient* self) {
  if (self == nullptr) return;
  AvahiThreadedPollStop(*self);
  avahi_client_free(self->client);  // frees the groups still left
  avahi_threaded_poll_free(self->poll);
  delete self;
}

AvahiClient* AvahiClientHandle(AvahiPollClient& self) { return self.client; }

AvahiEntryGroup* AvahiEntryGroupNew(AvahiPollClient& self, AvahiGroupStateCallback callback, void* userdata) {
  GroupBinding& binding = self.groups.emplace_back();
  binding.callback = callback;
  binding.userdata = userdata;
  binding.group = avahi_entry_group_new(self.client, &OnGroupState, &binding);
  if (binding.group == nullptr) {
    self.groups.pop_back();
    return nullptr;
  }
  return binding.group;
}

void AvahiEntryGroupFree(AvahiPollClient& self, AvahiEntryGroup* group) {
  if (group == nullptr) return;
  avahi_entry_group_free(group);
  self.groups.remove_if([group](const GroupBinding& binding) { return binding.group == group; });
}

int AvahiThreadedPollStart(AvahiPollClient& self) {
  if (self.started) return AVAHI_OK;
  const int result = avahi_threaded_poll_start(self.poll);
  if (result < 0) return AVAHI_ERR_FAILURE;
  self.started = true;
  return AVAHI_OK;
}

void AvahiThreadedPollStop(AvahiPollClient& self) {
  if (!self.started) return;
  avahi_threaded_poll_stop(self.poll);
  self.started = false;
}

void AvahiThreadedPollLock(AvahiPollClient& self) {
  if (callbackDepth == 0) avahi_threaded_poll_lock(self.poll);
}

void AvahiThreadedPollUnlock(AvahiPollClient& self) {
  if (callbackDepth == 0) avahi_threaded_poll_unlock(self.poll);
}

}  // namespace kx::discovery
