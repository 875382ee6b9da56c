// The image check's limits: paths as long and deep as a real tree may hold pass,
// absurd ones are refused before they cost anything.

#include "daemon/image_check.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/daemon/test_image.h"
#include "tests/support/scratch_root.h"

namespace {

using kx::daemon::ImageRefused;
using kx::daemon::kMaxImageNameLength;
using kx::daemon::kMaxImagePathDepth;
using kx::daemon::kMaxImagePathLength;
using kx::test::TestImageEntry;

// A path of `components` components and `length` bytes, the names as even as can be.
std::string PathOf(size_t components, size_t length) {
  const size_t names = length - (components - 1);
  std::string path;
  for (size_t i = 0; i < components; ++i) {
    if (i > 0) path += '/';
    path += std::string(names / components + (i < names % components ? 1 : 0), static_cast<char>('a' + i % 26));
  }
  return path;
}

class ImageCheck : public testing::Test {
 protected:
  void Check(const std::vector<TestImageEntry>& entries) {
    const std::string image = root / "/image.tgz";
    kx::test::WriteTestImage(image, entries);
    kx::daemon::CheckImage(kx::daemon::ImageFile(image), [](int) {});
  }

  kx::test::ScratchRoot root;
};

TEST_F(ImageCheck, PathsUpToTheLimitsPass) {
  const std::string deepestAndLongest = PathOf(kMaxImagePathDepth, kMaxImagePathLength);
  EXPECT_NO_THROW(Check({{deepestAndLongest, 'f', "x"},
                         {"link", 'l', deepestAndLongest},
                         {std::string(kMaxImageNameLength, 'n'), 'f', "x"}}));
}

TEST_F(ImageCheck, LongerOrDeeperPathsAreRefused) {
  for (const TestImageEntry& entry : std::vector<TestImageEntry>{
           {PathOf(kMaxImagePathDepth + 1, 2 * kMaxImagePathDepth + 1), 'f', "x"},
           {PathOf(kMaxImagePathLength / kMaxImageNameLength + 1, kMaxImagePathLength + 1), 'd', ""},
           {"link", 'l', std::string(kMaxImagePathLength + 1, 'l')},
           {std::string(kMaxImageNameLength + 1, 'n'), 'f', "x"}}) {
    EXPECT_THROW(Check({{"first", 'f', "x"}, entry}), ImageRefused) << entry.path.size() << " " << entry.type;
  }
}

}  // namespace
