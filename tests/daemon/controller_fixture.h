#pragma once
// A scratch controller in install mode with the whole system running: the
// real kx-webhost with the plug-in, the real kxsid, the sample repository.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include "kx/tal/osdep/named_event.h"
#include "tests/daemon/daemon_test_support.h"
#include "tests/host/http_client.h"
#include "tests/host/webhost_process.h"

namespace kx::test {

constexpr char kFormType[] = "application/x-www-form-urlencoded";

inline bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class ControllerFixture : public testing::Test {
 protected:
  void SetUp() override {
    InstallSampleRepository(root);
    root.WriteFile("/tmp/kx_system_state", "Install Mode");
    // A controller always has a configuration: BeginAction's pre-check reads it.
    root.WriteFile("/etc/brenmar/share/config.cdf", "<?xml version=\"1.0\"?>\n<DEFINITION>\n</DEFINITION>\n");
    // The restart: records the boot mode it was asked for.
    root.WriteFile("/sbin/reboot",
                   "#!/bin/sh\ncp \"$KX_SYSTEM_ROOT/tmp/kx_boot_mode_input\" \"$KX_SYSTEM_ROOT/tmp/rebooted\"\n");
    std::filesystem::permissions(root / "/sbin/reboot", std::filesystem::perms::owner_all);
    ASSERT_TRUE(daemon.WaitUntilReady());
  }

  void TearDown() override {
    EXPECT_EQ(host.Stop(SIGTERM), 0);
    EXPECT_EQ(daemon.Stop(SIGTERM), 0);
    tal::osdep::RemoveNamedEvent("SoftwareActionRequestReady");
  }

  std::string Call(const std::string& method, const std::string& form) {
    return Post(host.Port(), "/swinstall/" + method, kFormType, form).body;
  }

  // The Progress answer once the action's result is in, or the last one after 30 s.
  std::string WaitForResult(const std::string& actionId) {
    std::string progress;
    for (int polls = 0; polls < 300; ++polls) {
      progress = Get(host.Port(), "/swinstall/Progress").body;
      if (Contains(progress, "<Last Id=\"" + actionId + "\"") && Contains(progress, "<Current/>")) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return progress;
  }

  // Ends the action; true once its lock is free.
  bool Finalize(const std::string& actionId, const std::string& webMethod, const std::string& postAction) {
    const std::string finalize = Call(
        "FinalizeAction", "ActionID=" + actionId + "&WebMethod=" + webMethod + "&Action=" + postAction + "&Options=0");
    EXPECT_TRUE(Contains(finalize, "Result=\"0\"")) << finalize;
    for (int polls = 0; polls < 300; ++polls) {
      if (std::filesystem::is_empty(root / "/.syscfg-action")) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
  }

  ScratchRoot root;
  DaemonProcess daemon{root.Path()};
  WebhostProcess host{{"--root", root.Path()}};
};

}  // namespace kx::test
