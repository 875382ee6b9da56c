// Who may call kx-webhost, through real TLS with curl from 127.0.0.2 (an
// address of the network as far as the host is concerned) and from 127.0.0.1:
// users added and removed by its own commands, every protected route, client
// certificates, the failure limit, bad credentials and the audit trail.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/host/http_client.h"
#include "tests/host/webhost_process.h"
#include "tests/support/scratch_root.h"

namespace {

using kx::test::RunCommand;
using kx::test::WebhostProcess;

const std::vector<std::string> kProtectedMethods = {
    "BeginAction", "CancelAction",   "FinalizeAction", "Format",  "GetSystemImage", "InstalledComponents",
    "Progress",    "SetSystemImage", "SoftwareUpdate", "Restart", "NoSuchMethod"};

class WebhostAuthentication : public testing::Test {
 protected:
  std::string UsersFile() const { return root / "/etc/brenmar/share/webhost-users"; }
  std::string AuditFile() const { return root.Path() + "/webhost.err"; }

  kx::test::CommandResult UserCommand(const std::string& arguments, const std::string& input = "") {
    return RunCommand("printf '" + input + "' | " KX_WEBHOST_PATH " --root '" + root.Path() + "' " + arguments);
  }

  // HTTPS (and the baseline's fixed answers) on 127.0.0.2.
  std::unique_ptr<WebhostProcess> Start(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> arguments = {"--root", root.Path(), "--listen", "127.0.0.2:0", "--baseline"};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    auto host = std::make_unique<WebhostProcess>(arguments, AuditFile());
    port = host->Port();
    scheme = host->Scheme();
    return host;
  }

  // curl's answer: "STATUS BODY" (with -i, the headers before the body).
  std::string Curl(const std::string& path, const std::string& options = "", bool fromNetwork = true) {
    const std::string certificate = root / "/etc/brenmar/share/tls/webhost.crt";
    return RunCommand("curl -s --max-time 20 --cacert '" + certificate + "' " +
                      (fromNetwork ? "--interface 127.0.0.2 " : "") + options + " -w ' %{http_code}' " + scheme +
                      "://127.0.0.2:" + std::to_string(port) + path)
        .output;
  }
  std::string Status(const std::string& path, const std::string& options = "", bool fromNetwork = true) {
    const std::string answer = Curl(path, "-o /dev/null " + options, fromNetwork);
    return answer.substr(answer.find_last_of(' ') + 1);
  }

  kx::test::ScratchRoot root;
  uint16_t port = 0;
  std::string scheme;
};

TEST_F(WebhostAuthentication, WithoutUsersOnlyTheControllerItselfMayCall) {
  auto host = Start();
  EXPECT_EQ(Status("/swinstall/Ping"), "200");
  const std::string refused = Curl("/swinstall/BeginAction");
  EXPECT_NE(refused.find("kx-webhost --add-user NAME"), std::string::npos) << refused;
  EXPECT_EQ(refused.substr(refused.size() - 3), "403");
  EXPECT_EQ(Status("/swinstall/BeginAction", "", false), "200") << "from 127.0.0.1";
}

// Every web method but Ping, and the file routes; users added and removed while
// the host runs; each served request audited with its user, never a password.
TEST_F(WebhostAuthentication, EveryProtectedRouteNeedsAUser) {
  const kx::test::CommandResult added = UserCommand("--add-user alice", "s3cret pass\\n");
  ASSERT_EQ(added.status, 0) << added.output;
  struct stat info {};
  ASSERT_EQ(::stat(UsersFile().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  auto host = Start();
  EXPECT_EQ(Status("/swinstall/Ping"), "200");
  const std::string challenge = Curl("/swinstall/Format", "-i");
  EXPECT_NE(challenge.find("WWW-Authenticate: Basic realm=\"kx-swinstl\"\r\n"), std::string::npos) << challenge;
  for (const std::string& method : kProtectedMethods) {
    EXPECT_EQ(Status("/swinstall/" + method), "401") << method;
    EXPECT_EQ(Status("/swinstall/" + method, "-u 'alice:s3cret pass'"), "200") << method;
  }
  const std::string image = "/swinstall/files/.syscfg-action/A1/SystemImage.tgz";
  EXPECT_EQ(Status(image), "401");
  EXPECT_EQ(Status(image, "-u 'alice:s3cret pass'"), "404");
  EXPECT_EQ(Status("/swinstall/Format", "-u 'alice:s3cret pas'"), "401");
  EXPECT_EQ(Status("/swinstall/Format", "-u 'bob:s3cret pass'"), "401");
  EXPECT_EQ(Status("/swinstall/Format", "", false), "401") << "with users, loopback needs them too";
  EXPECT_EQ(Status("/swinstall/Format", "-u 'alice:s3cret pass'", false), "200");

  ASSERT_EQ(UserCommand("--remove-user alice").status, 0);
  EXPECT_EQ(Status("/swinstall/Format", "-u 'alice:s3cret pass'"), "403") << "no users left";
  EXPECT_NE(UserCommand("--remove-user alice").status, 0);

  const std::string audit = kx::test::ReadFile(AuditFile());
  EXPECT_NE(audit.find("audit: user=\"alice\" address=127.0.0.2 route=\"/swinstall/Format\" status=200"),
            std::string::npos)
      << audit;
  EXPECT_NE(audit.find("audit: user=\"alice\" address=127.0.0.2 route=\"GET " + image + "\" status=404"),
            std::string::npos);
  EXPECT_NE(audit.find("audit: refused user=\"bob\" address=127.0.0.2 route=\"/swinstall/Format\" status=401"),
            std::string::npos);
  EXPECT_EQ(audit.find("s3cret"), std::string::npos);
  EXPECT_EQ(audit.find("route=\"/swinstall/Ping\""), std::string::npos) << "Ping is open, not audited";
}

TEST_F(WebhostAuthentication, AnonymousReadOpensProgressAndInstalledComponents) {
  ASSERT_EQ(UserCommand("--add-user alice", "pw\\n").status, 0);
  auto host = Start({"--anonymous-read"});
  EXPECT_EQ(Status("/swinstall/Progress"), "200");
  EXPECT_EQ(Status("/swinstall/InstalledComponents"), "200");
  EXPECT_EQ(Status("/swinstall/BeginAction"), "401");
}

TEST_F(WebhostAuthentication, ClientCertificatesOfTheCaAreUsers) {
  if (RunCommand("command -v certtool").status != 0) GTEST_SKIP() << "certtool is not installed";
  const std::string pki = root.Path() + "/pki";
  const auto make = [&](const std::string& name, const std::string& template_, const std::string& signer) {
    kx::test::WriteFile(pki + "/" + name + ".tmpl", template_ + "expiration_days = 30\n");
    const std::string base = "certtool --outfile " + pki + "/" + name + ".crt --template " + pki + "/" + name +
                             ".tmpl --load-privkey " + pki + "/" + name + ".key ";
    return RunCommand("certtool --generate-privkey --key-type ecdsa --outfile " + pki + "/" + name + ".key").status ==
               0 &&
           RunCommand(signer.empty() ? base + "--generate-self-signed"
                                     : base + "--generate-certificate --load-ca-privkey " + pki + "/" + signer +
                                           ".key --load-ca-certificate " + pki + "/" + signer + ".crt")
                   .status == 0;
  };
  const std::string ca = "ca\ncert_signing_key\n";
  const std::string client = "tls_www_client\nsigning_key\ncn = \"fleet-tool\"\n";
  ASSERT_TRUE(make("fleet-ca", ca + "cn = \"Fleet CA\"\n", "") && make("other-ca", ca + "cn = \"Other CA\"\n", "") &&
              make("fleet", client, "fleet-ca") && make("rogue", client, "other-ca"));

  auto host = Start({"--tls-client-ca", pki + "/fleet-ca.crt"});
  EXPECT_EQ(Status("/swinstall/BeginAction", "--cert " + pki + "/fleet.crt --key " + pki + "/fleet.key"), "200");
  EXPECT_EQ(Status("/swinstall/BeginAction", "--cert " + pki + "/rogue.crt --key " + pki + "/rogue.key"), "401");
  EXPECT_EQ(Status("/swinstall/BeginAction"), "401");
  EXPECT_NE(kx::test::ReadFile(AuditFile()).find("audit: user=\"fleet-tool\" address=127.0.0.2"), std::string::npos);
}

// Ten failures from an address lock it out for the rest of the minute, the
// right password included; other addresses are not.
TEST_F(WebhostAuthentication, TooManyFailuresGet429) {
  ASSERT_EQ(UserCommand("--add-user alice", "pw\\n").status, 0);
  auto host = Start();
  for (int i = 0; i < 10; ++i) EXPECT_EQ(Status("/swinstall/Progress", "-u alice:wrong"), "401");
  const std::string locked = Curl("/swinstall/Progress", "-i -u alice:pw");
  EXPECT_EQ(locked.rfind("HTTP/1.1 429", 0), 0u) << locked;
  EXPECT_NE(locked.find("Retry-After: "), std::string::npos);
  EXPECT_EQ(Status("/swinstall/Progress", "-u alice:pw", false), "200");
}

TEST_F(WebhostAuthentication, BadCredentialsAreRefusedWithoutHarm) {
  ASSERT_EQ(UserCommand("--add-user alice", "pw\\n").status, 0);
  {
    auto plain = Start({"--no-tls"});
    for (int i = 0; i < 12; ++i) EXPECT_EQ(Status("/swinstall/Progress", "-u alice:wrong"), "403");
    EXPECT_EQ(Status("/swinstall/Progress", "-u alice:pw", false), "200") << "loopback may use plain HTTP";
    // Answered by the HTTP library before the request is ours: the header is
    // larger than a connection may hold.
    const kx::test::HttpAnswer huge =
        kx::test::Exchange(port,
                           "GET /swinstall/Progress HTTP/1.1\r\nHost: x\r\nAuthorization: Basic " +
                               std::string(100 * 1024, 'A') + "\r\n\r\n",
                           "127.0.0.2");
    EXPECT_EQ(huge.status, 431);
  }
  auto host = Start();
  const std::string header = "-H 'Authorization: Basic ";
  EXPECT_EQ(Status("/swinstall/Progress", header + "!!!!'"), "400");
  EXPECT_EQ(Status("/swinstall/Progress", header + "YQBiOmM='"), "400") << "a NUL in the user name";
  EXPECT_EQ(Status("/swinstall/Progress", "-u 'alice:pw:x'"), "401");
  EXPECT_EQ(Status("/swinstall/Ping"), "200");
}

TEST_F(WebhostAuthentication, UsersFileProblemsStopTheStart) {
  const std::string start = "timeout 20 " KX_WEBHOST_PATH " --root '" + root.Path() + "' --locator-port 0 ";
  const kx::test::CommandResult missing = RunCommand(start + "--users " + root.Path() + "/none");
  EXPECT_NE(missing.status, 0);
  EXPECT_NE(missing.output.find("does not exist"), std::string::npos) << missing.output;

  ASSERT_EQ(UserCommand("--add-user alice", "pw\\n").status, 0);
  ::chmod(UsersFile().c_str(), 0644);
  const kx::test::CommandResult readable = RunCommand(start);
  EXPECT_NE(readable.status, 0);
  EXPECT_NE(readable.output.find("others may read or write"), std::string::npos) << readable.output;

  ::chmod(UsersFile().c_str(), 0600);
  kx::test::WriteFile(UsersFile(), kx::test::ReadFile(UsersFile()) + "bob:plaintext\n");
  const kx::test::CommandResult malformed = RunCommand(start);
  EXPECT_NE(malformed.status, 0);
  EXPECT_NE(malformed.output.find("webhost-users, line 2: "), std::string::npos) << malformed.output;
  EXPECT_NE(UserCommand("--add-user carol", "pw\\n").status, 0) << "a malformed file is not rewritten";
  EXPECT_NE(UserCommand("--add-user 'a:b'", "pw\\n").status, 0);
}

}  // namespace
