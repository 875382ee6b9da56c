#pragma once
// What the five exported entry points do: start-up, dispatch of one request,
// and shut-down of the plug-in's process-wide state.

#include <cstdint>

#include "platform/webruntime/web_runtime.h"
#include "plugin/plugin_context.h"
#include "plugin/web_method_table.h"

namespace kx::plugin {

void PluginInit();
void PluginRun(webruntime::WebRequest* request, uint32_t handle);
void PluginFinalize();

// The web-method table of the plug-in's context (an empty one before orlaInit
// and after orlaFinalize).
WebMethodTable& MethodTable();

}  // namespace kx::plugin
