// Chapter 7. The shared printer server takes the print information over a short TCP connection.
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <string>
#include <thread>

#include "road.h"
#include "support/loopback.h"
#include "transport/shared_printer_communication.h"

namespace demo {
namespace {

using vk::tq::CSharedPrinterCommunication;
using vk::tq::testing::Listener;
using vk::tq::testing::Socket;
using vk::tq::testing::StopSignal;

// A small server: answers CS01 by refusing once and accepting then, CS02 with a time, CS06 by
// accepting.
class SharedPrinterServer {
 public:
  SharedPrinterServer() : thread_([this] { Serve(); }) {}
  SharedPrinterServer(const SharedPrinterServer&) = delete;
  SharedPrinterServer& operator=(const SharedPrinterServer&) = delete;
  ~SharedPrinterServer() {
    stop_.Raise();
    thread_.join();
  }

  int port() const { return listener_.port(); }
  int refused() const { return refused_; }

 private:
  void Serve() {
    while (const Socket client = listener_.Accept(stop_)) Answer(client.get());
  }

  void Answer(int client) {
    std::array<unsigned char, 8> header{};
    if (recv(client, header.data(), header.size(), MSG_WAITALL) != 8) return;
    const std::string command(header.begin(), header.begin() + 4);
    std::uint32_t length = 0;
    for (std::size_t i = 4; i < 8; ++i) length = length << 8 | header[i];
    if (command == "CS02") {
      const std::string time = "2026/11/24 9:00:00";
      Send(client, {'T', 'I', 'M', 'E', 0, 0, 0, static_cast<char>(time.size())});
      return Send(client, time);
    }
    std::string body(length, '\0');
    recv(client, body.data(), body.size(), MSG_WAITALL);
    const bool is_refused = command == "CS01" && refused_ == 0;
    if (is_refused) ++refused_;
    Send(client, "CR" + command.substr(2) + (is_refused ? "1" : "0"));
  }

  static void Send(int client, const std::string& bytes) {
    send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }

  Listener listener_;
  StopSignal stop_;
  int refused_ = 0;
  std::thread thread_;
};

}  // namespace

void CallTheSharedPrinter(Road& road) {
  Chapter("7. The shared printer server");
  int refused = 0;
  {
    SharedPrinterServer server;
    CSharedPrinterCommunication channel(L"localhost", server.port(), 5000, 3);
    Expect(channel.SendNemiInfFile(road.info_file) == 1, "the server takes the print information");
    Expect(channel.SendSpoolPrintOut(road.account, L"Job0001", L"PC-0042") == 1,
           "the server prints the job");
    const std::time_t time = channel.GetServerTime(L"").GetTime();
    Expect(time != 0, "the server tells its time");
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&time));
    Say(std::string("The server's clock, nine hours added: ") + text);
    road.log.ShowLast(8);
    refused = server.refused();
  }
  Expect(refused == 1, "the first attempt was refused");
  Say("It refused the print information once; the second connection delivered it.");
}

}  // namespace demo
