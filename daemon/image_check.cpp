#include "daemon/image_check.h"

#include <unordered_set>

namespace kx::daemon {

bool LinkStaysBelowRoot(const std::string& relativePath, const std::string& linkText) {
  if (linkText.front() == '/') return true;
  size_t depth = 0;  // of the link's directory
  for (const char c : relativePath) depth += c == '/' ? 1 : 0;
  for (size_t start = 0; start <= linkText.size();) {
    size_t end = linkText.find('/', start);
    if (end == std::string::npos) end = linkText.size();
    const std::string part = linkText.substr(start, end - start);
    if (part == "..") {
      if (depth == 0) return false;
      --depth;
    } else if (!part.empty() && part != ".") {
      ++depth;
    }
    start = end + 1;
  }
  return true;
}

void CheckImage(const ImageFile& image, const std::function<void(int percent)>& onProgress) {
  // Memory grows with the links and directories of the image, not its files.
  std::unordered_set<std::string> links;
  std::unordered_set<std::string> parents;
  ImageReader reader(image);
  for (ImageEntry entry; reader.Next(entry);) {
    const std::string& path = entry.relativePath;
    for (size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
      const std::string parent = path.substr(0, slash);
      if (links.count(parent) != 0) throw ImageRefused("the image holds " + path + " below its link " + parent);
      parents.insert(parent);
    }
    if (entry.type == ImageEntry::Type::kSymlink) {
      if (parents.count(path) != 0) throw ImageRefused("the image holds entries below its link " + path);
      if (!LinkStaysBelowRoot(path, entry.linkText)) {
        throw ImageRefused("the image holds a link out of the root: " + path + " -> " + entry.linkText);
      }
      links.insert(path);
    }
    onProgress(reader.PercentRead());
  }
}

}  // namespace kx::daemon
