#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace vk::tq::servers {

// unbound on a port of 127.0.0.1, with nothing of the system's configuration. It knows the records
// that it is given, and no others of those zones.
class DnsServer {
 public:
  // Zones such as "2.0.192.in-addr.arpa." and records such as
  // "1.2.0.192.in-addr.arpa. PTR printer.example.".
  DnsServer(const std::vector<std::string>& zones, const std::vector<std::string>& records);

  std::uint16_t port() const { return port_; }

 private:
  testing::TempFolder folder_;
  std::uint16_t port_ = 0;
  std::optional<testing::ChildProcess> process_;
};

}  // namespace vk::tq::servers
