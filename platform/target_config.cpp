#include "platform/target_config.h"

#include <unistd.h>

#include <cstdio>
#include <vector>

#include "exchange/paths.h"
#include "exchange/result_codes.h"
#include "ini/ini_document.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/file_finder.h"
#include "kx/tal/log.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"

namespace kx::platform {
namespace {

using exchange::kResultFail;
using exchange::kResultOk;
constexpr char kSection[] = "Target";
constexpr char kLoopbackType[] = "772";  // ARPHRD_LOOPBACK in /sys/class/net/<if>/type

// target.ini as loaded now; empty when the file is missing or unreadable.
ini::Document LoadTargetIni() {
  ini::Document document;
  static_cast<void>(document.Load(tal::JoinPath(exchange::ConfigurationDirectory(), "target.ini")));
  return document;
}

std::string TextSetting(const char* key, std::string value) {
  LoadTargetIni().GetText(kSection, key, value);
  return value;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// "00:11:22:aa:bb:cc" (or with "-"); false for anything else.
bool ParseMac(const std::string& text, MacAddress& mac) {
  if (text.size() != 17) return false;
  for (size_t i = 0; i < mac.size(); ++i) {
    const int high = HexDigit(text[i * 3]);
    const int low = HexDigit(text[i * 3 + 1]);
    if (high < 0 || low < 0) return false;
    if (i < 5 && text[i * 3 + 2] != ':' && text[i * 3 + 2] != '-') return false;
    mac[i] = static_cast<uint8_t>(high * 16 + low);
  }
  return true;
}

std::string FirstLine(const std::string& path) {
  try {
    tal::TextFileReader reader(path);
    std::string line;
    reader.ReadLine(line);
    return line;
  } catch (const tal::exception::Exception&) {
    return std::string();
  }
}

bool FirstInterfaceMac(MacAddress& mac) {
  std::vector<std::string> interfaces;
  try {
    interfaces = tal::FindFiles("/sys/class/net", "*");
  } catch (const tal::exception::Exception&) {
    return false;
  }
  for (const std::string& interface : interfaces) {
    if (FirstLine(tal::JoinPath(interface, "type")) == kLoopbackType) continue;
    MacAddress candidate;
    if (!ParseMac(FirstLine(tal::JoinPath(interface, "address")), candidate)) continue;
    if (candidate == MacAddress{}) continue;
    mac = candidate;
    return true;
  }
  return false;
}

std::string SystemHostName() {
  char name[256] = {};
  if (::gethostname(name, sizeof name - 1) != 0) return std::string();
  return name;
}

}  // namespace
}  // namespace kx::platform

using namespace kx::platform;  // the service functions are global by contract

int32_t GetSystemState(std::string& stateText, bool& flag) {
  if (kx::exchange::IsSafeMode()) {
    stateText = "Safe Mode";
    flag = true;
  } else if (kx::exchange::IsInstallMode()) {
    stateText = "Install Mode";
    flag = true;
  } else {
    stateText = "Running";
    flag = false;
  }
  return kResultOk;
}

int32_t kx_targetcfg_system_GetHostName(std::string& hostName) {
  hostName = TextSetting("HostName", SystemHostName());
  return hostName.empty() ? kResultFail : kResultOk;
}

int32_t kx_targetcfg_system_GetTargetClass(std::string& targetClass) {
  targetClass = TextSetting("TargetClass", "Linux");
  return kResultOk;
}

int32_t targetcfgGetTargetID(uint32_t& targetId) {
  const kx::ini::Document document = LoadTargetIni();
  if (document.FindKey(kSection, "TargetID") == nullptr) {
    targetId = 0;
    return kResultOk;
  }
  if (document.GetUInt32(kSection, "TargetID", targetId)) return kResultOk;
  KX_LOG(kx::tal::logmask::kError2, "target.ini: TargetID is not a number");
  return kResultFail;
}

int32_t targetcfgGetDefaultMACAddress(MacAddress& mac) {
  std::string configured;
  if (LoadTargetIni().GetText(kSection, "MACAddress", configured)) {
    if (ParseMac(configured, mac)) return kResultOk;
    KX_LOG(kx::tal::logmask::kError2, "target.ini: MACAddress is malformed: " + configured);
    return kResultFail;
  }
  return FirstInterfaceMac(mac) ? kResultOk : kResultFail;
}
