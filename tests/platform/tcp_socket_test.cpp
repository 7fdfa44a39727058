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

// Signals interrupt the waits, and must neither end nor lengthen them.
TEST(TcpSocketTest, WaitsLastTheirTime) {
  std::signal(SIGUSR1, [](int) {});
  const std::jthread interrupter([caller = pthread_self()](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      pthread_kill(caller, SIGUSR1);
      std::this_thread::sleep_for(milliseconds(1));
    }
  });
  const auto connect = [](const FileDescriptor& socket, std::uint16_t port) {
    return ConnectTcp(socket.get(), 0x7F000001, port, milliseconds(200));
  };
  const FileDescriptor first(OpenTcpSocket());
  const FileDescriptor second(OpenTcpSocket());
  const auto start = steady_clock::now();
  {
    const Listener server;
    listen(server.get(), 0);
    ASSERT_TRUE(connect(first, server.port()));  // fills the queue: nobody else is answered
    EXPECT_FALSE(connect(second, server.port()));
    EXPECT_EQ(GetLastError(), kErrorWouldBlock);
    EXPECT_EQ(WaitForSocket(first.get(), SocketEvent::kReadable, milliseconds(100)),
              SocketWait::kTimeout);
    const std::string sent(50'000'000, 'x');
    EXPECT_FALSE(SendTcp(first.get(), sent.data(), sent.size(), milliseconds(50)));
    EXPECT_EQ(GetLastError(), kErrorSocketTimeout);
  }
  const auto time = steady_clock::now() - start;
  EXPECT_GE(time, milliseconds(350));
  EXPECT_LT(time, milliseconds(10'000));
  // A peer that is gone is an error, and no signal.
  EXPECT_FALSE(SendTcp(first.get(), "x", 1, milliseconds(50)));
  EXPECT_FALSE(SendTcp(first.get(), "x", 1, milliseconds(50)));
  EXPECT_EQ(GetLastError(), kErrorConnectionReset);
}

}  // namespace
}  // namespace vk::tq::testing
