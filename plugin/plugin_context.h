#pragma once
// The plug-in's state from orlaInit to orlaFinalize, in one object: the
// web-method table, the progress region, the announcer, and the services the
// frame and the handlers call. The plug-in lock, the progress mutex and the
// restart thread are static objects instead: they live from load to unload.

#include <memory>

#include "actions/controller_services.h"
#include "discovery/mdns_announcer.h"
#include "kx/tal/osdep/simple_shared_memory.h"
#include "plugin/web_method_table.h"

namespace kx::plugin {

// After a request that asked for it: wakes the installation daemon or restarts
// the controller into install mode.
class Restarter {
 public:
  virtual ~Restarter() = default;
  virtual void Restart() = 0;
};

// The restart thread (plugin/signal_daemon_thread.h) as a Restarter.
Restarter& RestartThreadRestarter();

struct PluginContext {
  PluginContext(actions::ControllerServices& controller, Restarter& restart)
      : services(controller), restarter(restart) {}

  actions::ControllerServices& services;
  Restarter& restarter;
  WebMethodTable methods;
  std::unique_ptr<tal::osdep::SimpleSharedMemory> progressRegion;  // null when it could not be made
  std::unique_ptr<discovery::mDnsAnnouncer> announcer;             // guarded by the plug-in lock
};

// The services the next start builds its context with (null: the controller's
// own, the restart thread). For tests; not while the plug-in runs.
void UseServicesOnNextStart(actions::ControllerServices* services, Restarter* restarter);

}  // namespace kx::plugin
