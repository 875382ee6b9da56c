#include "daemon/rooted_target.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "catalogue/package.h"
#include "kx/tal/path.h"

namespace kx::daemon {
namespace {

// As many as the kernel follows in one lookup.
constexpr int kMaxLinks = 40;

void SplitInto(std::string_view path, std::deque<std::string>& parts, bool atFront) {
  std::vector<std::string> split;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    if (end > start) split.emplace_back(path.substr(start, end - start));
    start = end + 1;
  }
  if (atFront) {
    parts.insert(parts.begin(), split.begin(), split.end());
  } else {
    parts.insert(parts.end(), split.begin(), split.end());
  }
}

std::string Join(const std::vector<std::string>& parts) {
  std::string path;
  for (const std::string& part : parts) path += "/" + part;
  return path.empty() ? "/" : path;
}

std::string ReadLink(const std::string& path) {
  std::vector<char> text(4096);
  const ssize_t length = ::readlink(path.c_str(), text.data(), text.size());
  if (length < 0 || static_cast<size_t>(length) >= text.size()) {
    throw std::system_error(length < 0 ? errno : ENAMETOOLONG, std::generic_category(), "cannot read the link " + path);
  }
  return std::string(text.data(), static_cast<size_t>(length));
}

}  // namespace

ResolvedTarget ResolveTarget(std::string_view targetPath) {
  if (targetPath.empty()) throw std::invalid_argument("empty target path");
  for (const char c : targetPath) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
      throw std::invalid_argument("target path with a control character: " + std::string(targetPath));
    }
  }
  std::string normalized(targetPath);
  catalogue::NormalizeTargetPath(normalized);
  normalized = tal::CleanPath(normalized);
  if (normalized == "/") throw std::invalid_argument("target path names the root: " + std::string(targetPath));

  std::deque<std::string> pending;
  SplitInto(normalized, pending, false);
  const std::string last = pending.back();
  pending.pop_back();

  const std::string root = tal::SystemRoot();
  std::vector<std::string> resolved;
  int links = 0;
  while (!pending.empty()) {
    const std::string part = std::move(pending.front());
    pending.pop_front();
    if (part == ".") continue;
    if (part == "..") {
      if (!resolved.empty()) resolved.pop_back();
      continue;
    }
    resolved.push_back(part);
    const std::string host = tal::JoinPath(root, Join(resolved));
    struct stat info {};
    if (::lstat(host.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) continue;
    if (++links > kMaxLinks) {
      throw std::system_error(ELOOP, std::generic_category(), "cannot resolve " + std::string(targetPath));
    }
    const std::string link = ReadLink(host);
    resolved.pop_back();
    if (!link.empty() && link.front() == '/') resolved.clear();
    SplitInto(link, pending, true);
  }
  resolved.push_back(last);
  ResolvedTarget result;
  result.targetPath = Join(resolved);
  result.hostPath = tal::JoinPath(root, result.targetPath);
  return result;
}

}  // namespace kx::daemon
