#pragma once
// Runs an outside program quietly: its standard output and error may go to
// files, and in safe mode it may run below another root directory.

#include <cstdint>
#include <string>
#include <vector>

#include "kx/tal/osdep/external_application.h"

namespace kx::platform {

class NoWindowExternalApplication : public tal::osdep::ExternalApplication {
 public:
  // stdoutPath / stderrPath: files that receive the program's output (appended,
  // created with mode 0644); empty leaves the stream alone. Both are cleaned up
  // as paths; the same path for both opens the file once for the two streams.
  // chrootDir: the program's root directory, used in safe mode only; empty for none.
  // niceIncrement and options go to the base class; closeInheritedDescriptors is
  // true when asked for or when the process-wide default says so.
  // Throws InvalidSequence when a path is not valid wide text.
  NoWindowExternalApplication(const std::wstring& stdoutPath, const std::wstring& stderrPath,
                              const std::string& chrootDir, int32_t niceIncrement = 0,
                              bool closeInheritedDescriptors = false, uint32_t options = kOptionNone);

  // Runs `program` with `arguments` (each passed as one argument, no shell) and
  // waits without time limit. The exit status, 128 + signal number when a signal
  // ended it, or -1 when it could not be started or waited for.
  int startAndComplete(const std::string& program, const std::vector<std::string>& arguments);

  const std::wstring& StdoutPath() const { return stdoutPath_; }
  const std::wstring& StderrPath() const { return stderrPath_; }
  const std::string& ChrootDirectory() const { return chrootDir_; }

 protected:
  void setup() override;

 private:
  // Opens `path` for appending and makes it each of the given descriptors.
  void Redirect(const std::string& path, const char* message, int firstFd, int secondFd);

  std::wstring stdoutPath_;
  std::wstring stderrPath_;
  // Narrow forms for the child, converted here so the child does no conversion.
  std::string stdoutFile_;
  std::string stderrFile_;
  std::string chrootDir_;
};

}  // namespace kx::platform
