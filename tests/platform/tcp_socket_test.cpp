#include "platform/tcp_socket.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>

#include <csignal>

#include "support/loopback.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::uint32_t kLoopback = 0x7F000001;

// A socket that is closed with its scope.
struct Connection {
  Connection() = default;
  // One that is connected.
  explicit Connection(std::uint16_t port) {
    EXPECT_TRUE(ConnectTcp(number, kLoopback, port, milliseconds(5000))) << GetLastError();
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() { CloseTcpSocket(number); }
  const int number = OpenTcpSocket();
};

TEST(TcpSocketTest, ResolvesNames) {
  EXPECT_EQ(ResolveHost("localhost"), kLoopback);
  EXPECT_FALSE(ResolveHost("a..b"));
}

TEST(TcpSocketTest, ConnectionCarriesBytesUntilThePeerCloses) {
  // More than the system takes at once.
  const std::string sent(4'000'000, 'x');
  LoopbackServer server(
      [&](Peer& peer, int) { peer.Write(peer.Read(sent.size()) == sent ? "hello!" : ""); }, 4096);
  const Connection socket(server.port());
  EXPECT_NE(fcntl(socket.number, F_GETFD) & FD_CLOEXEC, 0);
  ASSERT_TRUE(SendTcp(socket.number, sent.data(), sent.size(), milliseconds(5000)));
  std::string received;
  char buffer[4];
  for (std::optional<std::size_t> count = 1; *count > 0; received.append(buffer, *count)) {
    ASSERT_EQ(WaitForSocket(socket.number, SocketEvent::kReadable, milliseconds(5000)),
              SocketWait::kReady);
    count = ReceiveTcp(socket.number, buffer, sizeof buffer);
    ASSERT_TRUE(count);
  }
  EXPECT_EQ(received, "hello!");
}

TEST(TcpSocketTest, SendGivesUpOnAPeerThatTakesNothing) {
  const Listener server;
  const std::string sent(50'000'000, 'x');
  const Connection socket(server.port());
  EXPECT_FALSE(SendTcp(socket.number, sent.data(), sent.size(), milliseconds(50)));
  EXPECT_EQ(GetLastError(), kErrorSocketTimeout);
}

TEST(TcpSocketTest, SendingToAPeerThatHasClosedIsAnErrorAndNoSignal) {
  LoopbackServer server([](Peer&, int) {});
  const Connection socket(server.port());
  ASSERT_EQ(WaitForSocket(socket.number, SocketEvent::kReadable, milliseconds(5000)),
            SocketWait::kReady);
  // The first bytes go out, and are answered by a reset.
  bool is_sent = true;
  for (int i = 0; is_sent && i < 5000; ++i) {
    is_sent = SendTcp(socket.number, "x", 1, milliseconds(5000));
    std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_FALSE(is_sent);
  EXPECT_EQ(GetLastError(), kErrorConnectionReset);
}

// Signals interrupt the waits, and must neither end nor lengthen them.
TEST(TcpSocketTest, WaitsLastTheirTime) {
  std::signal(SIGUSR1, [](int) {});
  const std::jthread interrupter([caller = pthread_self()](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      pthread_kill(caller, SIGUSR1);
      std::this_thread::sleep_for(milliseconds(1));
    }
  });
  const Listener server;
  listen(server.get(), 0);
  const Connection first(server.port());  // fills the queue: nobody else is answered
  const Connection second;
  const auto start = steady_clock::now();
  EXPECT_FALSE(ConnectTcp(second.number, kLoopback, server.port(), milliseconds(200)));
  EXPECT_EQ(GetLastError(), kErrorWouldBlock);
  EXPECT_EQ(WaitForSocket(first.number, SocketEvent::kReadable, milliseconds(100)),
            SocketWait::kTimeout);
  EXPECT_EQ(GetLastError(), kErrorSocketTimeout);
  const auto time = steady_clock::now() - start;
  EXPECT_GE(time, milliseconds(300));
  EXPECT_LT(time, milliseconds(10'000));
}

}  // namespace
}  // namespace vk::tq::testing
