// FTP, the shared printer channel, and names from DNS.
#include "faults/operation.h"
#include "platform/service_table.h"
#include "platform/system_info.h"
#include "servers/shared_printer_server.h"
#include "support/dns_peer.h"
#include "support/scripted_ftp_peer.h"
#include "transport/ftp.h"
#include "transport/shared_printer_communication.h"
#include "transport/util_link.h"

namespace vk::tq::testing {
namespace {

void HoldFile(Stage& stage) { WriteNative(stage.native("work/job.xml"), "contents of the file"); }

// ---- FTP ----

struct FtpService : ScriptedFtpPeer {
  ScopedServicePort use_port{Service::kFtpControl, port()};
};

// What the server takes for a whole file is put where a view finds it.
std::shared_ptr<void> ServeFtp(Stage& stage) {
  auto server = std::make_shared<FtpService>();
  using Session = ScriptedFtpPeer::Session;
  server->On("STOR", [stored = stage.native("stored")](Session& session, const auto&) {
    session.Reply("150 go on");
    if (const auto data = session.TakeWholeData()) WriteNative(stored, *data);
    return session.Reply("226 stored");
  });
  server->On("SIZE", "213 20");
  server->file("remote.dat") = "what the server has";
  server->On("LIST", [](Session& session, const auto&) {
    return session.Give("-rw-r--r-- 1 ftp ftp 19 Jan 01 2024 remote.dat\r\n");
  });
  return server;
}

Pieces ViewFiles(Stage& stage) {
  return {ViewFile(stage.native("stored"))[0], ViewFile(stage.native("work/remote.dat"))[0]};
}

// A work on a new connection.
template <class Work>
Operation OverFtp(const char* name, Work work) {
  const auto run = [work](Stage& stage) {
    CFtp ftp;
    stage.Made();
    const bool is_done = ftp.FtpConnect(L"127.0.0.1", L"user", L"password", 2000) == 1 &&
                         work(ftp, stage.work.c_str()) == 1;
    ftp.FtpDisConnect();
    return Reports(is_done);
  };
  return {name, HoldFile, run, ViewFiles, {}, ServeFtp};
}

// ---- Shared printer ----

std::shared_ptr<void> ServePrinter(Stage& stage) {
  const auto accept = [](const servers::SharedPrinterServer::Request&) { return true; };
  auto server = std::make_shared<servers::SharedPrinterServer>(accept);
  stage.port = server->port();
  return server;
}

using Channel = CSharedPrinterCommunication;

template <class Work>
Operation OverChannel(const char* name, Work work) {
  const auto run = [work](Stage& stage) {
    const CString path = stage.work + L"\\job.xml";
    Channel channel(L"localhost", stage.port, 1000, 1);
    stage.Made();
    return Reports(work(channel, path));
  };
  return {name, HoldFile, run, nullptr, {}, ServePrinter};
}

// ---- DNS ----

class LocalMachine : public Machine {
 public:
  ErrorCode Network(NetworkParameters& parameters, std::size_t&) override {
    parameters = {L"pc", L"example", {"127.0.0.1"}};
    return kErrorSuccess;
  }
};

struct DnsService {
  DnsPeer peer{[](const std::string& question, bool is_tcp) {
    Reply reply;
    reply.is_truncated = !is_tcp;
    reply.records = {PackRecord(kAskedName, kPtr, PackName("printer.example"))};
    return std::vector{reply.To(question)};
  }};
  ScopedServicePort port{Service::kDns, peer.port()};
  LocalMachine machine;
  ScopedMachine use_machine{machine};
};

std::shared_ptr<void> ServeDns(Stage&) { return std::make_shared<DnsService>(); }

Report FindName(Stage& stage) {
  CString name, cache;
  std::int64_t time = 0;
  const CString address = L"192.0.2.1";
  stage.Made();
  const bool is_done = CUtilLink::ConformFQDN(address, name, cache, 1, 60, time) == 1;
  const Calm calm;
  EXPECT_EQ(time != 0, is_done);
  return Reports(is_done, name + cache);
}

Report ListServers(Stage& stage) {
  int count = 0;
  stage.Made();
  IP_ADDR_STRING* const servers = CUtilLink::AllocDNSList(count);
  const bool is_done = servers != nullptr;
  CUtilLink::FreeDNSList(servers);
  return Reports(is_done);
}

}  // namespace

std::vector<Operation> TransportOperations() {
  return {
      OverFtp("FtpPut", [](CFtp& ftp, auto at) { return ftp.FtpPut(at, L"job.xml"); }),
      OverFtp("FtpPutAndVerify",
              [](CFtp& ftp, auto at) { return ftp.FtpPutAndVerify(at, L"job.xml", 1); }),
      OverFtp("FtpGet", [](CFtp& ftp, auto at) { return ftp.FtpGet(at, L"remote.dat"); }),
      OverFtp("FtpFindSize",
              [](CFtp& ftp, auto) {
                return ftp.FtpChangeCurrentDirectory(L"there") == 1 &&
                       ftp.FtpSizeVerifyFindFirst(nullptr, L"remote.dat", 19) == 1;
              }),
      OverChannel("PrinterSend",
                  [](Channel& it, auto& path) { return it.SendNemiInfFile(path) == 1; }),
      OverChannel("PrinterPrintOut",
                  [](Channel& it, auto& id) { return it.SendSpoolPrintOut(id, id, id) == 1; }),
      OverChannel("PrinterTime",
                  [](Channel& it, auto& path) { return it.GetServerTime(path).GetTime() > 0; }),
      {"NameFind", nullptr, FindName, nullptr, {}, ServeDns},
      {"NameServers", nullptr, ListServers},
  };
}

}  // namespace vk::tq::testing
