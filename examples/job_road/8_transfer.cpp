// Chapter 8. The job's files travel to the printer server by FTP.
#include <fstream>
#include <iterator>

#include "platform/service_table.h"
#include "road.h"
#include "servers/ftp_server.h"
#include "transport/ftp.h"

namespace demo {
namespace {

std::string Contents(const std::string& native) {
  std::ifstream in(native, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

void SendTheFiles(Road& road) {
  Chapter("8. The files travel to the printer server");
  vk::tq::servers::FtpServer server;
  const vk::tq::ScopedServicePort port(vk::tq::Service::kFtpControl, server.port());
  const std::wstring folder = road.settings.CertNemiInfoDir;
  const std::string local = road.product.native("CertNemiInfoDir/Job0001.xml");
  {
    vk::tq::CFtp ftp;
    Expect(ftp.FtpConnect(road.settings.P1.c_str(), road.settings.P2.c_str(),
                          road.settings.P3.c_str(), 5000) == 1,
           "the server lets us in");
    Expect(ftp.FtpPut(folder.c_str(), L"Job0001.xml") == 1, "the file is sent");
    Expect(ftp.FtpSizeVerify(folder + L"\\Job0001.xml", L"Job0001.xml") == 1,
           "the file on the server has the same size");
    Expect(ftp.FtpSizeVerifyFindFirst(L"", L"Job0001.xml", Contents(local).size()) == 1,
           "and so it has in the server's listing");
    const std::wstring back = road.settings.EmgTransDir;
    Expect(ftp.FtpGet(back.c_str(), L"Job0001.xml") == 1, "the file is fetched back");
    Expect(Contents(road.product.native("EmgTransDir/Job0001.xml")) == Contents(local),
           "what comes back is equal byte for byte");
    Expect(ftp.FtpDisConnect() == 1, "the connection is closed");
  }
  road.log.Show();
  std::string dialogue;
  for (const std::string& line : server.Dialogue()) dialogue += line + "\n";
  Show("what the server saw:", dialogue);
}

}  // namespace demo
