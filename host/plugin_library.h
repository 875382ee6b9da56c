#pragma once
// The plug-in the host serves: its entry points loaded with dlopen, or a
// built-in stand-in that answers every request with a fixed document, the
// baseline against which the cost of the plug-in is measured.

#include <cstdint>
#include <string>

#include "platform/webruntime/web_runtime.h"

namespace kx::webhost {

class PluginLibrary {
 public:
  // Loads the shared object and resolves all five entry points. Throws
  // std::runtime_error naming the path and what failed.
  static PluginLibrary Load(const std::string& path);
  static PluginLibrary Baseline();

  void Init() const { init_(); }
  void Run(webruntime::WebRequest* request, uint32_t handle) const { run_(request, handle); }
  void Finalize() const { finalize_(); }

 private:
  PluginLibrary() = default;

  // The library is never closed: threads of the plug-in may still be ending
  // when the process exits.
  void (*init_)() = nullptr;
  void (*run_)(webruntime::WebRequest*, uint32_t) = nullptr;
  void (*finalize_)() = nullptr;
};

// The plug-in built beside this executable: "../plugin/libkxswinstl.so" from
// the executable's directory in the build tree, else "libkxswinstl.so" in that
// directory or in "../lib". The first candidate when none exists.
std::string DefaultPluginPath();

}  // namespace kx::webhost
