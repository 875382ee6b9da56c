// InstalledComponents: the installed configuration "config.cdf" as the daemon
// wrote it, or a result code telling why there is none.

#include <string>

#include "actions/web_methods.h"
#include "exchange/paths.h"
#include "exchange/result_codes.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/log.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"
#include "webrequest/request_helpers.h"

namespace kx::actions {
namespace {

// The document up to its first empty line: the answer has always stopped there,
// and remote hosts expect exactly that much.
int32_t ReadUpToBlankLine(const std::string& path, std::string& output) {
  try {
    tal::TextFileReader reader(path);
    std::string line;
    while (reader.ReadLine(line) && !line.empty()) output += line + "\n";
    return 0;
  } catch (const tal::exception::Exception&) {
    output.clear();
    return exchange::kResultSaveFailed;
  }
}

}  // namespace

int32_t InstalledComponents(const KeyValuePairList&, uint32_t, std::string& output, int32_t&, bool&) {
  KX_LOG(tal::logmask::kEntry, "GetInstalledComponents()");
  const std::string configuration = exchange::InstalledConfigurationPath();
  int32_t result;
  if (tal::PathExists(configuration)) {
    result = ReadUpToBlankLine(configuration, output);
  } else if (!tal::PathExists(exchange::FailedInstallationMarkerPath())) {
    result = exchange::kResultNoConfiguration;
  } else {
    result = exchange::CurrentActionDirectory().empty() ? exchange::kResultFailedInstall
                                                        : exchange::kResultFailedInstallPending;
  }
  if (result != 0) webrequest::WriteResultXml(output, L"INSTALLATION", result, L"");
  return result;
}

}  // namespace kx::actions
