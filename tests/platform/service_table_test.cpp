#include "platform/service_table.h"

#include <cstdlib>

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

TEST(ServiceTable, TakesPortsFromTheEnvironmentOnce) {
  if (!HasOwnProcess()) return;
  static constexpr struct {
    const char* variable;
    int ftp;
    int dns;
  } kRows[] = {
      {nullptr, 21, 53},
      {"ftp=2121 dns=5353", 2121, 5353},
      {"  dns=65535   ftp=1 ", 1, 65535},
      // A bad word changes nothing and keeps no other from counting.
      {"ftp=2121, dns=5353", 21, 5353},
      {"ftp=0 dns=65536", 21, 53},
      {"FTP=2121 =5 ftpd=7 dns=5353x", 21, 53},
  };
  for (const auto& row : kRows) {
    // The parent has not asked for a port yet, so each child reads the variable anew.
    ChildProcess child([&] {
      const ScopedEnvironment ports("TQ_SERVICE_PORTS", row.variable);
      if (ServicePort(Service::kFtpControl) != row.ftp) return 1;
      setenv("TQ_SERVICE_PORTS", "ftp=7 dns=7", 1);
      return ServicePort(Service::kDns) == row.dns ? 0 : 2;
    });
    EXPECT_EQ(0, child.Wait()) << (row.variable ? row.variable : "unset");
  }
}

}  // namespace
}  // namespace vk::tq::testing
