#include "platform/tcp_socket.h"

#include <pthread.h>
#include <sys/socket.h>

#include <csignal>

#include "support/loopback.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

bool Connect(const FileDescriptor& socket, std::uint16_t port, int milliseconds_left = 5000) {
  return ConnectTcp(socket.get(), 0x7F000001, port, milliseconds(milliseconds_left));
}

// What is sent to a peer that is gone is answered by a reset: that is an error, and no signal.
TEST(TcpSocketTest, APeerThatIsGoneIsAnError) {
  LoopbackServer server([](Peer&, int) {});
  const FileDescriptor socket(OpenTcpSocket());
  ASSERT_TRUE(Connect(socket, server.port()));
  bool is_sent = true;
  for (int i = 0; is_sent && i < 5000; ++i) {
    is_sent = SendTcp(socket.get(), "x", 1, milliseconds(5000));
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
  const FileDescriptor first(OpenTcpSocket());
  ASSERT_TRUE(Connect(first, server.port()));  // fills the queue: nobody else is answered
  const FileDescriptor second(OpenTcpSocket());
  const auto start = steady_clock::now();
  EXPECT_FALSE(Connect(second, server.port(), 200));
  EXPECT_EQ(GetLastError(), kErrorWouldBlock);
  EXPECT_EQ(WaitForSocket(first.get(), SocketEvent::kReadable, milliseconds(100)),
            SocketWait::kTimeout);
  const std::string sent(50'000'000, 'x');
  EXPECT_FALSE(SendTcp(first.get(), sent.data(), sent.size(), milliseconds(50)));
  EXPECT_EQ(GetLastError(), kErrorSocketTimeout);
  const auto time = steady_clock::now() - start;
  EXPECT_GE(time, milliseconds(350));
  EXPECT_LT(time, milliseconds(10'000));
}

}  // namespace
}  // namespace vk::tq::testing
