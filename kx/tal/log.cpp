#include "kx/tal/log.h"

#include <pthread.h>
#include <sys/statvfs.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <mutex>

#include "kx/tal/path.h"
#include "kx/tal/time_text.h"

namespace kx::tal {
namespace {

const char kLowDiskMessage[] = "** Available disk space is below the desired threshold. Aborting tracing. **";

struct TraceLog {
  std::mutex lock;
  uint32_t targets = 1;
  std::string directory;
  uint64_t lowDiskThreshold = 0;
  std::string startStamp;  // "%Y%m%d_%H%M%S" of InitTraceLog
  FILE* file = nullptr;
  bool refused = false;  // the disk was too full: no more tracing until re-initialised
  LogCapture capture;

  ~TraceLog();
};

std::atomic<uint32_t> gMask{1};
// Set once the trace log has been destroyed (at exit, or when the plug-in is
// unloaded): later messages still reach syslog.
std::atomic<bool> gTraceGone{false};

TraceLog::~TraceLog() {
  gTraceGone = true;
  if (file != nullptr) std::fclose(file);
}

TraceLog* Trace() {
  static TraceLog trace;
  return gTraceGone ? nullptr : &trace;
}

int SyslogPriority(uint32_t maskBit) {
  if (maskBit & (logmask::kError | logmask::kError2)) return LOG_ERR;
  if (maskBit & logmask::kInfo) return LOG_INFO;
  return LOG_DEBUG;
}

bool DiskTooFull(const TraceLog& trace) {
  if (trace.lowDiskThreshold == 0) return false;
  struct statvfs fs;
  if (::statvfs(trace.directory.c_str(), &fs) != 0) return false;
  const uint64_t available = static_cast<uint64_t>(fs.f_bavail) * fs.f_frsize;
  return available < trace.lowDiskThreshold;
}

// Opens the trace file on first use. Called with the trace lock held.
FILE* TraceFile(TraceLog& trace) {
  if (trace.file != nullptr || trace.refused || trace.directory.empty()) return trace.file;
  if (DiskTooFull(trace)) {
    trace.refused = true;
    ::syslog(LOG_WARNING, "%s", kLowDiskMessage);
    return nullptr;
  }
  char name[128];
  std::snprintf(name, sizeof name, "%s-vqTracer-%08lX.log", trace.startStamp.c_str(),
                static_cast<unsigned long>(::getpid()));
  trace.file = std::fopen(JoinPath(trace.directory, name).c_str(), "ae");
  return trace.file;
}

void WriteTrace(TraceLog& trace, const std::string& text) {
  FILE* file = TraceFile(trace);
  if (file == nullptr) return;
  char thread[32];
  std::snprintf(thread, sizeof thread, "%lX", static_cast<unsigned long>(::pthread_self()));
  const std::string now = TimeToText(std::time(nullptr), "%Y-%m-%d", "%H:%M:%S");
  std::fprintf(file, "%c %s\n", ' ', text.c_str());
  std::fprintf(file, "  Thread = 0x%s, Time = %s\n", thread, now.c_str());
  std::fflush(file);
}

}  // namespace

void InitTraceLog(uint32_t mask, uint32_t targets, const std::string& directory, uint64_t lowDiskThresholdBytes) {
  gMask = mask;
  TraceLog* traceLog = Trace();
  if (traceLog == nullptr) return;
  TraceLog& trace = *traceLog;
  std::lock_guard<std::mutex> guard(trace.lock);
  trace.targets = targets;
  trace.directory = directory;
  trace.lowDiskThreshold = lowDiskThresholdBytes;
  trace.startStamp = TimeToText(std::time(nullptr), "%Y%m%d", "%H%M%S", "_");
  trace.refused = false;
}

void CloseTraceLog() {
  TraceLog* traceLog = Trace();
  if (traceLog == nullptr) return;
  TraceLog& trace = *traceLog;
  std::lock_guard<std::mutex> guard(trace.lock);
  if (trace.file != nullptr) std::fclose(trace.file);
  trace.file = nullptr;
}

uint32_t LogMaskValue() { return gMask.load(std::memory_order_relaxed); }

void Log(uint32_t maskBit, const std::string& text) {
  if (!LogEnabled(maskBit)) return;
  TraceLog* traceLog = Trace();
  if (traceLog == nullptr) {
    ::syslog(SyslogPriority(maskBit), "%s", text.c_str());
    return;
  }
  TraceLog& trace = *traceLog;
  std::lock_guard<std::mutex> guard(trace.lock);
  if (trace.capture) trace.capture(maskBit, text);
  ::syslog(SyslogPriority(maskBit), "%s", text.c_str());
  if (trace.targets & 1) WriteTrace(trace, text);
}

void SetLogCapture(LogCapture capture) {
  TraceLog* traceLog = Trace();
  if (traceLog == nullptr) return;
  TraceLog& trace = *traceLog;
  std::lock_guard<std::mutex> guard(trace.lock);
  trace.capture = std::move(capture);
}

}  // namespace kx::tal
