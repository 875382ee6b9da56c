// What slow or many connections can take from kx-webhost: connections per
// address, the time for a request's headers, the rate of a body, the memory
// that unfinished bodies hold.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "tests/host/http_client.h"
#include "tests/host/webhost_process.h"
#include "tests/support/scratch_root.h"

namespace {

using Clock = std::chrono::steady_clock;
using kx::test::Connect;
using kx::test::Get;

constexpr char kNetworkClient[] = "127.0.0.2";

// True when the server closed the connection within `timeoutMs`.
bool ClosedWithin(int socket, int timeoutMs) {
  pollfd waiting{socket, POLLIN, 0};
  char byte = 0;
  return ::poll(&waiting, 1, timeoutMs) == 1 && ::recv(socket, &byte, 1, MSG_DONTWAIT) <= 0;
}

class WebhostConnectionLimits : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(host.Stop(SIGTERM), 0); }

  kx::test::ScratchRoot root;
  kx::test::WebhostProcess host{
      {"--root", root.Path(), "--baseline", "--header-timeout", "1", "--max-client-connections", "4"}};
};

TEST_F(WebhostConnectionLimits, AnAddressHoldsOnlyItsShareOfConnections) {
  std::vector<int> held;
  for (int i = 0; i < 4; ++i) held.push_back(Connect(host.Port(), "127.0.0.1", kNetworkClient));
  // Two connections accepted at the same instant by two server threads may both
  // pass the count: the fifth comes once the four are counted.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const int fifth = Connect(host.Port(), "127.0.0.1", kNetworkClient);
  EXPECT_TRUE(ClosedWithin(fifth, 5000));
  for (int i = 0; i < 4; ++i) EXPECT_FALSE(ClosedWithin(held[i], 0));
  // The controller itself is not limited.
  std::vector<int> local;
  for (int i = 0; i < 6; ++i) local.push_back(Connect(host.Port()));
  EXPECT_EQ(Get(host.Port(), "/swinstall/Ping").status, 200);
  for (int socket : held) ::close(socket);
  for (int socket : local) ::close(socket);
  ::close(fifth);
}

// A byte now and then keeps a connection from the idle time-out, but not past
// the time for the headers, nor past the body's rate.
TEST_F(WebhostConnectionLimits, SlowHeadersAndSlowBodiesAreCutOff) {
  const std::vector<std::string> starts = {
      "GET /swinstall/Ping HTTP/1.1\r\nHost: x\r\nX-Slow: ",
      "POST /swinstall/Ping HTTP/1.1\r\nHost: x\r\nContent-Type: text/plain\r\nContent-Length: 100000\r\n\r\n"};
  for (const std::string& start : starts) {
    const int socket = Connect(host.Port(), "127.0.0.1", kNetworkClient);
    ASSERT_EQ(::send(socket, start.data(), start.size(), MSG_NOSIGNAL), static_cast<ssize_t>(start.size()));
    const Clock::time_point began = Clock::now();
    bool closed = false;
    while (!closed && Clock::now() - began < std::chrono::seconds(10)) {
      ::send(socket, "a", 1, MSG_NOSIGNAL);
      closed = ClosedWithin(socket, 200);
    }
    EXPECT_TRUE(closed) << start.substr(0, 4);
    ::close(socket);
  }
  EXPECT_EQ(Get(host.Port(), "/swinstall/Ping").status, 200);
}

// Bodies held in memory share one budget: one that would go over it is refused
// with 503 before it is read, and its share comes back when a request ends.
TEST(WebhostMemoryBudget, BodiesOverTheBudgetAreRefusedBeforeTheyAreRead) {
  kx::test::ScratchRoot root;
  kx::test::WebhostProcess host{
      {"--root", root.Path(), "--baseline", "--max-memory", "200000", "--max-text-body", "150000"}};
  const auto head = [](size_t length) {
    return "POST /swinstall/Ping HTTP/1.1\r\nHost: x\r\nConnection: close\r\nContent-Type: text/plain\r\n"
           "Content-Length: " +
           std::to_string(length) + "\r\n\r\n";
  };
  const int holding = Connect(host.Port());
  const std::string start = head(150000) + std::string(1000, 'a');
  ASSERT_EQ(::send(holding, start.data(), start.size(), MSG_NOSIGNAL), static_cast<ssize_t>(start.size()));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));

  const kx::test::HttpAnswer refused = kx::test::Exchange(host.Port(), head(100000) + std::string(100000, 'b'));
  EXPECT_EQ(refused.status, 503);
  EXPECT_EQ(refused.headers.count("retry-after"), 1u);
  EXPECT_EQ(kx::test::Exchange(host.Port(), head(40000) + std::string(40000, 'c')).status, 200) << "within the rest";

  const std::string rest(149000, 'a');
  ASSERT_EQ(::send(holding, rest.data(), rest.size(), MSG_NOSIGNAL), static_cast<ssize_t>(rest.size()));
  char answer[12] = {};
  EXPECT_EQ(::recv(holding, answer, sizeof answer - 1, MSG_WAITALL), 11);
  EXPECT_STREQ(answer, "HTTP/1.1 20");
  ::close(holding);
  EXPECT_EQ(kx::test::Exchange(host.Port(), head(100000) + std::string(100000, 'b')).status, 200) << "given back";
  EXPECT_EQ(host.Stop(SIGTERM), 0);
}

}  // namespace
