#include "daemon/format_request.h"

#include <sys/stat.h>

#include <exception>

#include "daemon/daemon_settings.h"
#include "daemon/file_operations.h"
#include "daemon/root_walk.h"
#include "daemon/status_log.h"
#include "daemon/stop_request.h"
#include "exchange/paths.h"
#include "exchange/request_files.h"
#include "exchange/result_codes.h"
#include "ini/ini_document.h"
#include "kx/tal/path.h"
#include "platform/remove_dir_hierarchy.h"

namespace kx::daemon {
namespace {

constexpr const char* kKept[] = {exchange::kExchangeDirectoryName, exchange::kUploadDirectoryName};

bool IsKept(const std::string& name) {
  for (const char* kept : kKept) {
    if (name == kept) return true;
  }
  return false;
}

void ReportRequest(const std::string& path) {
  ini::Document document;
  std::string options, timeout;
  if (document.Load(path) >= 0) {
    document.GetText(exchange::kFormatRequest.section, exchange::kOptionsKey, options);
    document.GetText(exchange::kFormatRequest.section, exchange::kTimeoutKey, timeout);
  }
  ReportInfo("format: Options=" + options + ", Timeout=" + timeout);
}

}  // namespace

int32_t RunFormat(const std::string& actionDirectory, ProgressReporter& progress) {
  ReportRequest(tal::JoinPath(actionDirectory, exchange::kFormatRequest.fileName));
  if (!MayChangeWholeRoot(LoadDaemonSettings())) {
    ReportError(
        "format refused: the system root is \"/\" and kxsid.ini does not allow it "
        "([Safety] AllowFormatAndRestoreOfRoot=1)");
    return exchange::kResultFail;
  }
  const std::string userFileSystem = tal::RootedPath(exchange::kUserFileSystem);
  try {
    // Neither "/mnt" nor "/mnt/userfs" may lead elsewhere through a link.
    for (const std::string& path : {tal::DirectoryPart(userFileSystem), userFileSystem}) {
      struct stat info {};
      if (!LStat(path, info)) {
        ReportInfo("there is no " + userFileSystem + ": nothing to format");
        return exchange::kResultOk;
      }
      if (!S_ISDIR(info.st_mode)) {
        ReportError("format refused: " + path + " is not a directory");
        return exchange::kResultFail;
      }
    }
    const std::vector<std::string> names = DirectoryNames(userFileSystem);
    bool removedAll = true;
    for (size_t i = 0; i < names.size(); ++i) {
      ThrowIfStopRequested();
      progress.Update(static_cast<int>(100 * i / names.size()), "Formatting " + userFileSystem);
      if (IsKept(names[i])) continue;
      const std::string path = tal::JoinPath(userFileSystem, names[i]);
      if (platform::RemoveDirHierarchy(path) != 0) {
        ReportError("cannot remove everything of " + path);
        removedAll = false;
      }
    }
    if (!removedAll) return exchange::kResultFail;
  } catch (const std::exception& error) {
    ReportError(std::string("the format failed: ") + error.what());
    return exchange::kResultFail;
  }
  ReportInfo(userFileSystem + " is empty but for the action exchange");
  return exchange::kResultOk;
}

}  // namespace kx::daemon
