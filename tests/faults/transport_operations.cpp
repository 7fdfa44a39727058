// FTP, the shared printer channel, and names from DNS.
#include "faults/operation.h"
#include "platform/service_table.h"
#include "platform/system_info.h"
#include "support/dns_server.h"
#include "support/scripted_ftp_peer.h"
#include "support/shared_printer_server.h"
#include "transport/ftp.h"
#include "transport/shared_printer_communication.h"
#include "transport/util_link.h"

namespace vk::tq::testing {
namespace {

void HoldFile(Stage& stage) { WriteNative(stage.native("work/job.xml"), "contents of the file"); }

// ---- FTP ----

struct FtpService {
  ScriptedFtpPeer peer;
  ScopedServicePort port{Service::kFtpControl, peer.port()};
};

// What the server takes for a whole file is put where a view finds it.
std::shared_ptr<void> ServeFtp(Stage& stage) {
  auto service = std::make_shared<FtpService>();
  const std::string stored = stage.native("stored");
  service->peer.On("STOR", [stored](ScriptedFtpPeer::Session& session, const std::string&) {
    session.Reply("150 go on");
    if (const auto data = session.TakeWholeData()) WriteNative(stored, *data);
    return session.Reply("226 stored");
  });
  service->peer.On("SIZE", "213 20");
  service->peer.file("remote.dat") = "what the server has";
  service->peer.On("LIST", [](ScriptedFtpPeer::Session& session, const std::string&) {
    session.Reply("150 here it comes");
    session.SendData("-rw-r--r-- 1 ftp ftp 19 Jan 01 2024 remote.dat\r\n");
    session.CloseData();
    session.Reply("226 done");
    return true;
  });
  return service;
}

template <const char* kFile>
Pieces ViewFile(Stage& stage) {
  const std::string file = stage.native(kFile);
  return {ExistsNative(file) ? ReadNative(file) : "none"};
}
constexpr char kFetched[] = "work/remote.dat";
constexpr char kStored[] = "stored";

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

constexpr auto kPut = [](CFtp& ftp, const wchar_t* at) { return ftp.FtpPut(at, L"job.xml"); };
constexpr auto kGet = [](CFtp& ftp, const wchar_t* at) { return ftp.FtpGet(at, L"remote.dat"); };
constexpr auto kPutAndVerify = [](CFtp& ftp, const wchar_t* at) {
  return ftp.FtpPutAndVerify(at, L"job.xml", 1);
};
constexpr auto kFindSize = [](CFtp& ftp, const wchar_t*) {
  return ftp.FtpChangeCurrentDirectory(L"there") == 1 &&
         ftp.FtpSizeVerifyFindFirst(nullptr, L"remote.dat", 19) == 1;
};

// ---- Shared printer ----

std::shared_ptr<void> ServePrinter(Stage& stage) {
  const auto accept = [](const SharedPrinterServer::Request&) { return true; };
  auto server = std::make_shared<SharedPrinterServer>(accept);
  stage.port = server->port();
  return server;
}

template <auto kWork>
Report OverChannel(Stage& stage) {
  const CString path = stage.WorkPath(L"job.xml");
  CSharedPrinterCommunication channel(L"localhost", stage.port, 1000, 1);
  stage.Made();
  return Reports(kWork(channel, path));
}

using Channel = CSharedPrinterCommunication;
constexpr auto kSend = [](Channel& channel, const CString& path) {
  return channel.SendNemiInfFile(path) == 1;
};
constexpr auto kPrintOut = [](Channel& channel, const CString& path) {
  return channel.SendSpoolPrintOut(path, path, path) == 1;
};
constexpr auto kTime = [](Channel& channel, const CString& path) {
  return channel.GetServerTime(path).GetTime() > 0;
};

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
  CString name;
  const CString address = L"192.0.2.1";
  stage.Made();
  return Reports(CUtilLink::GetFQDN(address, "127.0.0.1", name) == 0, name);
}

Report ConformName(Stage& stage) {
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
  const Promise ftp = {L"CFtp::", 3};
  return {
      {"FtpPut", HoldFile, OverFtp<kPut>, ftp, ViewFile<kStored>, ServeFtp},
      {"FtpPutAndVerify", HoldFile, OverFtp<kPutAndVerify>, ftp, ViewFile<kStored>, ServeFtp},
      {"FtpGet", HoldFile, OverFtp<kGet>, ftp, ViewFile<kFetched>, ServeFtp},
      {"FtpFindSize", HoldFile, OverFtp<kFindSize>, ftp, nullptr, ServeFtp},
      {"PrinterSend", HoldFile, OverChannel<kSend>, kNoLine, nullptr, ServePrinter},
      {"PrinterPrintOut", HoldFile, OverChannel<kPrintOut>, kNoLine, nullptr, ServePrinter},
      {"PrinterTime", HoldFile, OverChannel<kTime>, kNoLine, nullptr, ServePrinter},
      {"NameFind", HoldFile, FindName, kNoLine, nullptr, ServeDns},
      {"NameConform", HoldFile, ConformName, kNoLine, nullptr, ServeDns},
      {"NameServers", HoldFile, ListServers, {L"CUtilLink::", 5}},
  };
}

}  // namespace vk::tq::testing
