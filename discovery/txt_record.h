#pragma once
// The TXT record of the announced service: "DevClass", "OS", "ProdId" and
// "server" in key order, then "MAC".

#include <avahi-common/strlst.h>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "platform/target_config.h"

namespace kx::discovery {

struct TxtListDeleter {
  void operator()(AvahiStringList* list) const { avahi_string_list_free(list); }
};
// An Avahi string list; Avahi's empty list is null. Avahi adds at the front,
// so walking the list visits the entries last added first.
using TxtList = std::unique_ptr<AvahiStringList, TxtListDeleter>;

using TxtPairs = std::map<std::string, std::string>;

constexpr char kOperatingSystem[] = "Linux-ARMv7-A";

// The four pairs gathered before registration.
TxtPairs ServiceTxtPairs(const std::string& targetClass, uint32_t targetId, const std::string& scheme);

// "0x" and at least four upper-case hexadecimal digits.
std::string FormatProductId(uint32_t targetId);
// Six upper-case hexadecimal bytes joined by ":".
std::string FormatMacAddress(const MacAddress& mac);

// A list of `pairs` added in key order, each addition logged. False, with the
// failure logged and `list` empty, when an addition fails.
bool BuildTxtList(const TxtPairs& pairs, TxtList& list);

// Adds "MAC" with the controller's default MAC address, unless the list has a
// "MAC" entry already or the address cannot be read.
void AddMacAddressIfAbsent(TxtList& list);

}  // namespace kx::discovery
