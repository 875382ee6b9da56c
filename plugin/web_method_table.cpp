#include "plugin/web_method_table.h"

#include <mutex>

#include "actions/web_methods.h"
#include "exchange/result_codes.h"

namespace kx::plugin {

int32_t NotImplementedHandler(const KeyValuePairList&, uint32_t, std::string&, int32_t& httpStatus, bool&) {
  httpStatus = 500;
  return exchange::kResultNotImplemented;
}

void WebMethodTable::Fill() {
  // Alphabetical, as the table is ordered.
  static const std::pair<const char*, webrequest::WebMethodHandler> kMethods[] = {
      {"BeginAction", actions::BeginAction},
      {"Browse", NotImplementedHandler},
      {"CancelAction", actions::CancelAction},
      {"FinalizeAction", actions::FinalizeAction},
      {"Format", actions::Format},
      {"GetSystemImage", actions::GetSystemImage},
      {"InstalledComponents", actions::InstalledComponents},
      {"Ping", actions::Ping},
      {"Progress", actions::Progress},
      {"Resolve", NotImplementedHandler},
      {"SetSystemImage", actions::SetSystemImage},
      {"SoftwareUpdate", actions::SoftwareUpdate},
  };
  for (const auto& [name, handler] : kMethods) Insert(name, handler);
}

void WebMethodTable::Insert(const std::string& name, webrequest::WebMethodHandler handler) {
  std::unique_lock<std::shared_mutex> guard(lock_);
  handlers_[name] = handler;
}

void WebMethodTable::Clear() {
  std::unique_lock<std::shared_mutex> guard(lock_);
  handlers_.clear();
}

webrequest::WebMethodHandler WebMethodTable::Find(const std::string& name) const {
  std::shared_lock<std::shared_mutex> guard(lock_);
  const auto found = handlers_.find(name);
  return found == handlers_.end() ? nullptr : found->second;
}

size_t WebMethodTable::Size() const {
  std::shared_lock<std::shared_mutex> guard(lock_);
  return handlers_.size();
}

}  // namespace kx::plugin
