#include "kx/tal/osdep/external_application.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "kx/tal/exception/exception.h"
#include "kx/tal/exception/os_exception.h"
#include "kx/tal/log.h"
#include "kx/tal/osdep/posix_io.h"

namespace kx::tal::osdep {
namespace {

std::atomic<bool> gCloseDescriptorsByDefault{false};

// Report records sent from the child to the parent: a kind byte, a 32-bit
// number (mask bit or errno) and, for messages, a 32-bit length and the text.
constexpr char kMessageRecord = 'L';
constexpr char kExecFailedRecord = 'E';

void AppendRecord(std::string& out, char kind, uint32_t number, const std::string& text) {
  out += kind;
  out.append(reinterpret_cast<const char*>(&number), sizeof number);
  if (kind == kMessageRecord) {
    const uint32_t length = static_cast<uint32_t>(text.size());
    out.append(reinterpret_cast<const char*>(&length), sizeof length);
    out += text;
  }
}

// Closes every descriptor above 2 except `keep` (itself above 2).
void CloseInheritedDescriptors(int keep) {
#ifdef SYS_close_range
  const bool belowClosed = keep == 3 || ::syscall(SYS_close_range, 3u, static_cast<unsigned>(keep - 1), 0u) == 0;
  if (belowClosed && ::syscall(SYS_close_range, static_cast<unsigned>(keep + 1), ~0u, 0u) == 0) return;
#endif
  struct rlimit limit;
  int highest = 4096;
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < static_cast<rlim_t>(highest)) {
    highest = static_cast<int>(limit.rlim_cur);
  }
  for (int fd = 3; fd < highest; ++fd) {
    if (fd != keep) ::close(fd);
  }
}

}  // namespace

void ExternalApplication::SetCloseDescriptorsByDefault(bool close) { gCloseDescriptorsByDefault = close; }

bool ExternalApplication::CloseDescriptorsByDefault() { return gCloseDescriptorsByDefault; }

ExternalApplication::ExternalApplication(int32_t niceIncrement, bool closeInheritedDescriptors, uint32_t options)
    : niceIncrement_(niceIncrement), closeInheritedDescriptors_(closeInheritedDescriptors), options_(options) {}

ExternalApplication::~ExternalApplication() {
  if (pid_ <= 0) return;
  int status;
  RetryOnInterrupt([&] { return ::waitpid(pid_, &status, 0); });
}

void ExternalApplication::ChildLog(uint32_t maskBit, const std::string& text) {
  AppendRecord(childMessages_, kMessageRecord, maskBit, text);
}

void ExternalApplication::Start(const std::string& program, const std::vector<std::string>& arguments) {
  if (pid_ > 0) KX_THROW(exception::InvalidOperation);
  if (program.empty() || program.find('\0') != std::string::npos) KX_THROW(exception::InvalidArgument);
  for (const std::string& argument : arguments) {
    if (argument.find('\0') != std::string::npos) KX_THROW(exception::InvalidArgument);
  }

  // The argument vector is built before the fork, so the child only points into it.
  std::vector<std::string> texts;
  texts.reserve(arguments.size() + 1);
  texts.push_back(program);
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  argv.reserve(texts.size() + 1);
  for (std::string& text : texts) argv.push_back(text.data());
  argv.push_back(nullptr);

  int pipeEnds[2];
  if (::pipe2(pipeEnds, O_CLOEXEC) != 0) KX_THROW(PosixError);
  FileDescriptor reportReader(pipeEnds[0]);
  FileDescriptor reportWriter(pipeEnds[1]);
  const pid_t pid = ::fork();
  if (pid < 0) KX_THROW(PosixError, errno);
  if (pid == 0) {
    reportReader.Close();
    RunChild(reportWriter.Get(), argv);
  }
  reportWriter.Close();
  const int execError = ReadChildReport(reportReader.Get());
  reportReader.Close();
  if (execError != 0) {
    int status;
    RetryOnInterrupt([&] { return ::waitpid(pid, &status, 0); });
    KX_THROW(PosixError, execError);
  }
  pid_ = pid;
}

void ExternalApplication::RunChild(int reportFd, const std::vector<char*>& argv) {
  // The report pipe must not be taken over when setup() redirects descriptors 0 to 2.
  if (reportFd < 3) reportFd = ::fcntl(reportFd, F_DUPFD_CLOEXEC, 3);
  // A program starts with no blocked signals and the default broken-pipe action,
  // whatever the host process has set up for its own threads.
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  if (options_ & kOptionNewSession) ::setsid();
  if (niceIncrement_ != 0) {
    errno = 0;
    if (::nice(niceIncrement_) == -1 && errno != 0) {
      ChildLog(logmask::kError2, "Failed to change the priority of the program");
    }
  }
  setup();
  if (closeInheritedDescriptors_) CloseInheritedDescriptors(reportFd);
  WriteAll(reportFd, childMessages_.data(), childMessages_.size());

  ::execvp(argv[0], argv.data());
  std::string failure;
  AppendRecord(failure, kExecFailedRecord, static_cast<uint32_t>(errno), std::string());
  WriteAll(reportFd, failure.data(), failure.size());
  ::_exit(127);
}

int ExternalApplication::ReadChildReport(int reportFd) {
  char kind;
  while (ReadExactly(reportFd, &kind, 1)) {
    uint32_t number;
    if (!ReadExactly(reportFd, &number, sizeof number)) break;
    if (kind == kExecFailedRecord) return number != 0 ? static_cast<int>(number) : ENOEXEC;
    uint32_t length;
    if (kind != kMessageRecord || !ReadExactly(reportFd, &length, sizeof length)) break;
    std::string text(length, '\0');
    if (!ReadExactly(reportFd, text.data(), length)) break;
    KX_LOG(number, text);
  }
  return 0;  // end of file: the exec closed the pipe
}

int ExternalApplication::Wait() {
  if (pid_ <= 0) KX_THROW(exception::InvalidOperation);
  int status;
  const pid_t waited = RetryOnInterrupt([&] { return ::waitpid(pid_, &status, 0); });
  const int error = errno;
  pid_ = -1;
  if (waited < 0) KX_THROW(PosixError, error);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return WEXITSTATUS(status);
}

}  // namespace kx::tal::osdep
