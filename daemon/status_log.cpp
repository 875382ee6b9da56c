#include "daemon/status_log.h"

#include <cstdio>
#include <ctime>
#include <iostream>

#include "exchange/paths.h"
#include "kx/tal/log.h"
#include "kx/tal/path.h"
#include "kx/tal/time_text.h"

namespace kx::daemon {
namespace {

// The status log is an aid: when it cannot be written the other two outlets still work.
void WriteStatusLog(const std::string& line, const char* mode) {
  const std::string path = exchange::InstallationStatusLogPath();
  try {
    tal::CreateDirectories(tal::DirectoryPart(path));
  } catch (const std::exception&) {
    return;
  }
  if (FILE* file = std::fopen(path.c_str(), mode)) {
    std::fprintf(file, "%s %s\n", tal::TimeToText(std::time(nullptr), "%Y-%m-%d", "%H:%M:%S").c_str(), line.c_str());
    std::fclose(file);
  }
}

void Report(uint32_t maskBit, const char* prefix, const std::string& text) {
  std::cerr << "kxsid: " << prefix << text << std::endl;
  KX_LOG(maskBit, "kxsid: " + text);
  WriteStatusLog(prefix + text, "ae");
}

}  // namespace

void StartStatusLog(const std::string& title) {
  std::cerr << "kxsid: " << title << std::endl;
  WriteStatusLog(title, "we");
}

void ReportInfo(const std::string& text) { Report(tal::logmask::kInfo, "", text); }

void ReportError(const std::string& text) { Report(tal::logmask::kError, "error: ", text); }

}  // namespace kx::daemon
