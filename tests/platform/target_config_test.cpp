#include "platform/target_config.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/scratch_root.h"

namespace {

constexpr int32_t kFail = static_cast<int32_t>(0x80004005u);

class TargetConfigTest : public ::testing::Test {
 protected:
  void WriteTargetIni(const std::string& keys) {
    root_.WriteFile("/etc/brenmar/share/target.ini", "[Target]\n" + keys);
  }
  kx::test::ScratchRoot root_;
};

TEST_F(TargetConfigTest, SystemStateFollowsMarkerAndStateFile) {
  struct Case {
    bool safeModeMarker;
    const char* stateFile;  // nullptr: no file
    const char* text;
    bool flag;
  };
  const Case cases[] = {
      {false, nullptr, "Running", false},
      {false, "Install Mode", "Install Mode", true},
      {false, "Install Mode\n", "Running", false},  // compared whole, byte for byte
      {false, "install mode", "Running", false},
      {true, nullptr, "Safe Mode", true},
      {true, "Install Mode", "Safe Mode", true},
  };
  for (const Case& c : cases) {
    kx::test::ScratchRoot root;
    if (c.safeModeMarker) root.WriteFile("/etc/brenmar/safemode", "");
    if (c.stateFile != nullptr) root.WriteFile("/tmp/kx_system_state", c.stateFile);
    std::string text;
    bool flag = !c.flag;
    EXPECT_EQ(GetSystemState(text, flag), 0);
    EXPECT_EQ(text, c.text);
    EXPECT_EQ(flag, c.flag) << c.text;
  }
}

TEST_F(TargetConfigTest, TargetIniOverridesTheDefaults) {
  char name[256] = {};
  ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
  std::string hostName, targetClass;
  uint32_t id = 99;
  EXPECT_EQ(kx_targetcfg_system_GetHostName(hostName), 0);
  EXPECT_EQ(kx_targetcfg_system_GetTargetClass(targetClass), 0);
  EXPECT_EQ(targetcfgGetTargetID(id), 0);
  EXPECT_EQ(hostName + "|" + targetClass + "|" + std::to_string(id), std::string(name) + "|Linux|0");

  WriteTargetIni("HostName=ctl-7\nTargetClass=cRIO\nTargetID=0x7A2F\nMACAddress=00:80:2f:Ab:cD:01\n");
  EXPECT_EQ(kx_targetcfg_system_GetHostName(hostName), 0);
  EXPECT_EQ(kx_targetcfg_system_GetTargetClass(targetClass), 0);
  EXPECT_EQ(targetcfgGetTargetID(id), 0);
  EXPECT_EQ(hostName + "|" + targetClass + "|" + std::to_string(id), "ctl-7|cRIO|31279");
  MacAddress mac{};
  EXPECT_EQ(targetcfgGetDefaultMACAddress(mac), 0);
  EXPECT_EQ(mac, (MacAddress{0x00, 0x80, 0x2F, 0xAB, 0xCD, 0x01}));
}

TEST_F(TargetConfigTest, MalformedValuesFailTheRead) {
  for (const char* bad : {"00:80:2f:ab:cd", "00:80:2f:ab:cd:0g", "0080.2fab.cd01", "00:80:2f:ab:cd:01:"}) {
    WriteTargetIni(std::string("MACAddress=") + bad + "\nTargetID=12abc\n");
    MacAddress mac{};
    EXPECT_EQ(targetcfgGetDefaultMACAddress(mac), kFail) << bad;
  }
  uint32_t id = 0;
  EXPECT_EQ(targetcfgGetTargetID(id), kFail);
}

}  // namespace
