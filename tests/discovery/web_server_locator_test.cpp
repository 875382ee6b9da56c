#include "discovery/web_server_locator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "tests/discovery/locator_stub.h"

using kx::discovery::WebServerLocation;
using kx::discovery::WebServerLocator;
using kx::test::LocatorAnswer;
using kx::test::LocatorStub;

namespace {

using Clock = std::chrono::steady_clock;

long long MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

TEST(WebServerLocator, AsksTheLocatorAndReadsPortAndScheme) {
  LocatorStub stub(LocatorAnswer("port=8443\r\nscheme=https\r\n"));
  WebServerLocation location;
  ASSERT_TRUE(WebServerLocator(stub.Port()).Query(location, 2000));
  EXPECT_EQ(location.port, 8443);
  EXPECT_EQ(location.scheme, "https");
  ASSERT_EQ(stub.Requests().size(), 1u);
  EXPECT_EQ(stub.Requests()[0].rfind("GET /locator/SystemWebServer HTTP/1.0\r\n", 0), 0u) << stub.Requests()[0];
  // The locator's port comes from the environment when valid.
  const std::pair<const char*, uint16_t> ports[] = {{nullptr, 3580}, {"12345", 12345}, {"70000", 3580}};
  for (const auto& [variable, port] : ports) {
    variable ? ::setenv("KX_LOCATOR_PORT", variable, 1) : ::unsetenv("KX_LOCATOR_PORT");
    EXPECT_EQ(WebServerLocator().Port(), port);
  }
  ::unsetenv("KX_LOCATOR_PORT");
}

TEST(WebServerLocator, AcceptsOnlyA200WithAValidPortAndScheme) {
  const std::pair<const char*, bool> cases[] = {
      {"HTTP/1.0 200 OK\r\n\r\nport=80\r\nscheme=http\r\n", true},
      {"HTTP/1.1 200 OK\n\nscheme=https\nother=1\nport=65535", true},  // bare LF, any order
      {"HTTP/1.0 200 OK\r\nContent-Length: 20\r\n\r\nport=81\nscheme=http\nextra", true},
      {"HTTP/1.0 200 OK\r\nContent-Length: 12\r\n\r\nscheme=http\nport=81\n", false},  // beyond the body
      {"HTTP/1.0 200 OK\r\nContent-Length: 30\r\n\r\nport=81\nscheme=http\n", false},  // cut short
      {"HTTP/1.0 404 Not Found\r\n\r\nport=80\r\nscheme=http\r\n", false},
      {"HTTP/1.0 2000 OK\r\n\r\nport=80\r\nscheme=http\r\n", false},
      {"HTTP/1.0 200 OK\r\nport=80\r\nscheme=http\r\n", false},  // no empty line: all headers
      {"HTTP/1.0 200 OK\r\n\r\nport=80\r\n", false},
      {"HTTP/1.0 200 OK\r\n\r\nscheme=http\r\n", false},
      {"HTTP/1.0 200 OK\r\n\r\nport=0\r\nscheme=http\r\n", false},
      {"HTTP/1.0 200 OK\r\n\r\nport=65536\r\nscheme=http\r\n", false},
      {"HTTP/1.0 200 OK\r\n\r\nport=80x\r\nscheme=http\r\n", false},
      {"HTTP/1.0 200 OK\r\n\r\nport=80\r\nscheme=HTTPS\r\n", false},
      {"HTTP/1.0 200 OK\r\n\r\n port=80\r\nscheme=http\r\n", false},
      {"", false},
  };
  for (const auto& [answer, accepted] : cases) {
    WebServerLocation location;
    EXPECT_EQ(WebServerLocator::ParseAnswer(answer, location), accepted) << answer;
  }
}

TEST(WebServerLocator, FailsWithoutHangingOnMissingSilentOrClosingLocators) {
  WebServerLocation location;
  Clock::time_point start = Clock::now();
  EXPECT_FALSE(WebServerLocator(kx::test::UnusedLoopbackPort()).Query(location, 2000));
  EXPECT_LT(MillisecondsSince(start), 500);

  LocatorStub silent([](int) { return std::nullopt; });
  start = Clock::now();
  EXPECT_FALSE(WebServerLocator(silent.Port()).Query(location, 300));
  EXPECT_GE(MillisecondsSince(start), 290);
  EXPECT_LT(MillisecondsSince(start), 1500);

  LocatorStub closing("");
  EXPECT_FALSE(WebServerLocator(closing.Port()).Query(location, 2000));
}

}  // namespace
