#pragma once
// Drives web methods the way the host does: through PluginRun, with the
// in-memory request back-end, in a scratch system root.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kx/tal/osdep/named_event.h"
#include "platform/webruntime/web_runtime.h"
#include "plugin/lifecycle.h"
#include "plugin/signal_daemon_thread.h"
#include "tests/support/scratch_root.h"

namespace kx::test {

using Form = std::vector<webruntime::FormField>;

constexpr char kXmlDeclaration[] = "<?xml version=\"1.0\"?>\n";

class WebMethodTest : public testing::Test {
 protected:
  void SetUp() override {
    // A restart requested by a handler runs this script instead of rebooting.
    root.WriteFile("/sbin/reboot", "#!/bin/sh\nexit 0\n");
    ::chmod((root / "/sbin/reboot").c_str(), 0755);
    std::filesystem::create_directories(root / "/tmp");
    std::filesystem::create_directories(root / "/etc/brenmar/share");
    plugin::PluginInit();
  }

  void TearDown() override {
    plugin::RestartThread().JoinRun();
    plugin::PluginFinalize();
    tal::osdep::RemoveNamedEvent(plugin::kRequestReadyEventName);
  }

  void EnterSafeMode() const { root.WriteFile("/etc/brenmar/safemode", ""); }

  webruntime::MemoryRequest Run(const std::string& method, Form form = {},
                                std::string body = {}) const {
    webruntime::MemoryRequest request;
    request.form = std::move(form);
    request.body = std::move(body);
    webruntime::RequestRegistration registration(request);
    webruntime::WebRequest object("/swinstall/" + method, method);
    plugin::PluginRun(&object, registration.Handle());
    return request;
  }

  ScratchRoot root;
};

}  // namespace kx::test
