#include "plugin/lifecycle.h"

#include <unistd.h>

#include <cerrno>

#include "actions/progress_state.h"
#include "exchange/paths.h"
#include "exchange/result_codes.h"
#include "ini/ini_document.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/log.h"
#include "kx/tal/osdep/ckx_sync.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/path.h"
#include "kx/tal/string_base.h"
#include "platform/action_lock.h"
#include "platform/progress_region.h"
#include "plugin/plugin_threads.h"

namespace kx::plugin {
namespace {

using tal::logmask::kEntry;
using tal::logmask::kError2;
using tal::logmask::kInfo;

constexpr char kVersion[] = "20.0";
constexpr int kXmlMime = 2;

Tillwork::CkxCS& PluginLock() {
  static Tillwork::CkxCS lock;
  return lock;
}

struct LogSettings {
  int32_t mask = 1;
  int32_t targets = 1;
  int32_t lowDiskThreshold = 0;
};

// A key of "swdiag.ini", first from section "orla", else from "AllComponents".
void ReadSetting(const ini::Document& settings, const char* key, int32_t& value) {
  if (!settings.GetInt32("orla", key, value)) settings.GetInt32("AllComponents", key, value);
}

LogSettings ReadDiagnosticSettings() {
  ini::Document settings;
  static_cast<void>(settings.Load(tal::RootedPath("/etc/brenmar/share/swdiag.ini")));  // missing file: defaults
  LogSettings log;
  ReadSetting(settings, "Severity", log.mask);
  ReadSetting(settings, "Target", log.targets);
  ReadSetting(settings, "LowDiskThreshold", log.lowDiskThreshold);
  return log;
}

std::string LogDirectory() {
  const std::string share = tal::RootedPath("/etc/brenmar/share/kxsyslog");
  return tal::IsDirectory(share) ? share : tal::JoinPath(tal::SharedDataDirectory(), "kxsyslog");
}

// The services the next start builds its context with; null: the real ones.
actions::ControllerServices* gNextServices = nullptr;
Restarter* gNextRestarter = nullptr;

// From orlaInit to orlaFinalize; created and destroyed under the plug-in lock.
std::unique_ptr<PluginContext> gContext;

void CreateProgressRegion(PluginContext& context) {
  if (context.progressRegion != nullptr) return;
  try {
    tal::osdep::NamedMutexLock guard(actions::ProgressMutex());
    context.progressRegion = platform::OpenProgressRegion(&actions::ProgressMutex());
    actions::SetProgressRegion(context.progressRegion.get());
  } catch (const std::exception&) {
    errno = ENOMEM;  // handlers that need the region report their own failure
  }
}

// A current action left by a run that was cut short becomes the last action,
// and its lock is broken: outside safe mode no installation runs while the
// service starts.
void ConvertLeftoverAction() {
  if (exchange::IsSafeMode() || exchange::CurrentActionDirectory().empty()) return;
  std::string lastActionId;
  if (ConvertCurrentActionProgress(lastActionId) < 0) KX_LOG(kError2, "Could not convert the leftover action");
  KX_LOG(kInfo, "Converted Current Action to Last. Last Action was " + lastActionId);
  if (ForceRemoveActionLock() < 0) KX_LOG(kError2, "Could not remove the leftover action's lock");
}

void DeleteInstallationStatusLog() {
  const std::string path = exchange::InstallationStatusLogPath();
  tal::osdep::RetryOnInterrupt([&] { return ::unlink(path.c_str()); });
}

void WriteOutput(uint32_t handle, const std::string& output) {
  webrequest::SetResponseStreamMimeType(kXmlMime, handle);
  WriteOutput_C_REST_VELO_(handle, output.data(), static_cast<uint32_t>(output.size()));
}

// The name through a wide-text round trip, which refuses text that is not
// UTF-8 (InvalidSequence) and leaves ASCII as it is: ASCII skips it.
std::string MethodKey(const char* name) {
  std::string key(name);
  for (const char c : key) {
    if (static_cast<unsigned char>(c) >= 0x80) return tal::WideToUtf8(tal::Utf8ToWide(key));
  }
  return key;
}

// Runs the handler of the request's method and writes its answer. Returns the
// result code; exceptions pass to the caller.
int32_t Dispatch(webruntime::WebRequest* request, uint32_t handle, bool& restart) {
  const std::string key = MethodKey(request->MethodName());
  KeyValuePairList form;
  ReadAllFormData_C_REST_VELO_(handle, &form);
  std::string output;
  int32_t httpStatus = 200;

  const webrequest::WebMethodHandler handler = gContext != nullptr ? gContext->methods.Find(key) : nullptr;
  if (handler == nullptr) {
    webrequest::ResponseError(handle, 501, "Unimplemented");
    KX_LOG(kError2, "Given: " + key + " which is not an implemented function.");
    return exchange::kResultFail;
  }
  const int32_t result = handler(form, handle, output, httpStatus, restart);
  if (result >= 0) {
    WriteOutput(handle, output);  // the host's own status (200) stands
  } else {
    SetHTTPResponseCode_VELO_(handle, httpStatus);
    if (!output.empty()) WriteOutput(handle, output);
  }
  return result;
}

}  // namespace

WebMethodTable& MethodTable() {
  static WebMethodTable none;  // before orlaInit and after orlaFinalize
  return gContext != nullptr ? gContext->methods : none;
}

void UseServicesOnNextStart(actions::ControllerServices* services, Restarter* restarter) {
  gNextServices = services;
  gNextRestarter = restarter;
}

void PluginInit() {
  const LogSettings log = ReadDiagnosticSettings();
  tal::InitTraceLog(static_cast<uint32_t>(log.mask), static_cast<uint32_t>(log.targets), LogDirectory(),
                    log.lowDiskThreshold > 0 ? static_cast<uint64_t>(log.lowDiskThreshold) : 0);
  KX_LOG(kEntry, std::string("orlaInit(), Version: ") + kVersion);

  Tillwork::CkxSingleLock guard(PluginLock());
  // A second start without a finalize keeps the context, and so the region.
  if (gContext == nullptr) {
    gContext =
        std::make_unique<PluginContext>(gNextServices != nullptr ? *gNextServices : actions::ControllersOwnServices(),
                                        gNextRestarter != nullptr ? *gNextRestarter : RestartThreadRestarter());
    actions::UseServices(&gContext->services);
  }
  CreateProgressRegion(*gContext);
  try {
    ConvertLeftoverAction();
  } catch (const std::exception& e) {
    KX_LOG(kError2, std::string("Could not convert the leftover action: ") + e.what());
  }
  if (!tal::LogEnabled(kInfo)) DeleteInstallationStatusLog();

  gContext->methods.Fill();
  StartAnnouncer(*gContext);
}

void PluginRun(webruntime::WebRequest* request, uint32_t handle) {
  KX_LOG(kEntry, "orlaRun()");
  {
    Tillwork::CkxSingleLock guard(PluginLock());
    if (gContext != nullptr) ReapAnnouncerIfFinished(*gContext);
  }

  int32_t result = exchange::kResultFail;
  bool restart = false;
  try {
    result = Dispatch(request, handle, restart);
  } catch (const tal::exception::NotFound& e) {
    webrequest::ResponseError(handle, 404, e.what());
  } catch (const std::exception& e) {
    webrequest::ResponseError(handle, 500, e.what());
  } catch (...) {
    // nothing is answered: the host's default reply goes out
  }
  if (result >= 0 && restart && gContext != nullptr) gContext->restarter.Restart();
}

void PluginFinalize() {
  Tillwork::CkxSingleLock guard(PluginLock());
  KX_LOG(kEntry, "orlaFinalize()");
  if (gContext != nullptr) {
    DestroyAnnouncer(*gContext);
    UnregisterAnnouncement();
    actions::SetProgressRegion(nullptr);
    gContext->progressRegion.reset();
    gContext->methods.Clear();
    actions::UseServices(nullptr);
    gContext.reset();
  }
  tal::CloseTraceLog();
}

}  // namespace kx::plugin
