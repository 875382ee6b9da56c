// The announcement as a real avahi-daemon publishes it, seen through
// avahi-browse. Run by with_avahi_daemon.sh, which provides the daemon; run
// alone, it skips when no daemon answers.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "discovery/avahi_wrapper.h"
#include "discovery/mdns_service.h"
#include "tests/discovery/locator_stub.h"
#include "tests/support/scratch_root.h"

namespace {

using namespace std::chrono_literals;

struct BrowsedService {
  std::string name;
  int port = 0;
  std::vector<std::string> txt;
};

// avahi-browse writes "\DDD" (decimal) for unusual characters and "\c" for others.
std::string Unescape(const std::string& text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && std::isdigit(static_cast<unsigned char>(text[i + 1]))) {
      plain += static_cast<char>(std::stoi(text.substr(i + 1, 3)));
      i += 3;
    } else if (text[i] == '\\' && i + 1 < text.size()) {
      plain += text[++i];
    } else {
      plain += text[i];
    }
  }
  return plain;
}

// The resolved line "=;IF;PROTO;NAME;TYPE;DOMAIN;HOST;ADDRESS;PORT;"K=V" "K=V"" of `name`.
std::optional<BrowsedService> Browse(const std::string& name) {
  FILE* output = ::popen("avahi-browse -rpt _kx-swinstl._tcp 2>/dev/null", "r");
  if (output == nullptr) return std::nullopt;
  std::optional<BrowsedService> found;
  char line[4096];
  while (std::fgets(line, sizeof line, output) != nullptr) {
    std::vector<std::string> fields;
    std::istringstream text(line);
    for (std::string field; fields.size() < 10 && std::getline(text, field, fields.size() < 9 ? ';' : '\n');) {
      fields.push_back(field);
    }
    if (fields.size() < 10 || fields[0] != "=" || Unescape(fields[3]) != name) continue;
    found = BrowsedService{name, std::atoi(fields[8].c_str()), {}};
    std::istringstream txt(fields[9]);
    for (std::string entry; txt >> std::quoted(entry);) found->txt.push_back(entry);
  }
  ::pclose(output);
  return found;
}

// The service once it appears (or is gone, `present` false), nullopt after 20 s.
std::optional<BrowsedService> WaitForService(const std::string& name, bool present = true) {
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (std::chrono::steady_clock::now() < deadline) {
    std::optional<BrowsedService> service = Browse(name);
    if (service.has_value() == present) return present ? service : BrowsedService{};
    std::this_thread::sleep_for(200ms);
  }
  return std::nullopt;
}

bool WaitUntilGone(const std::string& name) { return WaitForService(name, false).has_value(); }

bool DaemonAnswers() {
  int error = 0;
  kx::discovery::AvahiPollClient* client =
      kx::discovery::AvahiClientNew([](kx::discovery::AvahiPollClient&, AvahiClientState, void*) {}, nullptr, error);
  kx::discovery::AvahiClientFree(client);
  return client != nullptr;
}

class AvahiAnnouncement : public testing::Test {
 protected:
  void SetUp() override {
    if (!DaemonAnswers()) {
      if (std::getenv("KX_AVAHI_REQUIRED") != nullptr) FAIL() << "no avahi-daemon answers on the system bus";
      GTEST_SKIP() << "no avahi-daemon answers on the system bus";
    }
    name_ =
        "kxtest-" + std::to_string(::getpid()) + "-" + testing::UnitTest::GetInstance()->current_test_info()->name();
    root_.WriteFile(
        "/etc/brenmar/share/target.ini",
        "[Target]\nHostName=" + name_ + "\nTargetClass=TestClass\nTargetID=0x1A\nMACAddress=02:00:0a:bc:de:f1\n");
    ::setenv("KX_LOCATOR_PORT", std::to_string(locator_.Port()).c_str(), 1);

    void* library = ::dlopen(KX_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << ::dlerror();
    init_ = reinterpret_cast<void (*)()>(::dlsym(library, "orlaInit"));
    finalize_ = reinterpret_cast<void (*)()>(::dlsym(library, "orlaFinalize"));
    ASSERT_TRUE(init_ && finalize_);
  }
  void TearDown() override {
    if (finalize_ != nullptr) finalize_();
    // Not unloaded: the trace log the foundation keeps for logging at exit
    // would show as a leak.
    ::unsetenv("KX_LOCATOR_PORT");
  }

  kx::test::ScratchRoot root_;
  kx::test::LocatorStub locator_{kx::test::LocatorAnswer("port=8443\r\nscheme=https\r\n")};
  std::string name_;
  void (*init_)() = nullptr;
  void (*finalize_)() = nullptr;
};

TEST_F(AvahiAnnouncement, PluginAnnouncesUntilFinalize) {
  init_();
  const std::optional<BrowsedService> service = WaitForService(name_);
  ASSERT_TRUE(service) << name_ << " never appeared";
  EXPECT_EQ(service->port, 8443);
  for (const char* entry :
       {"DevClass=TestClass", "OS=Linux-ARMv7-A", "ProdId=0x001A", "server=https", "MAC=02:00:0A:BC:DE:F1"}) {
    EXPECT_NE(std::find(service->txt.begin(), service->txt.end(), entry), service->txt.end()) << entry;
  }
  EXPECT_EQ(service->txt.size(), 5u);
  ASSERT_FALSE(locator_.Requests().empty());
  EXPECT_EQ(locator_.Requests()[0].rfind("GET /locator/SystemWebServer HTTP/1.0\r\n", 0), 0u);

  finalize_();
  finalize_ = nullptr;
  EXPECT_TRUE(WaitUntilGone(name_));
}

// The plug-in announces first; this program's own copy of the registration
// comes second under the same host name.
TEST_F(AvahiAnnouncement, SecondAnnouncerOfTheSameNameIsRenamed) {
  init_();
  ASSERT_TRUE(WaitForService(name_)) << name_ << " never appeared";

  // Avahi lets identical records share a name: the second one differs in port.
  kx::test::LocatorStub otherLocator(kx::test::LocatorAnswer("port=8444\nscheme=http\n"));
  ::setenv("KX_LOCATOR_PORT", std::to_string(otherLocator.Port()).c_str(), 1);
  ASSERT_EQ(kx::discovery::mDnsRegisterService(kx::discovery::kServiceType), 1);
  const std::optional<BrowsedService> renamed = WaitForService(name_ + " #2");
  kx::discovery::mDnsUnregisterService();
  ASSERT_TRUE(renamed) << name_ << " #2 never appeared";
  EXPECT_EQ(renamed->port, 8444);
  EXPECT_TRUE(WaitUntilGone(name_ + " #2"));
  EXPECT_TRUE(Browse(name_)) << "the first announcement went with the second";
}

}  // namespace
