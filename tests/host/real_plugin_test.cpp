// The real kx-webhost serving the real plug-in.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "tests/host/http_client.h"
#include "tests/host/webhost_process.h"
#include "tests/support/scratch_root.h"

namespace {

using kx::test::kMultipartType;
using kx::test::MultipartBody;
using kx::test::Post;

class WebhostPlugin : public testing::Test {
 protected:
  kx::test::ScratchRoot root;
  kx::test::WebhostProcess host{{"--root", root.Path()}};  // the default plug-in: the one built beside it

  void TearDown() override { EXPECT_EQ(host.Stop(SIGTERM), 0); }
};

TEST_F(WebhostPlugin, MethodsAnswerAsThePluginSays) {
  struct Case {
    const char* method;
    int status;
    const char* reason;
    const char* body;
  };
  for (const Case& c :
       {Case{"Ping", 200, nullptr, "<?xml version=\"1.0\"?>\n<Ping Result=\"0\" Version=\"20.0.0\" Mode=\"0\" />\n"},
        Case{"NoSuchMethod", 501, "Unimplemented", ""}, Case{"Foo-Bar", 501, "Unimplemented", ""},
        Case{"%C3%BC", 501, "Unimplemented", ""}, Case{"", 501, "Unimplemented", ""}, Case{"Browse", 500, nullptr, ""},
        Case{"Ping/x", 404, nullptr, "not found\n"}}) {
    auto answer = Post(host.Port(), std::string("/swinstall/") + c.method, "application/x-www-form-urlencoded", "a=1");
    EXPECT_EQ(answer.status, c.status) << c.method;
    EXPECT_EQ(answer.body, c.body) << c.method;
    EXPECT_EQ(answer.headers["reason-phrase"], c.reason ? c.reason : "") << c.method;
  }
}

// The action directory the plug-in names for an ID is the one the host serves files from.
TEST_F(WebhostPlugin, ImageOfABracedGuidActionIsServedAtItsUrl) {
  const std::string form = "application/x-www-form-urlencoded", id = "%7B6F1C5A2E-9D3B-4C1A-8E2F-0123456789AB%7D";
  const auto begin = Post(host.Port(), "/swinstall/BeginAction", form, "ActionID=" + id + "&CustomLockHolder=t");
  EXPECT_NE(begin.body.find("Result=\"0\" Directory=\"/.syscfg-action/~6F1C5A2E"), std::string::npos) << begin.body;
  const auto image = Post(host.Port(), "/swinstall/GetSystemImage", form, "ActionID=" + id + "&Blacklist=&Options=0");
  const size_t url = image.body.find("ImageFileURL=\"") + 14;
  ASSERT_NE(url, std::string::npos + 14) << image.body;
  const std::string path = image.body.substr(url, image.body.find('"', url) - url);
  root.WriteFile("/" + path, "image");
  EXPECT_EQ(kx::test::Get(host.Port(), "/swinstall/files/" + path).body, "image");
  const auto cancel = Post(host.Port(), "/swinstall/CancelAction", form, "ActionID=" + id);
  EXPECT_EQ(cancel.body, "<?xml version=\"1.0\"?>\n<CancelAction Result=\"0\"/>");
}

TEST_F(WebhostPlugin, SoftwareUpdateUploadArrivesAsInstallCdf) {
  // The update is carried out after a restart into install mode, simulated here.
  root.WriteFile("/sbin/reboot",
                 "#!/bin/sh\nmkdir -p \"$KX_SYSTEM_ROOT/tmp\"\n"
                 "printf 'Install Mode' > \"$KX_SYSTEM_ROOT/tmp/kx_system_state\"\n");
  std::filesystem::permissions(root / "/sbin/reboot", std::filesystem::perms::owner_all);
  const std::string catalogue = "<?xml version=\"1.0\"?>\n<?CDF VERSION=\"7.0\"?>\n<DEFINITION></DEFINITION>\n";
  root.WriteFile("/etc/brenmar/share/config.cdf", catalogue);  // the installed software
  const auto begin = Post(host.Port(), "/swinstall/BeginAction", "application/x-www-form-urlencoded",
                          "ActionID=A1&CustomLockHolder=test&Action=SoftwareUpdate");
  ASSERT_EQ(begin.status, 200) << begin.body;
  EXPECT_NE(begin.body.find("Result=\"0\" Directory=\"/.syscfg-action/A1\""), std::string::npos) << begin.body;
  const auto update = Post(host.Port(), "/swinstall/SoftwareUpdate", kMultipartType,
                           MultipartBody({{"command", "<WSACTIONCOMMAND NAME=\"A1\" AUTOREBOOT=\"YES\"/>"},
                                          {"catalogue", catalogue, "catalogue.cdf"}}));
  EXPECT_EQ(update.status, 200) << update.body;
  EXPECT_EQ(kx::test::ReadFile(root / "/.syscfg-action/A1/install.cdf"), catalogue);
  EXPECT_TRUE(std::filesystem::is_empty(root / "/.kx-uploads"));
}

// kx-webhost killed right after a SoftwareUpdate, before its restart thread
// handed the update over: the next start reports the update as the last action,
// failed, and frees the lock.
TEST(WebhostPluginKilled, AnUpdateCutShortIsTheLastActionAfterTheNextStart) {
  kx::test::ScratchRoot root;
  std::filesystem::create_directories(root / "/etc/brenmar/share");  // where the state files go
  const std::string form = "application/x-www-form-urlencoded";
  {
    kx::test::WebhostProcess host{{"--root", root.Path()}};
    ASSERT_EQ(Post(host.Port(), "/swinstall/BeginAction", form, "ActionID=A1&CustomLockHolder=t").status, 200);
    const auto update = Post(host.Port(), "/swinstall/SoftwareUpdate", "text/xml",
                             "<WSACTIONCOMMAND NAME=\"A1\" AUTOREBOOT=\"YES\"/>\n<DEFINITION/>\n");
    ASSERT_EQ(update.body, "<?xml version=\"1.0\"?>\n<SoftwareUpdate Result=\"0\"/>");
    host.Stop(SIGKILL);
  }
  kx::test::WebhostProcess host{{"--root", root.Path()}};
  EXPECT_THAT(Post(host.Port(), "/swinstall/Progress", form, "").body,
              testing::MatchesRegex(".*<Current/>\n<Last Id=\"A1\" ActionType=\"SoftwareUpdate\" StopTime=\"[^\"]+\" "
                                    "Result=\"-2147467259\"/></Progress>"));
  const auto begin = Post(host.Port(), "/swinstall/BeginAction", form, "ActionID=A2&CustomLockHolder=t");
  EXPECT_NE(begin.body.find("Result=\"0\""), std::string::npos) << begin.body;
  EXPECT_EQ(host.Stop(SIGTERM), 0);
}

}  // namespace
