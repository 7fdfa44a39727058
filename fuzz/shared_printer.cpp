// Answers of the shared printer server. Input: a mode (which exchange, and whether the server closes
// behind its answer or says no more), the answer.
#include <sys/socket.h>

#include <thread>

#include "fuzz/support.h"
#include "support/loopback.h"
#include "transport/shared_printer_communication.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

// Gives every connection the same answer, until the process ends.
class Server {
 public:
  void Prepare(bool closes, std::string_view answer) {
    closes_ = closes;
    answer_ = answer;
  }
  // Answers one connection.
  void Serve() const {
    const testing::StopSignal never;
    const FileDescriptor peer = listener_.Accept(never);
    std::ignore = send(peer.get(), answer_.data(), answer_.size(), MSG_NOSIGNAL);
    if (closes_) shutdown(peer.get(), SHUT_WR);
    char frame[4096];
    while (recv(peer.get(), frame, sizeof frame, 0) > 0) {
    }
    // Without it each connection would wait in the kernel for a minute.
    const linger now{1, 0};
    setsockopt(peer.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
  }
  std::uint16_t port() const { return listener_.port(); }

 private:
  testing::Listener listener_;
  bool closes_ = false;
  std::string answer_;
};

}  // namespace

TQ_FUZZ_TARGET(input) {
  const Sandbox& sandbox = TheSandbox();
  static Server server;
  const unsigned mode = input.Mode();
  const std::string_view answer = input.Rest();
  const bool closes = (mode & 4U) != 0;
  // Where the server closes, nothing waits in vain.
  const std::chrono::milliseconds wait(closes ? 10'000 : 5);
  const ScopedExchangeWaits waits(wait, wait);
  server.Prepare(closes, answer);
  std::jthread serving([&] { server.Serve(); });
  CSharedPrinterCommunication client(L"127.0.0.1", server.port(), 1000, 0);
  const auto agrees = [&](int result, std::string_view command) {
    const bool is_accepted = answer.size() >= 5 && answer.starts_with(command) && answer[4] != '1';
    return closes ? result == int{is_accepted} : result <= int{is_accepted};
  };
  if ((mode & 3U) == 0) {
    sandbox.Write(sandbox.Native("report.xml"), "0123456789abcdef");
    Require(agrees(client.SendNemiInfFile(sandbox.Path("report.xml")), "CR01"),
            "a delivery is accepted by its answer alone");
  } else if ((mode & 3U) == 1) {
    Require(agrees(client.SendSpoolPrintOut(L"user", L"42", L"PC"), "CR06"),
            "a print-out is accepted by its answer alone");
  } else {
    const std::int64_t time = client.GetServerTime(L"").GetTime();
    constexpr std::int64_t kDay = 86'400;
    Require(time >= -kDay && time <= 32'503'680'000 + 400 * kDay, "a time is one up to year 3000");
  }
}
