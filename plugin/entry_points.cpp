// The plug-in's only exported symbols.

#include <cstdint>

#include "plugin/lifecycle.h"

#define KX_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

KX_PLUGIN_EXPORT void orlaInit() { kx::plugin::PluginInit(); }

KX_PLUGIN_EXPORT void orlaRun(kx::webruntime::WebRequest* request, uint32_t handle) {
  kx::plugin::PluginRun(request, handle);
}

KX_PLUGIN_EXPORT int32_t orlaPause(int32_t value) { return value; }

KX_PLUGIN_EXPORT int32_t orlaResume(int32_t value) { return value; }

KX_PLUGIN_EXPORT void orlaFinalize() { kx::plugin::PluginFinalize(); }
