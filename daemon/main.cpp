// kxsid: the installation daemon. It carries out the requests that the plug-in
// leaves in the current action directory: at start-up whatever already waits
// (the controller has just restarted into install mode), then each time the
// event "SoftwareActionRequestReady" is set. SIGTERM or SIGINT end it between
// two steps of its work.
//
//   kxsid [--root DIR]
//
// Prints "kxsid: waiting for requests" once start-up is done.

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>

#include "daemon/progress_reporter.h"
#include "daemon/request_handler.h"
#include "daemon/stop_request.h"
#include "exchange/ipc_names.h"
#include "exchange/paths.h"
#include "kx/tal/osdep/named_event.h"
#include "kx/tal/path.h"

namespace {

constexpr char kUsage[] = "usage: kxsid [--root DIR]\n";
// How often the stop flag is looked at while no request comes.
constexpr uint32_t kWaitSliceMs = 250;

// Made absolute: the programs the daemon starts may work elsewhere.
void SetSystemRoot(const std::string& root) {
  char* absolute = ::realpath(root.c_str(), nullptr);
  if (absolute == nullptr) throw std::runtime_error("--root: no such directory: " + root);
  ::setenv("KX_SYSTEM_ROOT", absolute, 1);
  std::free(absolute);
}

int Run() {
  using namespace kx::daemon;
  ::umask(022);
  InstallStopHandlers();
  kx::tal::CreateDirectories(kx::exchange::ConfigurationDirectory());
  kx::tal::osdep::NamedEvent requestReady(kx::exchange::kRequestReadyEventName);
  ProgressReporter progress;
  RequestHandler handler(progress);
  handler.RecoverInterruptedWork();
  handler.HandlePendingRequests();
  std::cout << "kxsid: waiting for requests" << std::endl;
  while (!StopRequested()) {
    if (requestReady.Wait(kWaitSliceMs)) handler.HandlePendingRequests();
  }
  std::cout << "kxsid: stopped" << std::endl;
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--root") == 0 && i + 1 < argc) {
      try {
        SetSystemRoot(argv[++i]);
      } catch (const std::exception& error) {
        std::cerr << "kxsid: " << error.what() << "\n";
        return 2;
      }
    } else {
      std::cerr << kUsage;
      return std::strcmp(argv[i], "--help") == 0 ? EXIT_SUCCESS : 2;
    }
  }
  try {
    return Run();
  } catch (const std::exception& error) {
    std::cerr << "kxsid: " << error.what() << "\n";
    return EXIT_FAILURE;
  }
}
