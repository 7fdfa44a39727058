// Runs the three servers that the library calls, on ports of this machine that the kernel chose, for
// whoever wants to try the library or its tool. They live until Ctrl-C, and so do their folders.
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "servers/dns_server.h"
#include "servers/ftp_server.h"
#include "servers/shared_printer_server.h"

namespace {

using vk::tq::servers::DnsServer;
using vk::tq::servers::FtpServer;
using vk::tq::servers::SharedPrinterServer;
using vk::tq::testing::StopSignal;
using vk::tq::testing::TempFolder;
using vk::tq::testing::ToUtf8;

constexpr const char* kServerName = "printserver.example.co.jp";

const StopSignal& CtrlC() {
  static const StopSignal signal;
  return signal;
}

// What the shared printer server is given lies in a folder, and is told on the terminal. The name
// comes from a client and must not lead out of the folder.
bool Take(const TempFolder& folder, const SharedPrinterServer::Request& request) {
  if (request.command == "CS06") {
    std::printf("shared printer: print out %s\n", request.contents.c_str());
    return true;
  }
  const std::string path = folder.native(std::filesystem::path(request.name).filename().string());
  std::ofstream file(path + ".xml", std::ios::binary);
  const bool is_stored =
      file.write(request.contents.data(), static_cast<std::streamsize>(request.contents.size())) &&
      file.flush();
  std::printf("shared printer: %s %s.xml, %zu bytes\n", is_stored ? "took" : "cannot write",
              path.c_str(), request.contents.size());
  return is_stored;
}

void Run() {
  const FtpServer ftp;
  const DnsServer dns({"127.in-addr.arpa."},
                      {std::string("1.0.0.127.in-addr.arpa. PTR ") + kServerName + "."});
  const TempFolder taken;
  const SharedPrinterServer shared(
      [&](const SharedPrinterServer::Request& request) { return Take(taken, request); });

  std::printf(
      "Three servers run on 127.0.0.1 until Ctrl-C.\n"
      "  FTP              port %d, user %s, password \"%s\"\n"
      "                   its files are in %s\n"
      "  DNS              port %d, 127.0.0.1 is %s\n"
      "  shared printer   port %d, what it takes is in %s\n"
      "For the terminal in which you try the library:\n"
      "export TQ_SERVICE_PORTS=\"ftp=%d dns=%d\" SHARED_PRINTER_PORT=%d\n",
      ftp.port(), ToUtf8(FtpServer::kUser).c_str(), ToUtf8(FtpServer::kPassword).c_str(),
      ftp.home().c_str(), dns.port(), kServerName, shared.port(), taken.native().c_str(),
      ftp.port(), dns.port(), shared.port());
  CtrlC().Wait();
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  CtrlC();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    std::signal(signal, [](int) { CtrlC().Raise(); });
  }
  try {
    Run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "example_servers: %s\n", error.what());
    return 1;
  }
  return 0;
}
