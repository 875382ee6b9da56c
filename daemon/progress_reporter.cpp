#include "daemon/progress_reporter.h"

#include <exception>

#include "daemon/file_operations.h"
#include "daemon/status_log.h"
#include "exchange/ipc_names.h"
#include "exchange/paths.h"
#include "exchange/state_files.h"
#include "platform/ownership.h"
#include "platform/progress_region.h"

namespace kx::daemon {
namespace {

// Keeps the element well inside the region whatever a package calls itself.
constexpr size_t kMaxStepLength = 256;

// Cut at a character boundary of UTF-8 text.
std::string Shortened(const std::string& text) {
  if (text.size() <= kMaxStepLength) return text;
  size_t end = kMaxStepLength;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end) + "...";
}

// The state files go to the default owner, group and mode, as the plug-in's do.
void WriteStateFile(const std::string& path, const std::string& text) {
  ReplaceFileWithText(path, text, FileAttributes{0664});
  static_cast<void>(platform::SetToDefaultOwnerGroupAndPermissions(path));  // logged there; the file stays readable
}

}  // namespace

ProgressReporter::ProgressReporter() : mutex_(exchange::kProgressMutexName) {
  try {
    region_ = platform::OpenProgressRegion(&mutex_);
  } catch (const std::exception& error) {
    ReportError(std::string("cannot open the progress region: ") + error.what());
  }
}

void ProgressReporter::Start(const std::string& actionId, const std::string& actionType) {
  actionId_ = actionId;
  actionType_ = actionType;
  startTime_ = std::time(nullptr);
  Update(0, "Starting");
}

void ProgressReporter::Update(int percent, const std::string& step) {
  Publish(exchange::CurrentActionElement(actionId_, actionType_, startTime_, percent, Shortened(step)));
}

void ProgressReporter::Finish(int32_t result) {
  tal::osdep::NamedMutexLock lock(mutex_);
  try {
    WriteStateFile(exchange::LastActionFilePath(),
                   exchange::LastActionLine(actionId_, actionType_, result, std::time(nullptr)));
    RemoveFileIfPresent(exchange::CurrentActionFilePath());
    if (region_) region_->WriteText("");
  } catch (const std::exception& error) {
    ReportError(std::string("cannot record the end of the action: ") + error.what());
  }
}

void ProgressReporter::AwaitRequestWriters() { tal::osdep::NamedMutexLock lock(mutex_); }

void ProgressReporter::Record(const std::string& actionId, const std::string& actionType, int32_t result) {
  actionId_ = actionId;
  actionType_ = actionType;
  startTime_ = std::time(nullptr);
  Finish(result);
}

void ProgressReporter::Publish(const std::string& element) {
  tal::osdep::NamedMutexLock lock(mutex_);
  try {
    WriteStateFile(exchange::CurrentActionFilePath(), element);
    if (region_) region_->WriteText(element);
  } catch (const std::exception& error) {
    ReportError(std::string("cannot publish the progress: ") + error.what());
  }
}

}  // namespace kx::daemon
