// HTTPS in kx-webhost, through real TLS clients: the self-signed certificate
// made once for an address other than loopback, given certificate files, TLS
// 1.2 and 1.3 only, and plain HTTP where asked for.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "tests/host/http_client.h"
#include "tests/host/webhost_process.h"
#include "tests/support/scratch_root.h"

namespace {

using kx::test::RunCommand;
using kx::test::WebhostProcess;

constexpr char kPing[] = "<?xml version=\"1.0\"?>\n<Ping Result=\"0\" Version=\"20.0.0\" Mode=\"0\" />\n";

std::string CurlPing(const std::string& caFile, const std::string& host, uint16_t port) {
  return RunCommand("curl -s --max-time 10 --cacert '" + caFile + "' https://" + host + ":" + std::to_string(port) +
                    "/swinstall/Ping")
      .output;
}

class WebhostTls : public testing::Test {
 protected:
  std::string TlsDirectory() const { return root / "/etc/brenmar/share/tls"; }
  kx::test::ScratchRoot root;
};

// Made on the first start on an address other than loopback, with its
// fingerprint printed; the same one served after a restart.
TEST_F(WebhostTls, SelfSignedCertificateIsMadeOnceAndReused) {
  std::string fingerprint;
  for (int start = 0; start < 2; ++start) {
    WebhostProcess host({"--root", root.Path(), "--listen", "127.0.0.2:0"});
    EXPECT_EQ(host.Scheme(), "https");
    const std::string line = host.ReadLine(5000).value_or("");
    ASSERT_EQ(line.rfind("kx-webhost: certificate SHA-256 fingerprint ", 0), 0u) << line;
    if (start == 0) fingerprint = line;
    EXPECT_EQ(line, fingerprint) << "a second start keeps the certificate";
    EXPECT_EQ(CurlPing(TlsDirectory() + "/webhost.crt", "127.0.0.2", host.Port()), kPing);
    EXPECT_EQ(host.Stop(SIGTERM), 0);
  }
  struct stat key {};
  ASSERT_EQ(::stat((TlsDirectory() + "/webhost.key").c_str(), &key), 0);
  EXPECT_EQ(key.st_mode & 0777, 0600u);
}

TEST_F(WebhostTls, OnlyTls12And13AndPlainHttpOnTheTlsPortIsClosed) {
  WebhostProcess host({"--root", root.Path(), "--listen", "127.0.0.2:0"});
  if (RunCommand("command -v gnutls-cli").status != 0) GTEST_SKIP() << "gnutls-cli is not installed";
  const auto handshake = [&](const char* version) {
    return RunCommand(std::string("gnutls-cli --insecure --priority NORMAL:-VERS-ALL:+VERS-") + version + " -p " +
                      std::to_string(host.Port()) + " 127.0.0.2 </dev/null")
        .status;
  };
  EXPECT_NE(handshake("TLS1.0"), 0);
  EXPECT_NE(handshake("TLS1.1"), 0);
  EXPECT_EQ(handshake("TLS1.2"), 0);
  EXPECT_EQ(handshake("TLS1.3"), 0);
  // Plain HTTP gets no HTTP answer, and the host goes on.
  const kx::test::HttpAnswer plain = kx::test::Exchange(
      host.Port(), "GET /swinstall/Ping HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n", "127.0.0.2");
  EXPECT_NE(plain.status, 200);
  EXPECT_EQ(CurlPing(TlsDirectory() + "/webhost.crt", "127.0.0.2", host.Port()), kPing);
}

// Given files serve HTTPS even on loopback; --no-tls keeps plain HTTP on another
// address; the locator tells the scheme.
TEST_F(WebhostTls, GivenCertificateOrNoTls) {
  { WebhostProcess first({"--root", root.Path(), "--listen", "127.0.0.2:0"}); }
  const std::string certificate = TlsDirectory() + "/webhost.crt";
  const std::string key = TlsDirectory() + "/webhost.key";
  WebhostProcess probe({"--baseline"});  // a free port for the locator
  const uint16_t locatorPort = probe.Port();
  probe.Stop(SIGTERM);
  {
    WebhostProcess host({"--root", root.Path(), "--listen", "127.0.0.2:0", "--tls-cert", certificate, "--tls-key", key,
                         "--locator-port", std::to_string(locatorPort)});
    EXPECT_EQ(CurlPing(certificate, "127.0.0.2", host.Port()), kPing);
    EXPECT_EQ(kx::test::Get(locatorPort, "/locator/SystemWebServer").body,
              "port=" + std::to_string(host.Port()) + "\nscheme=https\n");
  }
  WebhostProcess plain({"--root", root.Path(), "--listen", "127.0.0.2:0", "--no-tls"});
  EXPECT_EQ(plain.Scheme(), "http");
  EXPECT_EQ(kx::test::Exchange(plain.Port(), "GET /swinstall/Ping HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n",
                               "127.0.0.2")
                .body,
            kPing);
  EXPECT_THROW(WebhostProcess({"--root", root.Path(), "--tls-cert", certificate}), std::runtime_error);
  EXPECT_THROW(WebhostProcess({"--root", root.Path(), "--tls-cert", key, "--tls-key", key}), std::runtime_error);
}

}  // namespace
