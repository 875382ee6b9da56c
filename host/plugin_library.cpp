#include "host/plugin_library.h"

#include <dlfcn.h>
#include <unistd.h>

#include <stdexcept>

#include "kx/tal/path.h"

namespace kx::webhost {
namespace {

void* Resolve(void* library, const std::string& path, const char* symbol) {
  void* address = ::dlsym(library, symbol);
  if (address == nullptr) throw std::runtime_error(path + ": no entry point " + symbol);
  return address;
}

constexpr char kFixedDocument[] = "<?xml version=\"1.0\"?>\n<Ping Result=\"0\" Version=\"20.0.0\" Mode=\"0\" />\n";

void BaselineRun(webruntime::WebRequest*, uint32_t handle) {
  SetHTTPResponseMimeType_C_REST_VELO_(handle, "text/xml");
  WriteOutput_C_REST_VELO_(handle, kFixedDocument, sizeof kFixedDocument - 1);
}

void Nothing() {}

}  // namespace

PluginLibrary PluginLibrary::Load(const std::string& path) {
  void* library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(::dlerror());
  PluginLibrary plugin;
  plugin.init_ = reinterpret_cast<void (*)()>(Resolve(library, path, "orlaInit"));
  plugin.run_ = reinterpret_cast<void (*)(webruntime::WebRequest*, uint32_t)>(Resolve(library, path, "orlaRun"));
  // Resolved so that an incomplete plug-in is refused; the host never pauses it.
  Resolve(library, path, "orlaPause");
  Resolve(library, path, "orlaResume");
  plugin.finalize_ = reinterpret_cast<void (*)()>(Resolve(library, path, "orlaFinalize"));
  return plugin;
}

PluginLibrary PluginLibrary::Baseline() {
  PluginLibrary plugin;
  plugin.init_ = Nothing;
  plugin.run_ = BaselineRun;
  plugin.finalize_ = Nothing;
  return plugin;
}

std::string DefaultPluginPath() {
  char executable[4096];
  const ssize_t length = ::readlink("/proc/self/exe", executable, sizeof executable - 1);
  const std::string directory =
      length > 0 ? tal::DirectoryPart(std::string(executable, static_cast<size_t>(length))) : ".";
  const std::string candidates[] = {
      tal::CleanPath(directory + "/../plugin/libkxswinstl.so"),
      directory + "/libkxswinstl.so",
      tal::CleanPath(directory + "/../lib/libkxswinstl.so"),
  };
  for (const std::string& candidate : candidates) {
    if (tal::PathExists(candidate)) return candidate;
  }
  return candidates[0];
}

}  // namespace kx::webhost
