// The system image download of kx-webhost: whole, by byte range, and nothing
// but that one file of the action exchange directory.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <future>
#include <vector>

#include "tests/host/http_client.h"
#include "tests/host/webhost_process.h"
#include "tests/support/scratch_root.h"

namespace {

namespace fs = std::filesystem;
using kx::test::Exchange;
using kx::test::Get;

constexpr char kImageUrl[] = "/swinstall/files/.syscfg-action/A1/SystemImage.tgz";

class WebhostImageDownload : public testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 100000; ++i) image += static_cast<char>(i * 7 % 256);
    root.WriteFile("/.syscfg-action/A1/SystemImage.tgz", image);
    root.WriteFile("/.syscfg-action/A1/ActionLock.txt", "Id=A1\n");
    root.WriteFile("/outside/SystemImage.tgz", "secret");
  }
  void TearDown() override { EXPECT_EQ(host.Stop(SIGTERM), 0); }

  kx::test::HttpAnswer GetRange(const std::string& target, const std::string& range) {
    return Exchange(host.Port(),
                    "GET " + target + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\nRange: " + range + "\r\n\r\n");
  }

  kx::test::ScratchRoot root;
  kx::test::WebhostProcess host{{"--root", root.Path()}};
  std::string image;
};

TEST_F(WebhostImageDownload, WholeAndByRange) {
  const auto whole = Get(host.Port(), kImageUrl);
  EXPECT_EQ(whole.status, 200);
  EXPECT_TRUE(whole.body == image) << whole.body.size();
  EXPECT_EQ(whole.headers.at("accept-ranges"), "bytes");

  struct Case {
    const char* range;
    int status;
    size_t first, length;
    const char* contentRange;
  };
  for (const Case& c :
       {Case{"bytes=10-19", 206, 10, 10, "bytes 10-19/100000"},
        Case{"bytes=99990-", 206, 99990, 10, "bytes 99990-99999/100000"},
        Case{"bytes=-5", 206, 99995, 5, "bytes 99995-99999/100000"},
        Case{"bytes=99999-200000", 206, 99999, 1, "bytes 99999-99999/100000"},
        Case{"bytes=100000-", 416, 0, 0, "bytes */100000"}, Case{"bytes=-0", 416, 0, 0, "bytes */100000"},
        // Ignored: several ranges, another unit, nonsense.
        Case{"bytes=0-1,5-6", 200, 0, 100000, nullptr}, Case{"lines=1-2", 200, 0, 100000, nullptr},
        Case{"bytes=9-3", 200, 0, 100000, nullptr}}) {
    const auto answer = GetRange(kImageUrl, c.range);
    EXPECT_EQ(answer.status, c.status) << c.range;
    if (c.status != 416) {
      EXPECT_TRUE(answer.body == image.substr(c.first, c.length)) << c.range;
    }
    const auto contentRange = answer.headers.find("content-range");
    EXPECT_EQ(contentRange == answer.headers.end() ? "" : contentRange->second, c.contentRange ? c.contentRange : "")
        << c.range;
  }
}

TEST_F(WebhostImageDownload, NothingElseAndNoLinkIsServed) {
  fs::create_symlink(root / "/outside", root / "/.syscfg-action/A2");
  fs::create_directories(root / "/.syscfg-action/A3");
  fs::create_symlink(root / "/outside/SystemImage.tgz", root / "/.syscfg-action/A3/SystemImage.tgz");
  for (const std::string target :
       {"/swinstall/files/.syscfg-action/A1/ActionLock.txt", "/swinstall/files/.syscfg-action/A2/SystemImage.tgz",
        "/swinstall/files/.syscfg-action/A3/SystemImage.tgz",
        "/swinstall/files/.syscfg-action/../outside/SystemImage.tgz",
        "/swinstall/files/.syscfg-action/%2e%2e/outside/SystemImage.tgz", "/swinstall/files/outside/SystemImage.tgz",
        "/swinstall/files/.syscfg-action/A1/../A1/SystemImage.tgz", "/swinstall/files/.syscfg-action/SystemImage.tgz",
        "/swinstall/files/.syscfg-action/A1/SystemImage.tgz/x"}) {
    EXPECT_EQ(Get(host.Port(), target).status, 404) << target;
  }
  EXPECT_EQ(Exchange(host.Port(), std::string("POST ") + kImageUrl +
                                      " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n"
                                      "Content-Length: 0\r\n\r\n")
                .status,
            405);
  // In safe mode the exchange is below the user file system, and only there.
  root.WriteFile("/etc/brenmar/safemode", "");
  EXPECT_EQ(Get(host.Port(), kImageUrl).status, 404);
  root.WriteFile("/mnt/userfs/.syscfg-action/A1/SystemImage.tgz", "safe");
  EXPECT_EQ(Get(host.Port(), kImageUrl).body, "safe");
}

// A FIFO in the image's place is never opened for reading: each download gets
// 404 at once, and the host goes on serving.
TEST_F(WebhostImageDownload, AFifoInPlaceOfTheImageBlocksNothing) {
  const std::string image = root / "/.syscfg-action/A1/SystemImage.tgz";
  fs::remove(image);
  ASSERT_EQ(::mkfifo(image.c_str(), 0644), 0);
  std::vector<std::future<int>> downloads;
  for (int i = 0; i < 4; ++i) {
    downloads.push_back(std::async(std::launch::async, [&] { return Get(host.Port(), kImageUrl).status; }));
  }
  for (auto& download : downloads) EXPECT_EQ(download.get(), 404);
  EXPECT_EQ(Get(host.Port(), "/swinstall/Ping").status, 200);
}

}  // namespace
