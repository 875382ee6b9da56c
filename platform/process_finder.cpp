#include "platform/process_finder.h"

#include <dirent.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "exchange/ipc_names.h"

namespace kx::platform {
namespace {

// The pid that an entry of /proc names, or 0 for any other entry.
long ProcessNumber(const char* entryName) {
  char* end = nullptr;
  const long number = std::strtol(entryName, &end, 10);
  return (end != entryName && *end == '\0' && number >= 1) ? number : 0;
}

}  // namespace

pid_t FindProcess(const std::string& name) {
  DIR* proc = ::opendir("/proc");
  if (proc == nullptr) return 0;
  pid_t found = 0;
  while (const dirent* entry = ::readdir(proc)) {
    if (ProcessNumber(entry->d_name) == 0) continue;
    const std::string statPath = std::string("/proc/") + entry->d_name + "/stat";
    FILE* stat = std::fopen(statPath.c_str(), "re");
    if (stat == nullptr) continue;  // the process ended meanwhile
    int pid = 0;
    char command[65] = {};
    const bool matches = std::fscanf(stat, "%d (%64[^)]", &pid, command) == 2 && name == command;
    std::fclose(stat);
    if (matches) {
      found = pid;
      break;
    }
  }
  ::closedir(proc);
  return found;
}

bool IsDaemonRunning() { return FindProcess(exchange::kDaemonProcessName) != 0; }

}  // namespace kx::platform
