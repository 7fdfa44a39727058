#include "platform/service_table.h"

#include <cstdlib>

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

TEST(ServiceTable, TakesPortsFromTheEnvironmentOnce) {
  if (!HasOwnProcess()) return;
  const std::tuple<const char*, int, int> rows[] = {
      {nullptr, 21, 53},
      {"ftp=2121 dns=5353", 2121, 5353},
      {"  dns=65535   ftp=1 ", 1, 65535},
      // A bad word changes nothing and keeps no other from counting.
      {"ftp=2121, dns=5353", 21, 5353},
      {"ftp=0 dns=65536", 21, 53},
      {"FTP=2121 =5 ftpd=7 dns=5353x", 21, 53}};
  for (const auto& [variable, ftp, dns] : rows) {
    const ScopedEnvironment ports("TQ_SERVICE_PORTS", variable);
    // The parent has not asked for a port yet, so each child reads the variable anew.
    ChildProcess child([&, ftp = ftp, dns = dns] {
      const bool is_ftp = ServicePort(Service::kFtpControl) == ftp;
      setenv("TQ_SERVICE_PORTS", "ftp=7 dns=7", 1);
      return is_ftp && ServicePort(Service::kDns) == dns ? 0 : 1;
    });
    EXPECT_EQ(0, child.Wait()) << ftp << " " << dns;
  }
}

}  // namespace
}  // namespace vk::tq::testing
