#include "actions/blacklist_file.h"

#include <exception>

#include "exchange/paths.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"

namespace kx::actions {
std::string ExchangeRelativePath(const std::string& path, const std::string& base) {
  if (path.compare(0, base.size(), base) == 0) return path.substr(base.size());
  return path.empty() ? path : path.substr(1);
}

std::vector<std::string> SplitBlacklist(const std::string& blacklist) {
  std::vector<std::string> paths;
  size_t begin = 0;
  while (begin < blacklist.size()) {
    size_t end = blacklist.find_first_of("\t\n\r", begin);
    if (end == std::string::npos) end = blacklist.size();
    if (end > begin) paths.push_back(blacklist.substr(begin, end - begin));
    begin = end + 1;
  }
  return paths;
}

std::string WriteBlacklistFile(const std::string& fileName, const std::string& blacklist) {
  std::string path = exchange::RequestFilePath(fileName);
  if (path.empty()) return path;
  // The listed paths are target paths sent by the host, never below a test's system root.
  const std::string hostBase = exchange::TargetPathInExchangeBase(exchange::IsSafeMode(), "");
  std::string text;
  for (const std::string& listed : SplitBlacklist(blacklist)) {
    text += ExchangeRelativePath(listed, hostBase) + "\n";
  }
  try {
    tal::WriteTextFile(path, text);
  } catch (const std::exception&) {
    return std::string();
  }
  return path;
}

std::string BlacklistPathForDaemon(const std::string& blacklistFile) {
  if (exchange::IsSafeMode()) return blacklistFile;
  return tal::JoinPath(exchange::kUserFileSystem, ExchangeRelativePath(blacklistFile, exchange::ExchangeBase(true)));
}

}  // namespace kx::actions
