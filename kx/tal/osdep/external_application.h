#pragma once
// Runs an outside program: fork, a set-up step in the child, exec of the program
// with an argument vector (no shell), wait, exit status.
//
// The child of a multi-threaded process may not take locks that another thread
// held at the fork (the log, syslog). So the set-up step logs through ChildLog():
// the child sends its messages back over a pipe and the parent logs them. The
// same pipe reports a failed exec, so Start() can tell "could not be started"
// from "ran and failed".

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kx::tal::osdep {

class ExternalApplication {
 public:
  enum Option : uint32_t {
    kOptionNone = 0,
    kOptionNewSession = 1,  // the child starts a session of its own (no controlling terminal)
  };

  // Process-wide default for closing inherited descriptors, used by subclasses
  // whose callers do not ask for it explicitly. False until set.
  static void SetCloseDescriptorsByDefault(bool close);
  static bool CloseDescriptorsByDefault();

  // niceIncrement: added to the child's nice value (0: unchanged).
  // closeInheritedDescriptors: the child closes every descriptor above 2 before exec.
  explicit ExternalApplication(int32_t niceIncrement = 0, bool closeInheritedDescriptors = false,
                               uint32_t options = kOptionNone);
  // Waits for a program that was started and not waited for, so no zombie is left.
  virtual ~ExternalApplication();
  ExternalApplication(const ExternalApplication&) = delete;
  ExternalApplication& operator=(const ExternalApplication&) = delete;

  // Starts `program` (searched in PATH when it holds no "/") with the argument
  // vector program, arguments... Each argument reaches the program as it is.
  // Throws InvalidOperation when a started program has not been waited for,
  // InvalidArgument for an empty program or a text holding NUL, PosixError when
  // the fork or the exec fails.
  void Start(const std::string& program, const std::vector<std::string>& arguments);

  // Waits for the started program without time limit. Returns its exit status
  // (0..255), or 128 + the signal number when a signal ended it. Throws
  // InvalidOperation when nothing was started, PosixError when waitpid fails.
  int Wait();

  pid_t ProcessId() const { return pid_; }
  bool ClosesInheritedDescriptors() const { return closeInheritedDescriptors_; }

 protected:
  // Runs in the child after the fork, before the exec. Only this thread exists
  // there: log through ChildLog, never through the log directly.
  virtual void setup() {}

  // From setup(): queues a message that the parent logs with the given mask bit.
  void ChildLog(uint32_t maskBit, const std::string& text);

 private:
  // Child side: everything between fork and exec. Never returns.
  [[noreturn]] void RunChild(int reportFd, const std::vector<char*>& argv);
  // Parent side: logs the child's messages; returns the exec errno, or 0 once exec succeeded.
  static int ReadChildReport(int reportFd);

  int32_t niceIncrement_;
  bool closeInheritedDescriptors_;
  uint32_t options_;
  pid_t pid_ = -1;
  std::string childMessages_;  // filled by ChildLog in the child only
};

}  // namespace kx::tal::osdep
