#pragma once
// Drives web methods the way the host does: through PluginRun, with the
// in-memory request back-end, in a scratch system root.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "actions/controller_services.h"
#include "exchange/lock_record.h"
#include "exchange/paths.h"
#include "ini/ini_document.h"
#include "platform/action_lock.h"
#include "platform/webruntime/web_runtime.h"
#include "plugin/lifecycle.h"
#include "plugin/plugin_context.h"
#include "tests/support/scratch_root.h"

namespace kx::test {

using Form = std::vector<webruntime::FormField>;

constexpr char kXmlDeclaration[] = "<?xml version=\"1.0\"?>\n";
// Result codes as the host sees them.
constexpr int32_t kFail = int32_t(0x80004005u);
constexpr int32_t kInvalidArgument = int32_t(0x80070057u);
constexpr int32_t kNotLockHolder = int32_t(0x800407E2u);
constexpr int32_t kSaveFailed = int32_t(0x80041CF0u);
constexpr int32_t kValueFailed = int32_t(0x8007000Eu);  // a request-file value the file cannot carry

// The whole answer of most methods: `<method Result="result"/>`, no line end.
inline std::string Answer(const std::string& method, int32_t result) {
  return std::string(kXmlDeclaration) + "<" + method + " Result=\"" + std::to_string(result) + "\"/>";
}

// A value of an INI file as the daemon reads it, or "<unread>".
inline std::string IniText(const std::string& path, const char* section, const char* key) {
  ini::Document document;
  std::string value = "<unread>";
  if (document.Load(path) == 0) document.GetText(section, key, value);
  return value;
}

// The controller as the handlers see it, in memory: whether the daemon runs,
// whether the target is in safe or install mode, the time. The action lock is
// the real one: its files lie in the scratch root.
struct FakeProcessTable final : actions::ProcessTable {
  bool daemonRunning = false;
  bool IsDaemonRunning() override { return daemonRunning; }
};
struct FakeSystemState final : actions::SystemStateService {
  bool safeOrInstallMode = false;
  bool InSafeOrInstallMode() override { return safeOrInstallMode; }
};
struct FixedClock final : actions::Clock {
  std::time_t now = 1600000000;
  std::time_t Now() override { return now; }
};
// Counts the restarts asked for instead of waking a daemon or rebooting.
struct CountingRestarter final : plugin::Restarter {
  std::atomic<int> restarts{0};
  void Restart() override { ++restarts; }
};

class WebMethodTest : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(root / "/tmp");
    std::filesystem::create_directories(root / "/etc/brenmar/share");
    plugin::UseServicesOnNextStart(&services, &restarter);
    plugin::PluginInit();
  }

  void TearDown() override {
    plugin::PluginFinalize();
    plugin::UseServicesOnNextStart(nullptr, nullptr);
  }

  void EnterSafeMode() {
    root.WriteFile("/etc/brenmar/safemode", "");
    systemState.safeOrInstallMode = true;
  }

  // The restarts asked for since the last call.
  int TakeRestarts() { return restarter.restarts.exchange(0); }

  // The action "A1" begun as BeginAction does; its directory, with "/" at the end.
  std::string Begin() const {
    std::string record;
    EXPECT_EQ(::ObtainActionLock("A1", "", record), 0);
    return exchange::CurrentActionDirectory();
  }

  webruntime::MemoryRequest Run(const std::string& method, Form form = {}, std::string body = {},
                                bool uploadList = false, std::vector<webruntime::StoredUpload> uploads = {}) const {
    webruntime::MemoryRequest request;
    request.form = std::move(form);
    request.body = std::move(body);
    request.uploadList = uploadList;
    request.uploads = std::move(uploads);
    webruntime::RequestRegistration registration(request);
    webruntime::WebRequest object("/swinstall/" + method, method);
    plugin::PluginRun(&object, registration.Handle());
    return request;
  }

  ScratchRoot root;
  FakeProcessTable processes;
  FakeSystemState systemState;
  FixedClock clock;
  CountingRestarter restarter;
  actions::ControllerServices services{actions::ControllersOwnServices().actionLock, systemState, processes, clock};
};

}  // namespace kx::test
