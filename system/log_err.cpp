#include "system/log_err.h"

#include <syslog.h>

#include <mutex>
#include <utility>

namespace kx::system {
namespace {

struct Capture {
  std::mutex mutex;
  ErrorLogCapture function;
};

Capture& TheCapture() {
  static Capture capture;
  return capture;
}

}  // namespace

int logErr(const char* message, int error) {
  const char* text = message != nullptr ? message : "Invalid message (logErr)";
  ::openlog(nullptr, 0, LOG_USER);
  ::syslog(LOG_ERR, "%s (errno=%d)\n", text, error);
  ::closelog();
  Capture& capture = TheCapture();
  std::lock_guard<std::mutex> guard(capture.mutex);
  if (capture.function) capture.function(text, error);
  return error;
}

void SetErrorLogCapture(ErrorLogCapture capture) {
  Capture& current = TheCapture();
  std::lock_guard<std::mutex> guard(current.mutex);
  current.function = std::move(capture);
}

}  // namespace kx::system
