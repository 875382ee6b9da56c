// Beginning, finalizing and cancelling an installation action. Each handler holds
// the progress mutex from its first step to its return, so that it never meets
// another action method or the progress reader half-way.

#include <string>

#include "actions/controller_services.h"
#include "actions/progress_state.h"
#include "actions/request_files.h"
#include "actions/start_time.h"
#include "actions/update_precheck.h"
#include "actions/web_methods.h"
#include "exchange/paths.h"
#include "exchange/request_files.h"
#include "exchange/result_codes.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/log.h"
#include "kx/tal/osdep/named_mutex.h"
#include "kx/tal/string_base.h"
#include "webrequest/request_helpers.h"

namespace kx::actions {
namespace {

using tal::logmask::kEntry;
using tal::logmask::kInfo;

constexpr int32_t kBadRequest = 400;
constexpr char kSoftwareUpdateAction[] = "SoftwareUpdate";

// The form value as narrow text. Throws InvalidArgument when it is absent and
// InvalidSequence when it is not UTF-8.
std::string ReadText(const KeyValuePairList& form, const wchar_t* name) {
  std::wstring value;
  webrequest::GetPOSTValue(form, name, value);
  return tal::WideToUtf8(value);
}

// The answer to a malformed request: HTTP 400 and no body.
int32_t RefuseBadRequest(int32_t& httpStatus) {
  httpStatus = kBadRequest;
  return exchange::kResultInvalidArgument;
}

// Mode attribute: "1" when the target is in safe mode or install mode.
const char* ModeText() { return Services().systemState.InSafeOrInstallMode() ? "1" : "0"; }

std::string BeginActionAnswer(int32_t lockResult, const std::string& lockFilePath) {
  return std::string("<?xml version=\"1.0\"?>\n<BeginAction Result=\"") + std::to_string(lockResult) +
         "\" Directory=\"" + exchange::RelativeActionDirectory() + "\" StartTime=\"" +
         StartTimeText(FileModificationStartTime(lockFilePath)) + "\" Mode=\"" + ModeText() + "\" />\n";
}

}  // namespace

int32_t BeginAction(const KeyValuePairList& form, uint32_t, std::string& output, int32_t& httpStatus, bool&) {
  tal::osdep::NamedMutexLock lock(actions::ProgressMutex());
  KX_LOG(kEntry, "BeginAction()");

  std::string actionId;
  std::string customLockHolder;
  try {
    actionId = ReadText(form, L"ActionID");
    customLockHolder = ReadText(form, L"CustomLockHolder");
  } catch (const tal::exception::Exception&) {
    return RefuseBadRequest(httpStatus);
  }
  // No "Action": a general action, without the pre-check.
  std::string action;
  try {
    action = tal::WideToUtf8(webrequest::FindPOSTValue(form, L"Action").value_or(L""));
  } catch (const tal::exception::Exception&) {
    return RefuseBadRequest(httpStatus);
  }

  if (action == kSoftwareUpdateAction) {
    const int32_t preCheck = SoftwareUpdatePreCheck(action);
    if (preCheck < 0) {
      webrequest::WriteResultXml(output, L"BeginAction", preCheck, L"");
      return preCheck;
    }
  }

  std::string lockFilePath;
  const int32_t lockResult = Services().actionLock.Obtain(actionId, customLockHolder, lockFilePath);
  if (lockResult < 0) {
    webrequest::WriteResultXml(output, L"BeginAction", lockResult, L"");
    return lockResult;
  }

  output = BeginActionAnswer(lockResult, lockFilePath);
  KX_LOG(kInfo, output);
  return lockResult;
}

int32_t FinalizeAction(const KeyValuePairList& form, uint32_t, std::string& output, int32_t& httpStatus,
                       bool& restart) {
  tal::osdep::NamedMutexLock lock(actions::ProgressMutex());
  KX_LOG(kEntry, "FinalizeAction()");

  std::string actionId;
  std::string webMethod;
  std::string action;
  uint32_t options = 0;
  try {
    actionId = ReadText(form, L"ActionID");
    webMethod = ReadText(form, L"WebMethod");
    action = ReadText(form, L"Action");
    webrequest::GetPOSTValue(form, L"Options", options);
  } catch (const tal::exception::Exception&) {
    return RefuseBadRequest(httpStatus);
  }

  const int32_t result = !Services().actionLock.IsHeldBy(actionId)
                             ? exchange::kResultInvalidArgument
                             : CreatePostActionIni(exchange::RequestFilePath(exchange::kPostActionRequest.fileName),
                                                   webMethod, action, options, 0);
  webrequest::WriteResultXml(output, L"FinalizeAction", result, L"");
  // The daemon acts on the post-action request once the reply has gone out.
  restart = result >= 0;
  return result;
}

int32_t CancelAction(const KeyValuePairList& form, uint32_t, std::string& output, int32_t& httpStatus, bool&) {
  tal::osdep::NamedMutexLock lock(actions::ProgressMutex());
  KX_LOG(kEntry, "CancelAction()");

  std::string actionId;
  try {
    actionId = ReadText(form, L"ActionID");
  } catch (const tal::exception::Exception&) {
    return RefuseBadRequest(httpStatus);
  }

  // Whether this ID may drop the lock is the action-lock service's decision alone.
  const int32_t result = Services().actionLock.Release(actionId);
  webrequest::WriteResultXml(output, L"CancelAction", result, L"");
  return result;
}

}  // namespace kx::actions
