// Following the target: Ping says the service is there and in which mode the
// target is; Progress passes on what the installation daemon has published
// about the running and the last action.

#include <cwctype>
#include <optional>
#include <string>

#include "actions/controller_services.h"
#include "actions/progress_state.h"
#include "actions/web_methods.h"
#include "exchange/paths.h"
#include "exchange/result_codes.h"
#include "exchange/state_files.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/log.h"
#include "kx/tal/osdep/named_mutex.h"
#include "kx/tal/osdep/posix_io.h"
#include "kx/tal/osdep/simple_shared_memory.h"
#include "kx/tal/path.h"
#include "platform/progress_region.h"
#include "webrequest/request_helpers.h"

namespace kx::actions {
namespace {

using tal::logmask::kInfo;

constexpr char kServiceVersion[] = "20.0.0";
constexpr char kXmlDeclaration[] = "<?xml version=\"1.0\"?>\n";

// Cuts trailing white space. Only single bytes are tested: a byte of a multi-byte
// UTF-8 sequence is never white space, and text the daemon wrote in another
// encoding still passes through unchanged.
void TrimTrailingWhiteSpace(std::string& text) {
  size_t end = text.size();
  while (end > 0) {
    const unsigned char c = static_cast<unsigned char>(text[end - 1]);
    if (c >= 0x80 || !std::iswspace(c)) break;
    --end;
  }
  text.erase(end);
}

// Appends the lines of a state file without their line ends ("\n" or "\r\n").
// Only a regular file is read: opening a FIFO put in its place would wait, with
// the progress mutex held, for a writer that may never come.
void AppendLines(const std::string& path, std::string& text) {
  const std::optional<std::string> content = tal::osdep::ReadSmallRegularFile(path, exchange::kMaxStateFileSize);
  if (!content) KX_THROW(tal::exception::FileReadFailed);
  for (size_t at = 0; at < content->size(); ++at) {
    if ((*content)[at] != '\n') {
      text += (*content)[at];
    } else if (at > 0 && (*content)[at - 1] == '\r') {
      text.pop_back();
    }
  }
}

// The running action as the daemon describes it: the current action file when
// it has content, else the progress region; "" when neither says anything.
std::string CurrentActionText() {
  std::string current;
  const std::string currentPath = exchange::CurrentActionFilePath();
  if (tal::PathExists(currentPath)) {
    KX_LOG(kInfo, "Found a Current Action XML File");
    AppendLines(currentPath, current);
  }
  TrimTrailingWhiteSpace(current);
  if (!current.empty()) return current;

  KX_LOG(kInfo, "Getting current action from shared memory");
  if (const tal::osdep::SimpleSharedMemory* region = actions::ProgressRegion()) {
    current = platform::ReadProgressText(*region);
    TrimTrailingWhiteSpace(current);
  }
  return current;
}

}  // namespace

int32_t Ping(const KeyValuePairList&, uint32_t, std::string& output, int32_t&, bool&) {
  const bool flag = Services().systemState.InSafeOrInstallMode();
  // The two possible answers, whole: no text is put together per request.
  static const std::string kAnswers[] = {
      std::string(kXmlDeclaration) + "<Ping Result=\"0\" Version=\"" + kServiceVersion + "\" Mode=\"0\" />\n",
      std::string(kXmlDeclaration) + "<Ping Result=\"0\" Version=\"" + kServiceVersion + "\" Mode=\"1\" />\n",
  };
  output = kAnswers[flag ? 1 : 0];
  KX_LOG(kInfo, output);
  return exchange::kResultOk;
}

int32_t Progress(const KeyValuePairList&, uint32_t, std::string& output, int32_t&, bool&) {
  std::string answer = std::string(kXmlDeclaration) + "<Progress>\n";
  tal::osdep::NamedMutexLock lock(actions::ProgressMutex());
  try {
    const std::string current = CurrentActionText();
    answer += current.empty() ? "<Current/>\n" : current;

    const std::string lastPath = exchange::LastActionFilePath();
    if (tal::PathExists(lastPath)) {
      KX_LOG(kInfo, "Found a Last Action XML File");
      AppendLines(lastPath, answer);
    }
  } catch (const tal::exception::Exception&) {
    webrequest::WriteResultXml(output, L"Progress", exchange::kResultSaveFailed, L"");
    return exchange::kResultSaveFailed;
  }
  answer += "</Progress>";
  lock.Release();
  output = std::move(answer);
  return exchange::kResultOk;
}

}  // namespace kx::actions
