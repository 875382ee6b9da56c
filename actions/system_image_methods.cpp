// GetSystemImage, SetSystemImage and Format: each writes its request file into
// the current action directory and has the daemon woken after the reply.

#include <sys/stat.h>

#include <string>

#include "actions/action_allowed.h"
#include "actions/action_state_files.h"
#include "actions/blacklist_file.h"
#include "actions/controller_services.h"
#include "actions/progress_state.h"
#include "actions/request_files.h"
#include "actions/web_methods.h"
#include "exchange/paths.h"
#include "exchange/request_files.h"
#include "exchange/result_codes.h"
#include "exchange/state_files.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/log.h"
#include "kx/tal/path.h"
#include "kx/tal/string_base.h"
#include "platform/no_window_external_application.h"
#include "webrequest/request_helpers.h"

namespace kx::actions {
namespace {

using tal::logmask::kEntry;
using tal::logmask::kError2;
using tal::logmask::kInfo;

constexpr uint32_t kOptionNoInstallModeRestart = 8;  // SetSystemImage
constexpr uint32_t kOptionFormatInRunMode = 32;      // Format

// Reads form values in the caller's order; remembers whether any was missing or bad.
class FormReader {
 public:
  explicit FormReader(const KeyValuePairList& form) : form_(form) {}

  FormReader& Text(const wchar_t* name, std::string& value) {
    Read([&] {
      std::wstring wide;
      webrequest::GetPOSTValue(form_, name, wide);
      value = tal::WideToUtf8(wide);
    });
    return *this;
  }
  FormReader& Number(const wchar_t* name, uint32_t& value) {
    Read([&] { webrequest::GetPOSTValue(form_, name, value); });
    return *this;
  }
  bool Ok() const { return ok_; }

 private:
  template <class ReadValue>
  void Read(ReadValue&& read) {
    if (!ok_) return;
    try {
      read();
    } catch (const tal::exception::Exception&) {
      ok_ = false;
    }
  }

  const KeyValuePairList& form_;
  bool ok_ = true;
};

// A missing or unreadable form value: HTTP 400 without a body.
int32_t RefuseForm(int32_t& httpStatus) {
  httpStatus = 400;
  return exchange::kResultInvalidArgument;
}

// Writes the blacklist file when there is a blacklist. The path the daemon is
// to read it from ("" for none); false when the file could not be written.
bool PrepareBlacklist(const char* fileName, const std::string& blacklist, std::string& daemonPath) {
  daemonPath.clear();
  if (blacklist.empty()) return true;
  const std::string file = WriteBlacklistFile(fileName, blacklist);
  if (file.empty()) {
    KX_LOG(kError2, std::string("Failed to write ") + fileName);
    return false;
  }
  KX_LOG(kInfo, "User blacklist:" + blacklist + "\nBlacklistFile: " + file);
  daemonPath = BlacklistPathForDaemon(file);
  return true;
}

// What gzip can test without blocking: a relative path would be taken from the
// working directory, and a FIFO or device could keep gzip (and the progress
// mutex held meanwhile) waiting forever. Missing files and directories are left
// to gzip.
bool CanBeTested(const std::string& path) {
  if (path.empty() || path.front() != '/') return false;
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return true;
  return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
}

int32_t GetImage(const std::string& actionId, const std::string& blacklist, uint32_t options,
                 const std::string& imagePath, bool& restart) {
  if (!Services().actionLock.IsHeldBy(actionId)) return exchange::kResultNotLockHolder;
  KX_LOG(kInfo, "Options: " + std::to_string(options));
  std::string blacklistPath;
  if (!PrepareBlacklist("GetSystemImageBlacklist", blacklist, blacklistPath)) return exchange::kResultSaveFailed;
  const int32_t result = CreateGetImageIni(exchange::RequestFilePath(exchange::kGetImageRequest.fileName), options,
                                           imagePath, blacklistPath);
  if (result < 0) {
    KX_LOG(kError2, "Failed to create get image ini with result - " + std::to_string(result));
  } else {
    restart = true;
  }
  return result;
}

int32_t SetImage(const std::string& actionId, const std::string& hostLocalPath, const std::string& blacklist,
                 uint32_t options, uint32_t timeout, bool& restart) {
  if (!Services().actionLock.IsHeldBy(actionId)) return exchange::kResultNotLockHolder;
  KX_LOG(kInfo, "Options: " + std::to_string(options) + "\nTimeout (Msecs): " + std::to_string(timeout) +
                    "\nlocalPath: " + hostLocalPath + "\nblacklist: " + blacklist + "\nactionId: " + actionId);

  const std::string imagePath = exchange::HostPathToLocalPath(hostLocalPath, false);
  platform::NoWindowExternalApplication gzip(L"", L"", std::string());
  if (!CanBeTested(imagePath) || gzip.startAndComplete("gzip", {"-t", imagePath}) == 1) {
    KX_LOG(kError2, "Created a file on the system that was corrupt.");
    return exchange::kResultCorruptImage;
  }

  std::string blacklistPath;
  if (!PrepareBlacklist("SetSystemImageBlacklist", blacklist, blacklistPath)) return exchange::kResultSaveFailed;
  const int32_t allowed = IsActionAllowed("SetSystemImage", (options & kOptionNoInstallModeRestart) == 0);
  if (allowed < 0) return allowed;

  const int32_t result = CreateSetImageIni(exchange::RequestFilePath(exchange::kSetImageRequest.fileName), timeout,
                                           options, hostLocalPath, blacklistPath);
  restart = result >= 0;
  if (restart) {
    KX_LOG(kInfo, "Signalling Daemon");
  } else {
    KX_LOG(kError2, "Failed to create set image ini, not signalling daemon");
  }
  return result;
}

int32_t FormatTarget(const std::string& actionId, uint32_t timeout, uint32_t options, bool& restart) {
  if (!Services().actionLock.IsHeldBy(actionId)) return exchange::kResultNotLockHolder;
  const int32_t allowed = IsActionAllowed("Format", (options & kOptionFormatInRunMode) != 0);
  if (allowed < 0) {
    KX_LOG(kError2,
           "Formatting isn't allowed with the given options: " + std::to_string(options) + " and the current state.");
    return allowed;
  }
  const std::string path = exchange::RequestFilePath(exchange::kFormatRequest.fileName);
  KX_LOG(kInfo, "Formatting with options: " + std::to_string(options) + ", timeout: " + std::to_string(timeout));
  if (path.empty()) return exchange::kResultNoRequestPath;
  const int32_t result = CreateFormatIni(path, timeout, options);
  restart = result >= 0;
  return result;
}

}  // namespace

int32_t GetSystemImage(const KeyValuePairList& form, uint32_t, std::string& output, int32_t& httpStatus,
                       bool& restart) {
  KX_LOG(kEntry, "GetSystemImage()");
  std::string actionId, blacklist;
  uint32_t options = 0;
  if (!FormReader(form).Text(L"ActionID", actionId).Text(L"Blacklist", blacklist).Number(L"Options", options).Ok()) {
    return RefuseForm(httpStatus);
  }
  tal::osdep::NamedMutexLock progressLock(actions::ProgressMutex());
  const std::string actionDirectory = exchange::CurrentActionDirectory();
  const std::string imagePath =
      actionDirectory.empty() ? std::string() : tal::JoinPath(actionDirectory, exchange::kSystemImageName);
  const int32_t result = GetImage(actionId, blacklist, options, imagePath, restart);
  // The URL is filled even when the lock is not held.
  output = "<?xml version=\"1.0\"?>\n<GetSystemImage Result=\"" + std::to_string(result) + "\" ImageFileURL=\"" +
           exchange::EscapeXmlAttribute(ExchangeRelativePath(imagePath, exchange::ExchangeBase(true))) + "\" />";
  return result;
}

int32_t SetSystemImage(const KeyValuePairList& form, uint32_t, std::string& output, int32_t& httpStatus,
                       bool& restart) {
  KX_LOG(kEntry, "SetSystemImage()");
  std::string actionId, localPath, blacklist;
  uint32_t options = 0, timeout = 0;
  if (!FormReader(form)
           .Text(L"ActionID", actionId)
           .Text(L"LocalPath", localPath)
           .Text(L"Blacklist", blacklist)
           .Number(L"Options", options)
           .Number(L"Timeout", timeout)
           .Ok()) {
    return RefuseForm(httpStatus);
  }
  tal::osdep::NamedMutexLock progressLock(actions::ProgressMutex());
  const int32_t result = SetImage(actionId, localPath, blacklist, options, timeout, restart);
  webrequest::WriteResultXml(output, L"SetSystemImage", result, L"");
  return result;
}

int32_t Format(const KeyValuePairList& form, uint32_t, std::string& output, int32_t& httpStatus, bool& restart) {
  KX_LOG(kEntry, "FormatTarget()");
  std::string actionId;
  uint32_t timeout = 0, options = 0;
  if (!FormReader(form).Text(L"ActionID", actionId).Number(L"Timeout", timeout).Number(L"Options", options).Ok()) {
    return RefuseForm(httpStatus);
  }
  tal::osdep::NamedMutexLock progressLock(actions::ProgressMutex());
  const int32_t result = FormatTarget(actionId, timeout, options, restart);
  webrequest::WriteResultXml(output, L"Format", result, L"");
  return result;
}

}  // namespace kx::actions
