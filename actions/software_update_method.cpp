// SoftwareUpdate: places the catalogue of what to install as "install.cdf" in
// the current action directory and has the daemon woken after the reply.

#include <cstdio>
#include <ctime>
#include <exception>
#include <string>

#include "actions/action_allowed.h"
#include "actions/action_command.h"
#include "actions/action_state_files.h"
#include "actions/controller_services.h"
#include "actions/progress_state.h"
#include "actions/web_methods.h"
#include "catalogue/repository.h"
#include "exchange/paths.h"
#include "exchange/request_files.h"
#include "exchange/result_codes.h"
#include "exchange/state_files.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/log.h"
#include "kx/tal/path.h"
#include "kx/tal/string_base.h"
#include "kx/tal/text_file.h"
#include "webrequest/request_helpers.h"

namespace kx::actions {
namespace {

using tal::logmask::kEntry;
using tal::logmask::kError2;
using tal::logmask::kInfo;

constexpr char kNoCatalogueMessage[] = "install.cdf information not found in POST data";

// True when the installed configuration holds the safe-mode component; a
// configuration that cannot be loaded does not.
bool SafeModeSoftwareInstalled() {
  catalogue::Repository installed(exchange::ConfigurationDirectory());
  if (installed.LoadOneDocument(exchange::InstalledConfigurationPath()) < 0) return false;
  return installed.FindPackage(catalogue::kSafeModeComponent) != nullptr;
}

// Ends the action as refused: records it as the last action and gives up its lock.
void RefuseInSafeModeSoftware(const std::string& actionId) {
  const std::string line =
      exchange::LastActionLine(actionId, "SoftwareUpdate", exchange::kResultSafeModeInstalled, Services().clock.Now());
  {
    tal::osdep::NamedMutexLock progressLock(actions::ProgressMutex());
    if (!CreateActionXML(exchange::kLastActionFileName, line)) KX_LOG(kError2, "Could not write lastAction.xml");
  }
  static_cast<void>(Services().actionLock.Release(actionId));  // the refusal is the answer, whatever this gives
}

// Where the catalogue comes from: the one uploaded file, or the body itself.
struct CatalogueSource {
  int32_t result = exchange::kResultOk;
  std::string uploadedFile;  // empty: the body is the catalogue
};

CatalogueSource FindCatalogue(uint32_t request, const std::string& body) {
  CatalogueSource source;
  UploadedFilesList* uploads = nullptr;
  ReadUploadedFilesList_C_REST_VELO_(request, &uploads);
  if (uploads != nullptr) {
    const UploadedFile* first = UploadedFilesList_GetFirst(uploads);
    if (first == nullptr || first->next != nullptr) {
      source.result = exchange::kResultInvalidArgument;
    } else {
      source.uploadedFile = first->localPath;
    }
    UploadedFilesList_Release(uploads);
  } else if (body.empty()) {
    source.result = exchange::kResultInvalidArgument;
  }
  if (source.result != exchange::kResultOk) KX_LOG(kError2, kNoCatalogueMessage);
  return source;
}

int32_t PlaceCatalogue(const CatalogueSource& source, const std::string& body, const std::string& installCdfPath) {
  if (installCdfPath.empty()) return exchange::kResultSaveFailed;
  if (!source.uploadedFile.empty()) {
    if (source.uploadedFile[0] != '/') return exchange::kResultSaveFailed;
    // The host keeps uploads on the file system of the action exchange directory.
    return std::rename(source.uploadedFile.c_str(), installCdfPath.c_str()) == 0 ? exchange::kResultOk
                                                                                 : exchange::kResultSaveFailed;
  }
  try {
    tal::WriteTextFile(installCdfPath, body);
    return exchange::kResultOk;
  } catch (const std::exception&) {
    return exchange::kResultSaveFailed;
  }
}

int32_t UpdateInstalledSoftware(uint32_t request, bool& restart) {
  KX_LOG(kEntry, "UpdateInstalledSoftware()");
  // A body that is not UTF-8 text throws InvalidSequence, which the frame answers
  // with HTTP 500. The host bounds the body's size.
  const std::string body = tal::WideToUtf8(webrequest::GetPostData(request));
  const ActionCommand command = ReadActionCommand(body);
  // Only the exact "NO" keeps the target from being restarted into install mode.
  const bool allowedInRunMode = command.autoReboot != std::string("NO");

  if (!Services().actionLock.IsHeldBy(command.actionId)) return exchange::kResultNotLockHolder;
  if (SafeModeSoftwareInstalled()) {
    RefuseInSafeModeSoftware(command.actionId);
    return exchange::kResultSafeModeInstalled;
  }
  KX_LOG(kInfo, "InstallCDFData: " + body + "\nactionID: " + command.actionId);

  const CatalogueSource source = FindCatalogue(request, body);
  if (source.result != exchange::kResultOk) return source.result;
  // Updates follow the image-restore rule on purpose.
  const int32_t allowed = IsActionAllowed("SetSystemImage", allowedInRunMode);
  if (allowed < 0) return allowed;

  const std::string configCdfPath = exchange::InstalledConfigurationPath();
  KX_LOG(kInfo, "configCDFPath: " + configCdfPath);
  if (!tal::PathExists(configCdfPath) && tal::PathExists(exchange::FailedInstallationMarkerPath())) {
    KX_LOG(kError2, "Config.old found on the target: Error during last installation");
  }

  tal::osdep::NamedMutexLock progressLock(actions::ProgressMutex());
  // The action may have ended since its lock was checked (the daemon's
  // post-action, a cancel), and another may hold the current action directory
  // now. Under the mutex the lock stays as found until the catalogue is placed.
  if (!Services().actionLock.IsHeldBy(command.actionId)) return exchange::kResultNotLockHolder;
  const std::string installCdfPath = exchange::RequestFilePath(exchange::kInstallCatalogueName);
  const int32_t result = PlaceCatalogue(source, body, installCdfPath);
  KX_LOG(kInfo, "installCdfPath: " + installCdfPath);
  restart = result >= 0;
  return result;
}

}  // namespace

int32_t SoftwareUpdate(const KeyValuePairList&, uint32_t request, std::string& output, int32_t&, bool& restart) {
  const int32_t result = UpdateInstalledSoftware(request, restart);
  webrequest::WriteResultXml(output, L"SoftwareUpdate", result, L"");
  return result;
}

}  // namespace kx::actions
