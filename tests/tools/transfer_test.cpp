// tqctl ftp, tqctl shared, tqctl fqdn, against real servers.
#include <filesystem>
#include <mutex>

#include "support/dns_server.h"
#include "support/ftp_server.h"
#include "support/shared_printer_server.h"
#include "tools/tool_test.h"

namespace vk::tq::testing {
namespace {

using ::testing::_;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

// The server of the test, and a user whose password is asked for.
const std::string kServer = " --server 127.0.0.1 --user tester";
const std::string kPassword = "geheim secret\n";

class TransferTool : public ToolTest {
 protected:
  TransferTool() {
    WriteNative(native("job.xml"), "<a/>");
    WriteNative(native("big.dat"), std::string(3 << 20, 'x'));
    std::filesystem::create_directories("into");
  }

  FtpServer server_;
  ScopedEnvironment ports_{"TQ_SERVICE_PORTS", ("ftp=" + std::to_string(server_.port())).c_str()};
};

TEST_F(TransferTool, FilesGoAndComeWithTheAccountOfClientIni) {
  const ToolResult account = Run("settings account tester", kPassword);
  const std::string client_ini = product_native("config/Client.ini");
  EXPECT_THAT(Run("ftp put job.xml").error, HasSubstr("settings set P1"));
  WriteNative(client_ini, "[Setting]\nP1=127.0.0.1\n");
  EXPECT_THAT(Run("ftp put job.xml").error, HasSubstr("settings account"));
  WriteNative(client_ini, "[Setting]\nP1=127.0.0.1\n" + account.out);

  const Json sent = RunJson("ftp put job.xml big.dat --verify 2");
  EXPECT_EQ(sent.at("files").size(), 2u);
  EXPECT_EQ(sent.at("server"), "127.0.0.1");
  EXPECT_EQ(ReadNative(server_.home("job.xml")), "<a/>");
  RunJson("ftp verify job.xml big.dat");
  RunJson("ftp get big.dat job.xml --into into");
  EXPECT_EQ(ReadNative("into/big.dat"), ReadNative("big.dat"));
  EXPECT_THAT(Run("ftp get job.xml none --into into").error, HasSubstr("before it: 1 of 2."));
}

TEST_F(TransferTool, AFailureSaysWhyAndWhatToDo) {
  const std::tuple<std::string, std::string, int, const char*> rows[] = {
      {"ftp put job.xml" + kServer, "wrong\n", 1, "refused the password"},
      {"ftp put job.xml none" + kServer, kPassword, 1, "no such file"},
      {"ftp put into" + kServer, kPassword, 1, "folder"},
      {"ftp put job.xml --cd /none" + kServer, kPassword, 1, "does not change to /none"},
      {"ftp get none" + kServer, kPassword, 1, "the server refused"},
      {"ftp get none" + kServer, "", 1, "No password"},
      {"ftp verify job.xml" + kServer, kPassword, 1, "not on the server with the same size"},
      {"ftp get a --user x --server 127.0.0.2", "x\n", 1, "be reached"},
      {"ftp get a --user x --server 'a b'", "x\n", 1, "name is not known"},
      {"ftp put a --verify 256", "", 2, "--verify"},
  };
  for (const auto& [line, password, status, says] : rows) {
    const ToolResult result = Run(line, password);
    EXPECT_EQ(result.status, status) << result.error;
    EXPECT_THAT(result.out + result.error, AllOf(HasSubstr(says), Not(HasSubstr("geheim"))));
  }
  EXPECT_FALSE(std::filesystem::exists(server_.home("job.xml")));
}

TEST_F(TransferTool, ThePasswordIsShownNowhere) {
  const ScopedEnvironment log("TQ_LOG_FILE", native("log").c_str());
  const ScopedEnvironment level("TQ_LOG_LEVEL", "0");
  const ToolResult result = RunOnTerminal("ftp put big.dat -v" + kServer, kPassword);
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("Password of tester on 127.0.0.1"));
  EXPECT_THAT(ReadNative("log"), HasSubstr("CFtp::FtpPut"));
  EXPECT_THAT(result.out + ReadNative("log"), Not(HasSubstr("geheim")));
}

TEST_F(TransferTool, TheSharedPrinterServerIsCalled) {
  std::mutex mutex;
  std::vector<std::string> received;
  const SharedPrinterServer shared([&](const SharedPrinterServer::Request& request) {
    const std::lock_guard lock(mutex);
    received.push_back(request.name + " " + request.contents);
    return request.name != "refused";
  });
  const auto call = [&](const std::string& line, int status = 0) {
    const std::string server = " --server 127.0.0.1 --port " + std::to_string(shared.port());
    return RunJson("shared " + line + server, status);
  };
  call("send job.xml");
  call("print Job1 --user 山田 --client PC-1");
  EXPECT_THAT(TextOf(call("time").at("time")), HasSubstr("20"));
  WriteNative(native("refused.xml"), "x");
  call("send refused.xml --retries 1", 1);
  call("print 'a<b' --user u --client c", 2);
  call("send none.xml", 1);
  RunJson("shared time --server 127.0.0.1 --port 65536", 2);
  RunJson("shared time --server 127.0.0.1 --port 1", 1);
  const std::lock_guard lock(mutex);
  EXPECT_THAT(received,
              ElementsAre("job <a/>", HasSubstr("<JobUser>山田</JobUser>"), _, "refused x"));
}

TEST_F(TransferTool, ANameComesFromDns) {
  const DnsServer dns({"2.0.192.in-addr.arpa."}, {"1.2.0.192.in-addr.arpa. PTR printer.example."});
  const ScopedEnvironment ports("TQ_SERVICE_PORTS", ("dns=" + std::to_string(dns.port())).c_str());
  const std::string ask = "fqdn --server 127.0.0.1 ";
  EXPECT_EQ(RunJson(ask + "192.0.2.1").at("name"), "printer.example");
  Fails(ask + "192.0.2.2", "no such name");
  RunJson(ask + "printer", 2);
}

}  // namespace
}  // namespace vk::tq::testing
