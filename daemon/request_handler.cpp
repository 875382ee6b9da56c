#include "daemon/request_handler.h"

#include <cstdio>
#include <exception>
#include <optional>

#include "daemon/format_request.h"
#include "daemon/post_action.h"
#include "daemon/software_update.h"
#include "daemon/status_log.h"
#include "daemon/stop_request.h"
#include "daemon/system_image_requests.h"
#include "daemon/transaction.h"
#include "daemon/transaction_location.h"
#include "exchange/lock_record.h"
#include "exchange/paths.h"
#include "exchange/request_files.h"
#include "exchange/result_codes.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"
#include "platform/remove_dir_hierarchy.h"

namespace kx::daemon {
namespace {

struct Request {
  const char* fileName;
  const char* actionType;
  // Null for the post-action, which ends the action instead.
  int32_t (*run)(const std::string& actionDirectory, ProgressReporter& progress);
  bool inTransaction;  // changes the controller inside the daemon's transaction
};

// In the order they are carried out.
constexpr Request kRequests[] = {
    {exchange::kInstallCatalogueName, "SoftwareUpdate", RunSoftwareUpdate, true},
    {exchange::kGetImageRequest.fileName, "GetSystemImage", RunGetSystemImage, false},
    {exchange::kSetImageRequest.fileName, "SetSystemImage", RunSetSystemImage, true},
    {exchange::kFormatRequest.fileName, "Format", RunFormat, false},
    {exchange::kPostActionRequest.fileName, "FinalizeAction", nullptr, false},
};

// Guards against a request that can be neither carried out nor marked.
constexpr int kMaxRequestsPerWakeUp = 16;

// The ID in the lock record; without a readable record the directory's name,
// which is derived from the ID, will do.
std::string ActionId(const std::string& actionDirectory) {
  try {
    tal::TextFileReader record(tal::JoinPath(actionDirectory, exchange::kLockRecordName));
    std::string firstLine;
    if (record.ReadLine(firstLine)) {
      if (std::optional<std::string> id = exchange::LockRecordActionId(firstLine)) return *id;
    }
  } catch (const std::exception&) {
  }
  return tal::LastComponent(actionDirectory);
}

void MarkCarriedOut(const std::string& path) {
  const std::string done = path + ".done";
  if (std::rename(path.c_str(), done.c_str()) != 0 && std::remove(path.c_str()) != 0) {
    ReportError("cannot mark " + path + " as carried out");
  }
}

}  // namespace

void RequestHandler::RecoverInterruptedWork() {
  const std::string directory = exchange::CurrentActionDirectory();
  try {
    if (Transaction::RecoverUnfinished(DaemonTransactionPaths())) {
      ReportError(
          "an interrupted change (software update or image restore) was rolled back: "
          "the controller is as it was before it");
      // Its request, unless the action was cleared meanwhile, counts as carried out and failed.
      for (const Request& request : kRequests) {
        const std::string path = directory.empty() ? "" : tal::JoinPath(directory, request.fileName);
        if (!request.inTransaction || path.empty() || !tal::PathExists(path)) continue;
        MarkCarriedOut(path);
        progress_.Record(ActionId(directory), request.actionType, exchange::kResultFail);
        break;
      }
    }
  } catch (const std::exception& error) {
    ReportError(std::string("cannot roll back the interrupted change: ") + error.what());
  }
  if (!directory.empty() && tal::PathExists(UpdateScratchDirectory(directory))) {
    if (platform::RemoveDirHierarchy(UpdateScratchDirectory(directory)) != 0) {
      ReportError("cannot remove the scratch files of the interrupted update");
    }
  }
}

void RequestHandler::HandlePendingRequests() {
  for (int handled = 0; handled < kMaxRequestsPerWakeUp && !StopRequested(); ++handled) {
    try {
      if (!HandleNextRequest()) return;
    } catch (const std::exception& error) {
      ReportError(std::string("a request failed: ") + error.what());
    }
  }
}

bool RequestHandler::HandleNextRequest() {
  const std::string directory = exchange::CurrentActionDirectory();
  if (directory.empty()) return false;
  for (const Request& request : kRequests) {
    const std::string path = tal::JoinPath(directory, request.fileName);
    if (!tal::PathExists(path)) continue;
    progress_.AwaitRequestWriters();
    const std::string actionId = ActionId(directory);
    if (request.run == nullptr) {
      RunPostAction(path, actionId);
      return true;
    }
    StartStatusLog(std::string(request.actionType) + " of action " + actionId);
    progress_.Start(actionId, request.actionType);
    const int32_t result = request.run(directory, progress_);
    progress_.Finish(result);
    MarkCarriedOut(path);
    return true;
  }
  return false;
}

}  // namespace kx::daemon
