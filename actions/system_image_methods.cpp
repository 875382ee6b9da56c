#include "actions/result_codes.h"
#include "actions/web_methods.h"

namespace kx::actions {

// Not built yet: answered as not implemented.
int32_t GetSystemImage(const KeyValuePairList&, uint32_t, std::string&, int32_t& httpStatus, bool&) {
  httpStatus = 500;
  return kResultNotImplemented;
}

int32_t SetSystemImage(const KeyValuePairList&, uint32_t, std::string&, int32_t& httpStatus, bool&) {
  httpStatus = 500;
  return kResultNotImplemented;
}

int32_t Format(const KeyValuePairList&, uint32_t, std::string&, int32_t& httpStatus, bool&) {
  httpStatus = 500;
  return kResultNotImplemented;
}

}  // namespace kx::actions
