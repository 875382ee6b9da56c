#pragma once
// The blacklist that GetSystemImage and SetSystemImage hand to the daemon: the
// paths it must leave out, written as a file into the current action directory,
// one path a line, each in its exchange-relative form.

#include <string>
#include <vector>

namespace kx::actions {

// `path` without `base` when it starts with it; otherwise without its first
// character (so "/x" becomes "x").
std::string ExchangeRelativePath(const std::string& path, const std::string& base);

// The paths of a "Blacklist" value, split at tab, LF and CR; empty pieces are dropped.
std::vector<std::string> SplitBlacklist(const std::string& blacklist);

// Writes the paths of `blacklist` as `fileName` in the current action directory,
// each relative to the exchange base the host sees ("/mnt/userfs/" in safe mode,
// "/" in run mode) and ended by "\n". The file's path, or "" when there is no
// current action directory or the file cannot be written.
std::string WriteBlacklistFile(const std::string& fileName, const std::string& blacklist);

// The blacklist file's path as the daemon will open it. In run mode it reads it
// after the restart into install mode, where the user file system lies under
// "/mnt/userfs/"; in safe mode it is the path itself.
std::string BlacklistPathForDaemon(const std::string& blacklistFile);

}  // namespace kx::actions
