#include "platform/target_config.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/scratch_root.h"

namespace {

constexpr int32_t kFail = static_cast<int32_t>(0x80004005u);

TEST(TargetConfigTest, SystemStateFollowsMarkerAndStateFile) {
  const struct {
    bool safeModeMarker;
    const char* stateFile;  // nullptr: no file
    const char* text;
    bool flag;
  } cases[] = {
      {false, nullptr, "Running", false},          {false, "Install Mode", "Install Mode", true},
      {false, "Install Mode\n", "Running", false},  // compared whole, byte for byte
      {false, "install mode", "Running", false},   {true, nullptr, "Safe Mode", true},
      {true, "Install Mode", "Safe Mode", true},
  };
  for (const auto& c : cases) {
    kx::test::ScratchRoot root;
    if (c.safeModeMarker) root.WriteFile("/etc/brenmar/safemode", "");
    if (c.stateFile != nullptr) root.WriteFile("/tmp/kx_system_state", c.stateFile);
    std::string text;
    bool flag = !c.flag;
    EXPECT_EQ(GetSystemState(text, flag), 0);
    EXPECT_EQ(text + (flag ? " (flag)" : ""), std::string(c.text) + (c.flag ? " (flag)" : ""));
  }
}

TEST(TargetConfigTest, TargetIniOverridesTheDefaultsWhenWellFormed) {
  kx::test::ScratchRoot root;
  const auto read = [] {
    std::string hostName, targetClass;
    uint32_t id = 99;
    const int32_t status = kx_targetcfg_system_GetHostName(hostName) | kx_targetcfg_system_GetTargetClass(targetClass) |
                           targetcfgGetTargetID(id);
    return hostName + "|" + targetClass + "|" + std::to_string(id) + "|" + std::to_string(status);
  };
  char name[256] = {};
  ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
  EXPECT_EQ(read(), std::string(name) + "|Linux|0|0");

  root.WriteFile("/etc/brenmar/share/target.ini",
                 "[Target]\nHostName=ctl-7\nTargetClass=cRIO\nTargetID=0x7A2F\nMACAddress=00:80:2f:Ab:cD:01\n");
  EXPECT_EQ(read(), "ctl-7|cRIO|31279|0");
  MacAddress mac{};
  EXPECT_EQ(targetcfgGetDefaultMACAddress(mac), 0);
  EXPECT_EQ(mac, (MacAddress{0x00, 0x80, 0x2F, 0xAB, 0xCD, 0x01}));

  for (const char* bad : {"00:80:2f:ab:cd", "00:80:2f:ab:cd:0g", "0080.2fab.cd01", "00:80:2f:ab:cd:01:"}) {
    root.WriteFile("/etc/brenmar/share/target.ini", std::string("[Target]\nMACAddress=") + bad + "\nTargetID=12abc\n");
    EXPECT_EQ(targetcfgGetDefaultMACAddress(mac), kFail) << bad;
  }
  uint32_t id = 0;
  EXPECT_EQ(targetcfgGetTargetID(id), kFail);
}

}  // namespace
