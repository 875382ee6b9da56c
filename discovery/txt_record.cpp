#include "discovery/txt_record.h"

#include <cstdio>

#include "kx/tal/log.h"

namespace kx::discovery {
namespace {

constexpr char kMacKey[] = "MAC";

// Adds at the front; on failure the list stays as it was.
bool AddPair(TxtList& list, const std::string& key, const std::string& value) {
  AvahiStringList* longer = avahi_string_list_add_pair_arbitrary(
      list.get(), key.c_str(), reinterpret_cast<const uint8_t*>(value.data()), value.size());
  if (longer == nullptr) return false;
  static_cast<void>(list.release());  // now the tail of `longer`
  list.reset(longer);
  return true;
}

}  // namespace

TxtPairs ServiceTxtPairs(const std::string& targetClass, uint32_t targetId, const std::string& scheme) {
  return TxtPairs{
      {"DevClass", targetClass}, {"OS", kOperatingSystem}, {"ProdId", FormatProductId(targetId)}, {"server", scheme}};
}

std::string FormatProductId(uint32_t targetId) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%04lX", static_cast<unsigned long>(targetId));
  return text;
}

std::string FormatMacAddress(const MacAddress& mac) {
  char text[24];
  std::snprintf(text, sizeof text, "%.02X:%.02X:%.02X:%.02X:%.02X:%.02X", mac[0], mac[1], mac[2], mac[3], mac[4],
                mac[5]);
  return text;
}

bool BuildTxtList(const TxtPairs& pairs, TxtList& list) {
  list.reset();
  for (const auto& [key, value] : pairs) {
    if (!AddPair(list, key, value)) {
      list.reset();
      KX_LOG(tal::logmask::kError, "Error when creating record for (\"" + key + "\", \"" + value + "\")");
      return false;
    }
    KX_LOG(tal::logmask::kInfo, "Adding entry (key, value) = (\"" + key + "\", \"" + value + "\")");
  }
  return true;
}

void AddMacAddressIfAbsent(TxtList& list) {
  if (avahi_string_list_find(list.get(), kMacKey) != nullptr) return;
  MacAddress mac{};
  if (targetcfgGetDefaultMACAddress(mac) != 0) return;  // no address, no entry
  AddPair(list, kMacKey, FormatMacAddress(mac));
}

}  // namespace kx::discovery
