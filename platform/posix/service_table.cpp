#include "platform/service_table.h"

#include <array>
#include <atomic>

namespace vk::tq {
namespace {

std::array<std::atomic<std::uint16_t>, 2> ports = {std::uint16_t{21}, std::uint16_t{53}};

std::atomic<std::uint16_t>& PortOf(Service service) noexcept {
  return ports[static_cast<std::size_t>(service)];
}

}  // namespace

std::uint16_t ServicePort(Service service) noexcept { return PortOf(service).load(); }

ScopedServicePort::ScopedServicePort(Service service, std::uint16_t port) noexcept
    : service_(service), old_(PortOf(service).exchange(port)) {}

ScopedServicePort::~ScopedServicePort() { PortOf(service_).store(old_); }

}  // namespace vk::tq
