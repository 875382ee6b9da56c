// kx-webhost: serves the software-installation plug-in over HTTP.
//
// Start-up: options, system root, plug-in loaded, listening, orlaInit, then
// "listening on http://HOST:PORT" on stdout. SIGINT or SIGTERM: no new
// requests, those running finish, orlaFinalize, exit 0.

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/locator.h"
#include "host/options.h"
#include "host/plugin_library.h"
#include "host/shutdown_signal.h"
#include "host/upload_store.h"
#include "host/web_server.h"

namespace {

using namespace kx::webhost;

// The root is made absolute: the plug-in and the programs it starts may change
// their working directory.
void SetSystemRoot(const std::string& root) {
  char* absolute = ::realpath(root.c_str(), nullptr);
  if (absolute == nullptr) throw std::runtime_error("--root: no such directory: " + root);
  ::setenv("KX_SYSTEM_ROOT", absolute, 1);
  std::free(absolute);
}

int Serve(const HostOptions& options) {
  InstallShutdownHandlers();
  if (!options.root.empty()) SetSystemRoot(options.root);
  const std::string pluginPath = options.pluginPath.empty() ? DefaultPluginPath() : options.pluginPath;
  const PluginLibrary plugin = options.baseline ? PluginLibrary::Baseline() : PluginLibrary::Load(pluginPath);
  RemoveLeftoverUploads();

  WebServer server(options, plugin);
  server.Start();
  std::unique_ptr<Locator> locator;
  if (options.locatorPort != 0) {
    locator = std::make_unique<Locator>(options.locatorPort, server.Port());
    locator->Start();
  }
  plugin.Init();
  server.SetReady(true);
  const bool ipv6 = options.listenHost.find(':') != std::string::npos;
  std::cout << "kx-webhost: listening on http://" << (ipv6 ? "[" + options.listenHost + "]" : options.listenHost) << ":"
            << server.Port() << std::endl;
  if (options.baseline)
    std::cout << "kx-webhost: baseline: no plug-in, every web method answers a fixed document" << std::endl;

  const int signal = WaitForShutdownSignal();
  std::cout << "kx-webhost: signal " << signal << ", stopping" << std::endl;
  if (locator) locator->Stop();
  server.Stop();
  plugin.Finalize();
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  HostOptions options;
  try {
    options = ParseOptions(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const UsageError& e) {
    std::cerr << "kx-webhost: " << e.what() << "\n" << kUsage;
    return 2;
  }
  try {
    return Serve(options);
  } catch (const std::exception& e) {
    std::cerr << "kx-webhost: " << e.what() << "\n";
    return EXIT_FAILURE;
  }
}
