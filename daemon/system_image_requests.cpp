#include "daemon/system_image_requests.h"

#include <unistd.h>

#include <exception>
#include <utility>

#include "daemon/daemon_settings.h"
#include "daemon/exchange_request_path.h"
#include "daemon/file_operations.h"
#include "daemon/image_check.h"
#include "daemon/image_packer.h"
#include "daemon/image_restorer.h"
#include "daemon/image_scope.h"
#include "daemon/status_log.h"
#include "daemon/stop_request.h"
#include "daemon/transaction_location.h"
#include "exchange/request_files.h"
#include "exchange/result_codes.h"
#include "ini/ini_document.h"
#include "kx/tal/path.h"
#include "platform/ownership.h"

namespace kx::daemon {
namespace {

struct ImageRequest {
  std::string image;      // local path
  std::string blacklist;  // local path, or ""
};

// Throws std::invalid_argument for an unreadable file or unusable paths.
ImageRequest ReadRequest(const std::string& actionDirectory, exchange::RequestFile file, const char* imageKey) {
  const std::string path = tal::JoinPath(actionDirectory, file.fileName);
  const char* section = file.section;
  ini::Document document;
  if (document.Load(path) < 0) throw std::invalid_argument("cannot read " + path);
  std::string image, blacklist, options, timeout;
  document.GetText(section, imageKey, image);
  document.GetText(section, exchange::kBlackListPathKey, blacklist);
  document.GetText(section, exchange::kOptionsKey, options);
  document.GetText(section, exchange::kTimeoutKey, timeout);
  ReportInfo(std::string(imageKey) + "=" + image + ", BlackListPath=" + blacklist + ", Options=" + options +
             (timeout.empty() ? "" : ", Timeout=" + timeout));
  ImageRequest request;
  request.image = LocalExchangePath(image);
  if (!blacklist.empty()) request.blacklist = LocalExchangePath(blacklist);
  return request;
}

// Publishes the progress of one phase as its share `from`..`to` of the whole,
// only when the figure changes; stops the work when a stop was asked for.
class PercentScale {
 public:
  PercentScale(ProgressReporter& progress, int from, int to, std::string step)
      : progress_(progress), from_(from), to_(to), step_(std::move(step)) {}
  void operator()(int percent) {
    ThrowIfStopRequested();
    const int scaled = from_ + (to_ - from_) * percent / 100;
    if (scaled == last_) return;
    last_ = scaled;
    progress_.Update(scaled, step_);
  }

 private:
  ProgressReporter& progress_;
  int from_, to_;
  std::string step_;
  int last_ = -1;
};

// The image holds everything of the controller: only the web side may read it.
FileAttributes ImageAttributes() {
  FileAttributes attributes{0640};
  const int64_t owner = platform::GetUserID(platform::kDefaultOwner);
  const int64_t group = platform::GetGroupID(platform::kDefaultGroup);
  if (::geteuid() == 0 && owner >= 0 && group >= 0) {
    attributes.owner = static_cast<uid_t>(owner);
    attributes.group = static_cast<gid_t>(group);
  }
  return attributes;
}

// Restores a checked image in one transaction; a failure is rolled back. Throws
// when the transaction cannot be opened or the roll-back is incomplete.
int32_t Restore(const ImageFile& image, const ImageScope& scope, ProgressReporter& progress) {
  Transaction transaction(DaemonTransactionPaths());
  try {
    PercentScale scale(progress, 30, 99, "Restoring the system image");
    RestoreImage(image, scope, transaction, scale);
    transaction.Commit();
  } catch (const std::exception& error) {
    ReportError(std::string("the image restore failed: ") + error.what());
    progress.Update(100, "Rolling back");
    transaction.RollBack();
    ReportInfo("rolled back: the controller is as it was before the restore");
    return exchange::kResultFail;
  }
  ReportInfo("the system image is restored");
  return exchange::kResultOk;
}

}  // namespace

int32_t RunGetSystemImage(const std::string& actionDirectory, ProgressReporter& progress) {
  ImageRequest request;
  try {
    request = ReadRequest(actionDirectory, exchange::kGetImageRequest, exchange::kImagePathKey);
  } catch (const std::exception& error) {
    ReportError(std::string("unusable image request: ") + error.what());
    return exchange::kResultInvalidArgument;
  }
  try {
    const ImageScope scope(request.blacklist);
    PercentScale scale(progress, 1, 99, "Packing the system image");
    ReplaceFile(
        request.image,
        [&](int fd) {
          PackImage(fd, scope, [&](const PackProgress& packed) {
            scale(packed.bytesTotal == 0 ? 100 : static_cast<int>(packed.bytesDone * 100 / packed.bytesTotal));
          });
        },
        ImageAttributes());
  } catch (const std::exception& error) {
    ReportError(std::string("no system image: ") + error.what());
    return exchange::kResultFail;
  }
  ReportInfo("the system image is in " + request.image);
  return exchange::kResultOk;
}

int32_t RunSetSystemImage(const std::string& actionDirectory, ProgressReporter& progress) {
  ImageRequest request;
  try {
    request = ReadRequest(actionDirectory, exchange::kSetImageRequest, exchange::kLocalPathKey);
  } catch (const std::exception& error) {
    ReportError(std::string("unusable image request: ") + error.what());
    return exchange::kResultInvalidArgument;
  }
  if (!MayChangeWholeRoot(LoadDaemonSettings())) {
    ReportError(
        "image restore refused: the system root is \"/\" and kxsid.ini does not allow it "
        "([Safety] AllowFormatAndRestoreOfRoot=1)");
    return exchange::kResultFail;
  }
  try {
    const ImageScope scope(request.blacklist);
    const ImageFile image(request.image);
    PercentScale scale(progress, 1, 30, "Checking the system image");
    CheckImage(image, scale);
    return Restore(image, scope, progress);
  } catch (const ImageRefused& refusal) {
    ReportError(std::string("image refused, nothing changed: ") + refusal.what());
    return exchange::kResultCorruptImage;
  } catch (const std::exception& error) {
    ReportError(std::string("the image restore failed: ") + error.what());
    return exchange::kResultFail;
  }
}

}  // namespace kx::daemon
