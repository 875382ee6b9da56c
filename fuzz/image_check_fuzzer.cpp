// Fuzz target for the check of a system image to restore. Input that starts
// with the gzip magic is the image itself; any other input is taken as the tar
// inside and compressed first, so that mutations reach the tar headers rather
// than break the deflate stream. The check must accept or refuse
// (ImageRefused), never crash, hang or throw anything else, and must agree
// with a plain reading of its rules that keeps every directory's whole path.

#include <unistd.h>
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unordered_set>

#include "daemon/image_check.h"
#include "daemon/image_reader.h"

namespace {

using kx::daemon::ImageEntry;
using kx::daemon::ImageRefused;

std::string gRoot;
std::string gImage;

void Require(bool condition) {
  if (!condition) std::abort();
}

std::string Gzip(const uint8_t* data, size_t size) {
  z_stream stream{};
  Require(deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) == Z_OK);
  std::string compressed(deflateBound(&stream, size), '\0');
  stream.next_in = const_cast<Bytef*>(data);
  stream.avail_in = static_cast<uInt>(size);
  stream.next_out = reinterpret_cast<Bytef*>(compressed.data());
  stream.avail_out = static_cast<uInt>(compressed.size());
  Require(deflate(&stream, Z_FINISH) == Z_STREAM_END);
  compressed.resize(stream.total_out);
  deflateEnd(&stream);
  return compressed;
}

// The rules of image_check.h, read plainly: memory grows with the square of a
// path's length, which the entry limits keep small here.
bool PlainCheckAccepts(const kx::daemon::ImageFile& image) {
  std::unordered_set<std::string> links, directories;
  kx::daemon::ImageReader reader(image);
  for (ImageEntry entry; reader.Next(entry);) {
    const std::string& path = entry.relativePath;
    for (size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
      if (links.count(path.substr(0, slash)) != 0) return false;
      directories.insert(path.substr(0, slash));
    }
    if (entry.type != ImageEntry::Type::kSymlink) continue;
    if (directories.count(path) != 0 || !kx::daemon::LinkStaysBelowRoot(path, entry.linkText)) return false;
    links.insert(path);
  }
  return true;
}

void RemoveScratch() {
  ::unlink(gImage.c_str());
  ::rmdir(gRoot.c_str());
}

}  // namespace

// The image lies below a scratch system root of its own, as the daemon's do.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp != nullptr && *tmp ? tmp : "/tmp") + "/kx-image-fuzz-XXXXXX";
  Require(::mkdtemp(pattern.data()) != nullptr);
  gRoot = pattern;
  gImage = gRoot + "/image.tgz";
  ::setenv("KX_SYSTEM_ROOT", gRoot.c_str(), 1);
  std::atexit(RemoveScratch);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const bool gzipped = size >= 2 && data[0] == 0x1f && data[1] == 0x8b;
  const std::string image = gzipped ? std::string(reinterpret_cast<const char*>(data), size) : Gzip(data, size);
  std::ofstream(gImage, std::ios::binary | std::ios::trunc) << image;
  const kx::daemon::ImageFile file(gImage);
  bool accepted = true;
  try {
    kx::daemon::CheckImage(file, [](int percent) { Require(percent >= 0 && percent <= 100); });
  } catch (const ImageRefused&) {
    accepted = false;
  }
  bool plainAccepts = false;
  try {
    plainAccepts = PlainCheckAccepts(file);
  } catch (const ImageRefused&) {
  }
  Require(accepted == plainAccepts);
  return 0;
}
