/// The ports of the services that the library calls.
#pragma once

#include <cstdint>

namespace vk::tq {

enum class Service { kFtpControl, kDns };

/// 21 for the FTP control connection (RFC 959), 53 for DNS (RFC 1035), unless TQ_SERVICE_PORTS names
/// another one or a ScopedServicePort is alive.
///
/// The variable lets an ordinary user run servers of his own. It holds words such as "ftp=2121
/// dns=5353", separated by blanks, of which the last one for a service counts. A word with another
/// name, or without a port from 1 to 65535, is passed over: the service keeps its port. The variable
/// is read once, and ignored in set-uid programs.
std::uint16_t ServicePort(Service service) noexcept;

/// Puts another port in force for a scope: an ordinary user's tests cannot listen on the well-known
/// ones.
class ScopedServicePort {
 public:
  ScopedServicePort(Service service, std::uint16_t port) noexcept;
  ScopedServicePort(const ScopedServicePort&) = delete;
  ScopedServicePort& operator=(const ScopedServicePort&) = delete;
  ~ScopedServicePort();

 private:
  Service service_;
  std::uint16_t old_;
};

}  // namespace vk::tq
