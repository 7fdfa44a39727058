// tqctl ftp, tqctl shared, tqctl fqdn, against real servers.
#include <filesystem>
#include <mutex>

#include "support/dns_server.h"
#include "support/ftp_server.h"
#include "support/shared_printer_server.h"
#include "tools/tool_test.h"

namespace vk::tq::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class TransferTool : public ToolTest {
 protected:
  TransferTool() {
    WriteNative(native("job.xml"), "<a/>");
    WriteNative(native("big.dat"), std::string(3 << 20, 'x'));
    std::filesystem::create_directories(native("into"));
  }

  // The arguments, with the server of the test and a user whose password is asked for.
  static std::vector<std::string> ToServer(std::vector<std::string> arguments) {
    for (const char* more : {"--server", "127.0.0.1", "--user", "tester"}) {
      arguments.emplace_back(more);
    }
    return arguments;
  }

  FtpServer server_;
  ScopedEnvironment ports_{"TQ_SERVICE_PORTS", ("ftp=" + std::to_string(server_.port())).c_str()};
};

TEST_F(TransferTool, FilesGoAndComeWithTheAccountOfClientIni) {
  const ToolResult account = Run({"settings", "account", "tester"}, "geheim secret\n");
  EXPECT_THAT(Run({"ftp", "put", native("job.xml")}).error, HasSubstr("settings set P1"));
  WriteNative(product_native("config/Client.ini"), "[Setting]\nP1=127.0.0.1\n");
  EXPECT_THAT(Run({"ftp", "put", native("job.xml")}).error, HasSubstr("settings account"));
  WriteNative(product_native("config/Client.ini"), "[Setting]\nP1=127.0.0.1\n" + account.out);

  const Json sent = RunJson({"ftp", "put", native("job.xml"), native("big.dat")});
  EXPECT_EQ(sent["files"].items.size(), 2u);
  EXPECT_EQ(sent["server"].text, "127.0.0.1");
  EXPECT_EQ(ReadNative(server_.home("job.xml")), "<a/>");
  RunJson({"ftp", "put", native("job.xml"), "--verify", "2"});
  RunJson({"ftp", "verify", native("job.xml"), native("big.dat")});
  RunJson({"ftp", "get", "big.dat", "job.xml", "--into", native("into")});
  EXPECT_EQ(ReadNative(native("into/big.dat")), ReadNative(native("big.dat")));

  WriteNative(native("job.xml"), "<longer/>");
  EXPECT_THAT(Run({"ftp", "verify", native("job.xml")}).error,
              HasSubstr("not on the server with the same size"));
}

TEST_F(TransferTool, AFailureSaysWhyAndWhatToDo) {
  const struct {
    std::vector<std::string> arguments;
    const char* password;
    int status;
    const char* says;
  } rows[] = {
      {ToServer({"ftp", "put", native("job.xml")}), "wrong\n", 1, "refused the password"},
      {ToServer({"ftp", "put", native("none")}), "geheim secret\n", 1, "no such file"},
      {ToServer({"ftp", "put", native("into")}), "geheim secret\n", 1, "folder"},
      {ToServer({"ftp", "put", native("job.xml"), "--cd", "/none"}), "geheim secret\n", 1,
       "does not change to /none"},
      {ToServer({"ftp", "get", "none"}), "geheim secret\n", 1, "the server refused"},
      {ToServer({"ftp", "get", "none", "--into", native("none")}), "", 1, "No password"},
      {ToServer({"ftp", "verify", native("job.xml")}), "geheim secret\n", 1,
       "not on the server with the same size"},
      {{"ftp", "get", "a", "--user", "x", "--server", "127.0.0.2"}, "x\n", 1, "be reached"},
      {{"ftp", "get", "a", "--user", "x", "--server", "a b"}, "x\n", 1, "name is not known"},
      {{"ftp", "get"}, "", 2, "--help"},
      {{"ftp", "put", "a", "--verify", "256"}, "", 2, "--verify"},
      {{"ftp", "put", "a", "--timeout", "0"}, "", 2, "--timeout"},
  };
  for (const auto& row : rows) {
    const ToolResult result = Run(row.arguments, row.password);
    EXPECT_EQ(result.status, row.status) << result.error;
    EXPECT_THAT(result.error, HasSubstr(row.says));
    EXPECT_THAT(result.out + result.error, Not(HasSubstr("geheim")));
  }
}

TEST_F(TransferTool, ThePasswordIsShownNowhere) {
  const ScopedEnvironment log("TQ_LOG_FILE", native("log").c_str());
  const ScopedEnvironment level("TQ_LOG_LEVEL", "0");
  const ToolResult result =
      RunOnTerminal(ToServer({"ftp", "put", native("big.dat"), "-v"}), "geheim secret\n");
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, HasSubstr("Password of tester on 127.0.0.1"));
  EXPECT_THAT(ReadNative(native("log")), HasSubstr("CFtp::FtpPut"));
  EXPECT_THAT(result.out + ReadNative(native("log")), Not(HasSubstr("geheim")));
}

TEST_F(TransferTool, TheSharedPrinterServerIsCalled) {
  std::mutex mutex;
  std::vector<SharedPrinterServer::Request> requests;
  const SharedPrinterServer shared([&](const SharedPrinterServer::Request& request) {
    const std::lock_guard lock(mutex);
    requests.push_back(request);
    return request.name != "refused";
  });
  const auto to_server = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "shared");
    for (const std::string& more : {std::string("--server"), std::string("127.0.0.1"),
                                    std::string("--port"), std::to_string(shared.port())}) {
      arguments.push_back(more);
    }
    return arguments;
  };
  RunJson(to_server({"send", native("job.xml")}));
  RunJson(to_server({"print", "Job1", "--user", "山田", "--client", "PC-1"}));
  EXPECT_THAT(RunJson(to_server({"time"}))["time"].text, HasSubstr("20"));
  WriteNative(native("refused.xml"), "x");
  RunJson(to_server({"send", native("refused.xml"), "--retries", "1"}), 1);
  {
    const std::lock_guard lock(mutex);
    ASSERT_EQ(requests.size(), 4u);
    EXPECT_EQ(requests[0].name, "job");
    EXPECT_EQ(requests[0].contents, "<a/>");
    EXPECT_THAT(requests[1].contents, HasSubstr("<JobUser>山田</JobUser>"));
  }

  RunJson(to_server({"print", "a<b", "--user", "u", "--client", "c"}), 2);
  RunJson(to_server({"send", native("none.xml")}), 1);
  RunJson({"shared", "time", "--server", "127.0.0.1"}, 2);
  RunJson({"shared", "time", "--server", "127.0.0.1", "--port", "65536"}, 2);
  RunJson({"shared", "time", "--server", "127.0.0.1", "--port", "1"}, 1);
}

TEST_F(TransferTool, ANameComesFromDns) {
  const DnsServer dns({"2.0.192.in-addr.arpa."}, {"1.2.0.192.in-addr.arpa. PTR printer.example."});
  const ScopedEnvironment ports("TQ_SERVICE_PORTS", ("dns=" + std::to_string(dns.port())).c_str());
  const auto ask = [&](const std::string& address, const std::string& server, int status) {
    return RunJson({"fqdn", address, "--server", server}, status);
  };
  EXPECT_EQ(ask("192.0.2.1", "127.0.0.1", 0)["name"].text, "printer.example");
  EXPECT_THAT(ask("192.0.2.2", "127.0.0.1", 1)["error"]["message"].text, HasSubstr("no such name"));
  ask("printer", "127.0.0.1", 2);
  ask("192.0.2.1", "printer", 2);
}

}  // namespace
}  // namespace vk::tq::testing
