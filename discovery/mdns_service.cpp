#include "discovery/mdns_service.h"

#include <atomic>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <memory>
#include <mutex>
#include <string>

#include "discovery/avahi_wrapper.h"
#include "discovery/stop_signal.h"
#include "discovery/system_web_server.h"
#include "discovery/txt_record.h"
#include "kx/tal/log.h"
#include "platform/target_config.h"

namespace kx::discovery {
namespace {

using discovery::AvahiPollClient;
using tal::logmask::kEntry;
using tal::logmask::kError2;
using tal::logmask::kInfo;

// 30 attempts a second apart: the locator may start after this service.
constexpr int kLocatorAllowanceMs = 30000;
constexpr LocatorSchedule kLocatorSchedule{kLocatorAllowanceMs / 1000, std::chrono::milliseconds(1000), 1000};
constexpr uint16_t kDefaultPort = 3580;
constexpr char kDefaultScheme[] = "http";

// Touched by the registering thread (creation), Avahi's poll thread (callbacks,
// which hold the poll lock) and the withdrawing thread (under the poll lock).
struct Registration {
  AvahiEntryGroup* group = nullptr;   // freed with the client at the latest
  AvahiPollClient* client = nullptr;  // as the callbacks see it, which may be before ownedClient is set
  std::string name;
  std::string type;
  const char* domain = nullptr;  // the default domain
  uint16_t port = 0;
  TxtList txt;
  std::atomic<bool> stopping{false};
  AvahiClientPtr ownedClient;  // the client and its threaded poll; last, so freed first
};

std::mutex currentMutex;
std::unique_ptr<Registration> current;

std::string ErrorText(int error) { return avahi_strerror(error); }

// Avahi's next name for a taken one: "name" → "name #2" → "name #3".
bool Rename(Registration& registration) {
  char* alternative = avahi_alternative_service_name(registration.name.c_str());
  if (alternative == nullptr) return false;
  KX_LOG(kInfo, "Service name collision, renaming \"" + registration.name + "\" to \"" + alternative + "\"");
  registration.name = alternative;
  avahi_free(alternative);
  return true;
}

int CreateService(Registration& registration, AvahiPollClient& client);

void OnGroupState(AvahiEntryGroup* group, AvahiEntryGroupState state, void* userdata) {
  auto& registration = *static_cast<Registration*>(userdata);
  if (registration.stopping) return;
  switch (state) {
    case AVAHI_ENTRY_GROUP_ESTABLISHED:
      KX_LOG(kInfo, "Service \"" + registration.name + "\" established");
      break;
    case AVAHI_ENTRY_GROUP_COLLISION:  // another host holds the name
      if (Rename(registration)) {
        avahi_entry_group_reset(group);
        const int error = CreateService(registration, *registration.client);
        if (error < 0) KX_LOG(kError2, "Failed to add the renamed service: " + ErrorText(error));
      }
      break;
    case AVAHI_ENTRY_GROUP_FAILURE:
      KX_LOG(kError2, "Entry group failure: " + ErrorText(avahi_client_errno(avahi_entry_group_get_client(group))));
      break;
    default:
      break;
  }
}

// Adds the service to the entry group and commits it, unless the group holds it already.
int CreateService(Registration& registration, AvahiPollClient& client) {
  discovery::AvahiPollLock lock(client);
  if (registration.group == nullptr) {
    registration.group = discovery::AvahiEntryGroupNew(client, &OnGroupState, &registration);
    if (registration.group == nullptr) return avahi_client_errno(discovery::AvahiClientHandle(client));
  }
  if (!avahi_entry_group_is_empty(registration.group)) return AVAHI_OK;
  for (;;) {
    const int error = avahi_entry_group_add_service_strlst(
        registration.group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags(0), registration.name.c_str(),
        registration.type.c_str(), registration.domain, nullptr, registration.port, registration.txt.get());
    if (error == AVAHI_OK) return avahi_entry_group_commit(registration.group);
    if (error != AVAHI_ERR_COLLISION || !Rename(registration)) return error;
    avahi_entry_group_reset(registration.group);
  }
}

void OnClientState(AvahiPollClient& client, AvahiClientState state, void* userdata) {
  auto& registration = *static_cast<Registration*>(userdata);
  // The first call may come before AvahiClientNew has returned.
  if (registration.client == nullptr) registration.client = &client;
  if (registration.stopping) return;
  switch (state) {
    case AVAHI_CLIENT_S_RUNNING: {
      const int error = CreateService(registration, client);
      if (error < 0) KX_LOG(kError2, "Failed to add service \"" + registration.name + "\": " + ErrorText(error));
      break;
    }
    case AVAHI_CLIENT_S_REGISTERING:  // the host name is being (re)established
    case AVAHI_CLIENT_S_COLLISION:
      if (registration.group != nullptr) avahi_entry_group_reset(registration.group);
      break;
    case AVAHI_CLIENT_FAILURE:
      KX_LOG(kError2, "Avahi client failure: " + ErrorText(avahi_client_errno(discovery::AvahiClientHandle(client))));
      break;
    case AVAHI_CLIENT_CONNECTING:
      break;
  }
}

std::unique_ptr<Registration> TakeCurrent() {
  std::lock_guard<std::mutex> lock(currentMutex);
  return std::move(current);
}

void Withdraw(std::unique_ptr<Registration> registration) {
  if (registration == nullptr) return;
  registration->stopping = true;  // callbacks from now on leave it alone
  {
    discovery::AvahiPollLock lock(*registration->client);
    AvahiEntryGroup* group = registration->group;
    registration->group = nullptr;
    discovery::AvahiEntryGroupFree(*registration->client, group);
  }
  discovery::AvahiThreadedPollStop(*registration->client);
}

// Creates the client, whose callbacks add the service, and starts its poll.
bool Register(const std::string& name, const char* type, uint16_t port, TxtList txt) {
  Withdraw(TakeCurrent());  // the same name must be free again
  AddMacAddressIfAbsent(txt);
  auto registration = std::make_unique<Registration>();
  registration->name = name;
  registration->type = type;
  registration->port = port;
  registration->txt = std::move(txt);

  int error = AVAHI_OK;
  registration->ownedClient.reset(discovery::AvahiClientNew(&OnClientState, registration.get(), error));
  if (registration->ownedClient == nullptr) {
    KX_LOG(kError2, "Could not create the Avahi client: " + ErrorText(error));
    return false;
  }
  registration->client = registration->ownedClient.get();
  error = discovery::AvahiThreadedPollStart(*registration->client);
  if (error < 0) {
    KX_LOG(kError2, "Could not start the Avahi poll: " + ErrorText(error));
    return false;
  }

  std::unique_ptr<Registration> previous;
  {
    std::lock_guard<std::mutex> lock(currentMutex);
    previous = std::move(current);
    current = std::move(registration);
  }
  Withdraw(std::move(previous));  // only if another registration raced this one
  return true;
}

}  // namespace

int mDnsRegisterService(const char* serviceType, const StopSignal* stop) {
  KX_LOG(kEntry, "mDnsRegisterService()");
  std::string targetClass;
  uint32_t targetId = 0;
  // A value that cannot be read stays empty or 0 in the record.
  static_cast<void>(kx_targetcfg_system_GetTargetClass(targetClass));
  static_cast<void>(targetcfgGetTargetID(targetId));

  discovery::WebServerLocation server;
  if (!LocateSystemWebServer(discovery::WebServerLocator(), kLocatorSchedule, stop, server)) {
    if (stop != nullptr && stop->Raised()) return 0;
    KX_LOG(kError2, "Could not obtain local System Web Server port and scheme. Using default.");
    server.port = kDefaultPort;
    server.scheme = kDefaultScheme;
  }

  TxtList txt;
  if (!BuildTxtList(ServiceTxtPairs(targetClass, targetId, server.scheme), txt)) return 0;

  std::string name;
  static_cast<void>(kx_targetcfg_system_GetHostName(name));  // a failure leaves it empty
  KX_LOG(kInfo, "Setting instance name \"" + name + "\", type \"" + serviceType + "\"");

  if (!Register(name, serviceType, server.port, std::move(txt))) return 0;
  KX_LOG(kInfo, "Registered successfully with mDNS module");
  return 1;
}

void mDnsUnregisterService() {
  KX_LOG(kEntry, "mDnsUnregisterService()");
  Withdraw(TakeCurrent());
}

}  // namespace kx::discovery
