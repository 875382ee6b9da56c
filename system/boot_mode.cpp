#include "system/boot_mode.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "kx/tal/path.h"
#include "system/log_err.h"
#include "system/reboot.h"

namespace kx::system {
namespace {

const char* const kModeWords[] = {"runtime", "install"};
constexpr uint32_t kModeCount = sizeof kModeWords / sizeof kModeWords[0];

void WriteBootModeFile(const char* word) {
  FILE* file = std::fopen(BootModeFilePath().c_str(), "we");
  if (file == nullptr) {
    logErr("Error opening boot mode file", errno);
    return;
  }
  if (std::fprintf(file, "%s", word) != static_cast<int>(std::strlen(word))) {
    logErr("Unable to write boot mode", 0);
  }
  // On disk before the restart cuts the power to the page cache.
  std::fflush(file);
  ::fsync(::fileno(file));
  std::fclose(file);
}

}  // namespace

std::string BootModeFilePath() { return tal::RootedPath("/tmp/kx_boot_mode_input"); }

void SetBootModeAndReboot(uint32_t mode) {
  if (mode >= kModeCount) {
    logErr("Unknown requested boot mode", EINVAL);
    return;
  }
  WriteBootModeFile(kModeWords[mode]);
  Reboot();
}

}  // namespace kx::system
