// Chapter 7. The shared printer server takes the print information over a short TCP connection.
#include <ctime>
#include <string>

#include "road.h"
#include "servers/shared_printer_server.h"
#include "transport/shared_printer_communication.h"

namespace demo {

using vk::tq::CSharedPrinterCommunication;
using vk::tq::servers::SharedPrinterServer;

void CallTheSharedPrinter(Road& road) {
  Chapter("7. The shared printer server");
  int refused = 0;
  {
    // It refuses the first delivery and accepts whatever comes then.
    const SharedPrinterServer server([&](const SharedPrinterServer::Request& request) {
      const bool is_accepted = request.command != "CS01" || refused > 0;
      if (!is_accepted) ++refused;
      return is_accepted;
    });
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
  }
  Expect(refused == 1, "the first attempt was refused");
  Say("It refused the print information once; the second connection delivered it.");
}

}  // namespace demo
