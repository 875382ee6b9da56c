#pragma once
// The web methods of the installation actions. Each is a WebMethodHandler:
// (form values, request handle, output text, HTTP status, restart flag) → result.

#include <cstdint>
#include <string>

#include "platform/webruntime/web_runtime.h"

namespace kx::actions {

#define KX_WEB_METHOD(Name) \
  int32_t Name(const KeyValuePairList& form, uint32_t request, std::string& output, int32_t& httpStatus, bool& restart)

// Starting, finishing and dropping an action.
KX_WEB_METHOD(BeginAction);
KX_WEB_METHOD(FinalizeAction);
KX_WEB_METHOD(CancelAction);
// Following the target.
KX_WEB_METHOD(Ping);
KX_WEB_METHOD(Progress);
// Work inside an action.
KX_WEB_METHOD(SoftwareUpdate);
KX_WEB_METHOD(GetSystemImage);
KX_WEB_METHOD(SetSystemImage);
KX_WEB_METHOD(Format);
// The installed configuration.
KX_WEB_METHOD(InstalledComponents);

#undef KX_WEB_METHOD

}  // namespace kx::actions
