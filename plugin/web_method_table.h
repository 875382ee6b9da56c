#pragma once
// Web-method name → handler, ordered by name, compared byte-wise.

#include <map>
#include <shared_mutex>
#include <string>

#include "webrequest/request_helpers.h"

namespace kx::plugin {

// The answer of "Browse" and "Resolve", and of every method whose handler is
// not built yet: HTTP 500, not implemented, no body.
int32_t NotImplementedHandler(const KeyValuePairList& form, uint32_t request, std::string& output, int32_t& httpStatus,
                              bool& restart);

class WebMethodTable {
 public:
  // Inserts the twelve web methods, overwriting entries of the same name.
  void Fill();
  void Insert(const std::string& name, webrequest::WebMethodHandler handler);
  void Clear();
  // Null when the name is not in the table.
  webrequest::WebMethodHandler Find(const std::string& name) const;
  size_t Size() const;

 private:
  mutable std::shared_mutex lock_;  // requests read while orlaInit/orlaFinalize may write
  std::map<std::string, webrequest::WebMethodHandler> handlers_;
};

}  // namespace kx::plugin
