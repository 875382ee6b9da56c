#include "discovery/system_web_server.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "discovery/stop_signal.h"
#include "tests/discovery/locator_stub.h"

using kx::discovery::LocateSystemWebServer;
using kx::discovery::LocatorSchedule;
using kx::discovery::StopSignal;
using kx::discovery::WebServerLocation;
using kx::discovery::WebServerLocator;
using kx::test::LocatorStub;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

// Waits between attempts, not after the last one.
TEST(LocateSystemWebServer, RetriesUntilTheLocatorAnswersOrTheAttemptsRunOut) {
  LocatorStub stub([](int connection) {
    return connection < 2 ? "HTTP/1.0 503 Busy\r\n\r\n" : kx::test::LocatorAnswer("port=8080\nscheme=http\n");
  });
  WebServerLocation location;
  Clock::time_point start = Clock::now();
  ASSERT_TRUE(LocateSystemWebServer(WebServerLocator(stub.Port()), LocatorSchedule{5, 100ms, 1000}, nullptr, location));
  EXPECT_GE(Clock::now() - start, 200ms);
  EXPECT_EQ(stub.Requests().size(), 3u);
  EXPECT_EQ(location.port, 8080);

  LocatorStub refusing("HTTP/1.0 404 Not Found\r\n\r\n");
  start = Clock::now();
  EXPECT_FALSE(
      LocateSystemWebServer(WebServerLocator(refusing.Port()), LocatorSchedule{3, 150ms, 1000}, nullptr, location));
  EXPECT_GE(Clock::now() - start, 300ms);
  EXPECT_LT(Clock::now() - start, 450ms);
  EXPECT_EQ(refusing.Requests().size(), 3u);
}

TEST(LocateSystemWebServer, AStopEndsTheWaitAtOnce) {
  StopSignal stop;
  std::thread stopper([&] {
    std::this_thread::sleep_for(100ms);
    stop.Raise();
  });
  WebServerLocation location;
  const Clock::time_point start = Clock::now();
  EXPECT_FALSE(LocateSystemWebServer(WebServerLocator(kx::test::UnusedLoopbackPort()), LocatorSchedule{30, 10s, 1000},
                                     &stop, location));
  EXPECT_LT(Clock::now() - start, 1s);
  stopper.join();
  // Raised before the first attempt: not even one query.
  LocatorStub stub(kx::test::LocatorAnswer("port=80\nscheme=http\n"));
  EXPECT_FALSE(LocateSystemWebServer(WebServerLocator(stub.Port()), LocatorSchedule{30, 10s, 1000}, &stop, location));
  EXPECT_TRUE(stub.Requests().empty());
}

}  // namespace
