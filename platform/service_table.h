/// The ports of the services that the library calls.
#pragma once

#include <cstdint>

namespace vk::tq {

enum class Service { kFtpControl, kDns };

/// 21 for the FTP control connection (RFC 959), 53 for DNS (RFC 1035), unless a ScopedServicePort
/// is alive.
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
