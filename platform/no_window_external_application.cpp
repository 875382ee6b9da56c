#include "platform/no_window_external_application.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "exchange/paths.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/log.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/path.h"
#include "kx/tal/string_base.h"

namespace kx::platform {
namespace {

using tal::logmask::kEntry;
using tal::logmask::kError2;
using tal::logmask::kInfo;

std::wstring CleanWidePath(const std::wstring& path) {
  return path.empty() ? path : tal::Utf8ToWide(tal::CleanPath(tal::WideToUtf8(path)));
}

}  // namespace

NoWindowExternalApplication::NoWindowExternalApplication(const std::wstring& stdoutPath, const std::wstring& stderrPath,
                                                         const std::string& chrootDir, int32_t niceIncrement,
                                                         bool closeInheritedDescriptors, uint32_t options)
    : ExternalApplication(niceIncrement, closeInheritedDescriptors || CloseDescriptorsByDefault(), options),
      stdoutPath_(CleanWidePath(stdoutPath)),
      stderrPath_(CleanWidePath(stderrPath)),
      stdoutFile_(tal::WideToUtf8(stdoutPath_)),
      stderrFile_(tal::WideToUtf8(stderrPath_)),
      chrootDir_(chrootDir) {}

int NoWindowExternalApplication::startAndComplete(const std::string& program,
                                                  const std::vector<std::string>& arguments) {
  KX_LOG(kEntry, "NoWindowExternalApplication::startAndComplete()");
  try {
    Start(program, arguments);
    return Wait();
  } catch (const tal::exception::Exception&) {
    return -1;
  }
}

void NoWindowExternalApplication::Redirect(const std::string& path, const char* message, int firstFd, int secondFd) {
  // In the forked child: plain calls only, no exceptions.
  const int fd = tal::osdep::RetryOnInterrupt(
      [&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644); });
  if (fd < 0) return;  // the stream stays as it was
  ChildLog(kEntry, message + path);
  for (const int target : {firstFd, secondFd}) {
    if (target < 0) continue;
    if (fd == target) {
      ::fcntl(fd, F_SETFD, 0);  // keep it open across the exec
    } else {
      ::dup2(fd, target);
    }
  }
  if (fd != firstFd && fd != secondFd) ::close(fd);
}

void NoWindowExternalApplication::setup() {
  ChildLog(kEntry, "NoWindowExternalApplication::setup()");
  if (stdoutFile_ != stderrFile_) {
    if (!stdoutFile_.empty()) Redirect(stdoutFile_, "Piping stdout to file - ", STDOUT_FILENO, -1);
    if (!stderrFile_.empty()) Redirect(stderrFile_, "Piping stderr to file - ", STDERR_FILENO, -1);
  } else if (!stdoutFile_.empty()) {
    Redirect(stdoutFile_, "Piping stdout and stderr to file - ", STDOUT_FILENO, STDERR_FILENO);
  }
  if (!chrootDir_.empty() && exchange::IsSafeMode()) {
    ChildLog(kInfo, "NoWindowExternalApplication::setup - chroot " + chrootDir_);
    if (::chroot(chrootDir_.c_str()) != 0 || ::chdir("/") != 0) {
      ChildLog(kError2, "Failed to chroot");
    }
  }
}

}  // namespace kx::platform
