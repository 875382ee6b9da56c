#include "daemon/image_check.h"

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

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

namespace {

// The directories and links of the image as far as read, one node each, found
// by the number of the node of the directory that holds it and its own name:
// an entry costs its new names once, never a copy of each of its directories'
// paths, so memory grows with the image, not with the square of a path's
// length. Files need no node.
class ImageTree {
 public:
  // Throws ImageRefused for a path below a link, or a link with entries below it.
  void Add(const std::string& path, bool isLink) {
    uint32_t node = 0;
    size_t start = 0;
    for (size_t end; (end = path.find('/', start)) != std::string::npos; start = end + 1) {
      node = Child(node, std::string_view(path).substr(start, end - start));
      if (nodes_[node].isLink) throw ImageRefused("the image holds " + path + " below its link " + path.substr(0, end));
      nodes_[node].hasEntries = true;
    }
    if (!isLink) return;
    node = Child(node, std::string_view(path).substr(start));
    if (nodes_[node].hasEntries) throw ImageRefused("the image holds entries below its link " + path);
    nodes_[node].isLink = true;
  }

 private:
  struct Node {
    bool isLink = false;
    bool hasEntries = false;
  };

  uint32_t Child(uint32_t parent, std::string_view name) {
    std::string key(reinterpret_cast<const char*>(&parent), sizeof parent);
    key.append(name);
    const auto [found, added] = numbers_.emplace(std::move(key), static_cast<uint32_t>(nodes_.size()));
    if (added) nodes_.emplace_back();
    return found->second;
  }

  std::vector<Node> nodes_{Node{}};  // [0]: the root
  std::unordered_map<std::string, uint32_t> numbers_;
};

}  // namespace

void CheckImage(const ImageFile& image, const std::function<void(int percent)>& onProgress) {
  ImageTree tree;
  ImageReader reader(image);
  for (ImageEntry entry; reader.Next(entry);) {
    const bool isLink = entry.type == ImageEntry::Type::kSymlink;
    tree.Add(entry.relativePath, isLink);
    if (isLink && !LinkStaysBelowRoot(entry.relativePath, entry.linkText)) {
      throw ImageRefused("the image holds a link out of the root: " + entry.relativePath + " -> " + entry.linkText);
    }
    onProgress(reader.PercentRead());
  }
}

}  // namespace kx::daemon
