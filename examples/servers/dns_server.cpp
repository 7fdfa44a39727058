#include "servers/dns_server.h"

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

#include "support/loopback.h"

namespace vk::tq::servers {

using namespace testing;

DnsServer::DnsServer(const std::vector<std::string>& zones,
                     const std::vector<std::string>& records) {
  const std::string configuration = folder_.native("unbound.conf");
  const std::string output = folder_.native("output");
  std::string lists;
  for (const std::string& zone : zones) lists += "  local-zone: \"" + zone + "\" static\n";
  for (const std::string& record : records) lists += "  local-data: '" + record + "'\n";
  // Between the choice of a port and the start somebody else may take it.
  for (int attempt = 0; attempt < 5; ++attempt) {
    port_ = Listener().port();
    WriteNative(configuration, "include: " TQ_SERVERS "/unbound.conf\nserver:\n  port: " +
                                   std::to_string(port_) + "\n" + lists);
    WriteNative(output, "");
    process_.emplace([&] {
      dup2(open(output.c_str(), O_WRONLY), STDERR_FILENO);
      return execl("/usr/sbin/unbound", "unbound", "-d", "-c", configuration.c_str(), nullptr);
    });
    std::string said;
    for (int i = 0; i < 4000 && said.find("fatal error") == std::string::npos; ++i) {
      usleep(5000);
      said = ReadNative(output);
      if (said.find("start of service") != std::string::npos) return;
    }
    process_.reset();
  }
  throw std::runtime_error("unbound does not start: " + ReadNative(output));
}

}  // namespace vk::tq::servers
