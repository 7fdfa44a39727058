// FTP and the shared printer channel.
#include "faults/operation.h"
#include "platform/service_table.h"
#include "support/scripted_ftp_peer.h"
#include "support/shared_printer_server.h"
#include "transport/ftp.h"
#include "transport/shared_printer_communication.h"

namespace vk::tq::testing {
namespace {

void HoldFile(Stage& stage) { WriteNative(stage.native("work/job.xml"), "contents of the file"); }

// ---- FTP ----

struct FtpService {
  ScriptedFtpPeer peer;
  ScopedServicePort port{Service::kFtpControl, peer.port()};
};

std::shared_ptr<void> ServeFtp(Stage&) {
  auto service = std::make_shared<FtpService>();
  service->peer.file("remote.dat") = "what the server has";
  return service;
}

Pieces ViewFetched(Stage& stage) {
  const std::string file = stage.native("work/remote.dat");
  return {ExistsNative(file) ? ReadNative(file) : "none"};
}

// One work on a new connection.
template <auto kWork>
Report OverFtp(Stage& stage) {
  const CString folder = stage.WorkPath();
  CFtp ftp;
  stage.Made();
  const bool is_done = ftp.FtpConnect(L"127.0.0.1", L"user", L"password", 2000) == 1 &&
                       kWork(ftp, folder.c_str()) == 1;
  ftp.FtpDisConnect();
  return Reports(is_done);
}

constexpr auto kGet = [](CFtp& ftp, const wchar_t* at) { return ftp.FtpGet(at, L"remote.dat"); };
constexpr auto kPutAndVerify = [](CFtp& ftp, const wchar_t* at) {
  return ftp.FtpPutAndVerify(at, L"job.xml", 1);
};

// ---- Shared printer ----

std::shared_ptr<void> ServePrinter(Stage& stage) {
  const auto accept = [](const SharedPrinterServer::Request&) { return true; };
  auto server = std::make_shared<SharedPrinterServer>(accept);
  stage.port = server->port();
  return server;
}

Report SendToPrinter(Stage& stage) {
  const CString path = stage.WorkPath(L"job.xml");
  CSharedPrinterCommunication channel(L"localhost", stage.port, 1000, 1);
  stage.Made();
  return Reports(channel.SendNemiInfFile(path) == 1);
}

}  // namespace

std::vector<Operation> TransportOperations() {
  const Promise ftp = {L"CFtp::", 3};
  return {
      {"FtpPutAndVerify", HoldFile, OverFtp<kPutAndVerify>, ftp, nullptr, ServeFtp},
      {"FtpGet", HoldFile, OverFtp<kGet>, ftp, ViewFetched, ServeFtp},
      {"PrinterSend", HoldFile, SendToPrinter, kNoLine, nullptr, ServePrinter},
  };
}

}  // namespace vk::tq::testing
