// The real kx-webhost with the echo plug-in: what the plug-in receives, what
// the client gets back, and how hostile input is turned away.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/host/http_client.h"
#include "tests/host/webhost_process.h"
#include "tests/support/scratch_root.h"

namespace {

using kx::test::Exchange;
using kx::test::FormPart;
using kx::test::Get;
using kx::test::kMultipartType;
using kx::test::MultipartBody;
using kx::test::Post;
using kx::test::ReadFile;
using kx::test::WebhostProcess;
namespace fs = std::filesystem;

size_t FileCount(const std::string& directory) {
  std::error_code ignored;
  size_t count = 0;
  for (auto it = fs::directory_iterator(directory, ignored); it != fs::directory_iterator(); ++it) ++count;
  return count;
}

// Waits (at most 10 s) for the host to finish cleaning up after a request.
bool BecomesEmpty(const std::string& directory) {
  for (int i = 0; i < 1000 && FileCount(directory) != 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return FileCount(directory) == 0;
}

class WebhostEcho : public testing::Test {
 protected:
  kx::test::ScratchRoot root;
  WebhostProcess host{
      {"--root", root.Path(), "--plugin", KX_ECHO_PLUGIN_PATH, "--max-body", "1048576", "--max-text-body", "65536"}};
  const std::string uploads = root / "/.kx-uploads";

  // Whatever a test sent, the host still shuts down cleanly (and, built with
  // the sanitizers, without leaks).
  void TearDown() override { EXPECT_EQ(host.Stop(SIGTERM), 0); }

  void ExpectStillServing() {
    EXPECT_EQ(Get(host.Port(), "/swinstall/Echo").status, 200) << "the host stopped serving";
    EXPECT_TRUE(BecomesEmpty(uploads)) << "an upload file was left behind";
  }
};

TEST_F(WebhostEcho, FormFieldsBodyStatusAndReasonPassThePlugin) {
  auto answer =
      Post(host.Port(), "/swinstall/Echo?b=1&a=x%20y&bare", "application/x-www-form-urlencoded", "a=2&c=3+4&flag");
  EXPECT_EQ(answer.headers["content-type"], "text/plain");
  EXPECT_EQ(answer.body,  // the query first, then the body
            "method=Echo\nfield b=1\nfield a=x y\nfield bare=\nfield a=2\nfield c=3 4\nfield flag=\n"
            "uploads=none\nbody:a=2&c=3+4&flag");
  const std::string document = "<WSACTIONCOMMAND NAME=\"A1\" AUTOREBOOT=\"NO\"/>\n<CDF>a=1&b=2</CDF>";
  answer = Post(host.Port(), "/swinstall/SoftwareUpdate", "text/xml", document);
  EXPECT_EQ(answer.body, "method=SoftwareUpdate\nuploads=none\nbody:" + document);
  answer = Get(host.Port(), "/swinstall/Echo?status=409&reason=Action%20in%20progress");
  EXPECT_EQ(answer.status, 409);
  EXPECT_EQ(answer.headers["reason-phrase"], "Action in progress");
}

TEST_F(WebhostEcho, MultipartFilesAreStoredAndRemovedUnlessMoved) {
  const std::string catalogue = "<CDF>" + std::string(300000, 'x') + "</CDF>";
  const std::string command = "<WSACTIONCOMMAND NAME=\"A1\" AUTOREBOOT=\"YES\"/>";
  const auto kept = Post(host.Port(), "/swinstall/SoftwareUpdate?q=1", kMultipartType,
                         MultipartBody({{"command", command}, {"catalogue", catalogue, "install.cdf"}}));
  const std::string head = "method=SoftwareUpdate\nfield q=1\nfield command=" + command +
                           "\nuploads=1\nupload catalogue|install.cdf|" + std::to_string(catalogue.size()) + "|" +
                           fs::canonical(root.Path()).string() + "/.kx-uploads/upload-";
  EXPECT_EQ(kept.body.substr(0, head.size()), head);
  // The raw body still holds the text parts, but not the file's content.
  EXPECT_NE(kept.body.find("body:--kx-test-boundary"), std::string::npos);
  EXPECT_NE(kept.body.find(command + "\r\n--kx-test-boundary"), std::string::npos);
  EXPECT_EQ(kept.body.find("xxxx"), std::string::npos);
  EXPECT_TRUE(BecomesEmpty(uploads));

  fs::create_directories(root / "/.syscfg-action/A1");
  EXPECT_EQ(Post(host.Port(), "/swinstall/SoftwareUpdate?moveTo=.syscfg-action/A1/install.cdf", kMultipartType,
                 MultipartBody({{"catalogue", catalogue, "c.cdf"}}))
                .status,
            200);
  EXPECT_EQ(ReadFile(root / "/.syscfg-action/A1/install.cdf"), catalogue);
  EXPECT_TRUE(BecomesEmpty(uploads));
  // A multipart form without files still has an (empty) upload list.
  const auto none = Post(host.Port(), "/swinstall/Echo", kMultipartType, MultipartBody({{"a", "1"}, {"f", "", ""}}));
  EXPECT_NE(none.body.find("field a=1\nuploads=0\n"), std::string::npos) << none.body;
}

TEST_F(WebhostEcho, HostileRequestsGetAnAnswerOrAClosedConnection) {
  const std::string form = "application/x-www-form-urlencoded", longName(1 << 20, 'n');
  std::string chunked = "POST /swinstall/Echo HTTP/1.1\r\nHost: x\r\nContent-Type: " + std::string(kMultipartType) +
                        "\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (int i = 0; i < 20; ++i) chunked += "10000\r\n" + std::string(0x10000, 'c') + "\r\n";  // no declared length
  std::string broken = MultipartBody({{"f", "data", "a.cdf"}}), manyFields;
  broken.replace(broken.rfind("kx-test-boundary"), 5, "XXXXX");
  for (int i = 0; i < 1000; ++i) manyFields += "f" + std::to_string(i) + "=1&";
  const std::vector<FormPart> manyFiles(1000, FormPart{"f", "x", "f.bin"});
  const std::vector<FormPart> manyEmptyFiles(1000, FormPart{"f", "", ""});  // what a browser sends for no file
  const std::string framed = "POST /swinstall/Echo HTTP/1.1\r\nHost: x\r\nContent-Type: text/plain\r\n";
  const auto get = [](const std::string& target) { return "GET " + target + " HTTP/1.1\r\nHost: x\r\n\r\n"; };
  const auto post = [](const std::string& type, const std::string& body) {
    return "POST /swinstall/Echo HTTP/1.1\r\nHost: x\r\nContent-Type: " + type +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  };
  struct Case {
    std::string request;
    int status;  // 0: a 4xx answer or a closed connection
  };
  const Case cases[] = {
      {"GARBAGE\r\n\r\n", 0},
      {"GET /swinstall/Echo HTTP/1.1\r\nHost: x\r\nNo colon here\r\n\r\n", 0},
      {get("/swinstall/../x"), 404},
      {get("/swinstall/a%2F..%2Fx"), 404},
      {get("/other"), 404},
      {"DELETE /swinstall/Echo HTTP/1.1\r\nHost: x\r\n\r\n", 405},
      {post(kMultipartType, MultipartBody({{"f", std::string(1100000, 'z'), "big.bin"}})), 413},
      {post("text/xml", std::string(70000, 'x')), 413},
      {chunked, 0},
      {post(kMultipartType, broken), 400},
      {post("multipart/form-data", "x"), 400},
      {post(kMultipartType, "--kx-test-boundary\r\n\r\nno headers\r\n"), 400},
      {get("/swinstall/Echo?" + longName + "=1"), 0},
      {post(kMultipartType, MultipartBody({{longName, "1"}})), 0},
      {post(form, longName.substr(0, 60000) + "=1"), 400},
      {post(form, manyFields), 400},
      {get("/swinstall/Echo?" + manyFields), 0},
      {post(kMultipartType, MultipartBody(manyFiles)), 400},
      {post(kMultipartType, MultipartBody(manyEmptyFiles)), 400},
      {framed + "Content-Length: 3\r\nContent-Length: 4\r\n\r\nabcd", 400},
      {framed + "Content-Length: 4\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nabcd\r\n0\r\n\r\n", 400},
      {get("/swinstall/Echo?ActionID=A%00B"), 400},
      {post(form, "ActionID=A%00B"), 400},
      {post(kMultipartType, MultipartBody({{"ActionID", std::string("A\0B", 3)}})), 400},
  };
  for (const Case& c : cases) {
    std::string request = c.request;
    request.insert(request.find("\r\n") + 2, "Connection: close\r\n");
    const int status = Exchange(host.Port(), request).status;
    EXPECT_TRUE(c.status != 0 ? status == c.status : status == 0 || status / 100 == 4)
        << status << " " << c.request.substr(0, 80);
  }
  ExpectStillServing();
}

TEST_F(WebhostEcho, AClientThatDisconnectsMidUploadLeavesNoFile) {
  const int socket = kx::test::Connect(host.Port());
  const std::string start = "POST /swinstall/Echo HTTP/1.1\r\nHost: x\r\nContent-Type: " + std::string(kMultipartType) +
                            "\r\nContent-Length: 1000000\r\n\r\n--kx-test-boundary\r\nContent-Disposition: form-data;"
                            " name=\"f\"; filename=\"a.bin\"\r\n\r\n" +
                            std::string(200000, 'd');
  ASSERT_EQ(::send(socket, start.data(), start.size(), MSG_NOSIGNAL), static_cast<ssize_t>(start.size()));
  for (int i = 0; i < 1000 && FileCount(uploads) == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(FileCount(uploads), 1u) << "the upload was not being written";
  ::close(socket);
  ExpectStillServing();
}

TEST(WebhostLifecycle, RootIsSetForThePluginAndSigtermFinalizesIt) {
  kx::test::ScratchRoot root;
  ::unsetenv("KX_SYSTEM_ROOT");  // only --root names it
  WebhostProcess host({"--root", root.Path(), "--plugin", KX_ECHO_PLUGIN_PATH});
  EXPECT_EQ(ReadFile(root / "/echo-init"), fs::canonical(root.Path()).string());
  EXPECT_FALSE(fs::exists(root / "/echo-finalized"));
  const int status = host.Stop(SIGTERM);
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(fs::exists(root / "/echo-finalized"));
}

TEST(WebhostLifecycle, LocatorReportsTheServerPort) {
  kx::test::ScratchRoot root;
  // A free port for the locator: taken from the system, then released.
  WebhostProcess probe({"--baseline"});
  const uint16_t locatorPort = probe.Port();
  probe.Stop(SIGTERM);
  WebhostProcess host({"--baseline", "--locator-port", std::to_string(locatorPort)});
  const auto answer = Get(locatorPort, "/locator/SystemWebServer");
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(answer.body, "port=" + std::to_string(host.Port()) + "\nscheme=http\n");
  EXPECT_EQ(Get(locatorPort, "/locator/Other").status, 404);
  // A second host cannot take the same locator port, and says so.
  EXPECT_THROW(WebhostProcess({"--baseline", "--locator-port", std::to_string(locatorPort)}), std::runtime_error);
  // Bad options and a missing plug-in end the host too.
  EXPECT_THROW(WebhostProcess({"--threads", "0"}), std::runtime_error);
  EXPECT_THROW(WebhostProcess({"--plugin", "/nonexistent/plugin.so"}), std::runtime_error);
  EXPECT_THROW(WebhostProcess({"--listen", "127.0.0.1:99999"}), std::runtime_error);
}

}  // namespace
