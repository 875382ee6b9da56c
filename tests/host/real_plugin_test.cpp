// The real kx-webhost serving the real plug-in.

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
  for (const Case& c : {Case{"Ping", 200, nullptr, "<?xml version=\"1.0\"?>\n<Ping Result=\"0\" Version=\"20.0.0\" Mode=\"0\" />\n"},
                        Case{"NoSuchMethod", 501, "Unimplemented", ""}, Case{"Browse", 500, nullptr, ""}}) {
    auto answer = Post(host.Port(), std::string("/swinstall/") + c.method, "application/x-www-form-urlencoded", "a=1");
    EXPECT_EQ(answer.status, c.status) << c.method;
    EXPECT_EQ(answer.body, c.body) << c.method;
    EXPECT_EQ(answer.headers["reason-phrase"], c.reason ? c.reason : "") << c.method;
  }
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

}  // namespace
