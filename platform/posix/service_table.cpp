#include "platform/service_table.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <string>
#include <string_view>

#include "platform/path.h"
#include "platform/posix/number.h"

namespace vk::tq {
namespace {

struct KnownService {
  std::string_view name;
  std::uint16_t well_known_port;
};

// In the order of Service.
constexpr std::array<KnownService, 2> kServices = {{{"ftp", 21}, {"dns", 53}}};

class Ports {
 public:
  Ports() noexcept {
    for (std::size_t i = 0; i < kServices.size(); ++i) ports_[i] = kServices[i].well_known_port;
    try {
      TakeAll(EnvironmentOverride("TQ_SERVICE_PORTS").value_or(std::string()));
    } catch (const std::bad_alloc&) {
      // The well-known ports stay in force.
    }
  }

  std::atomic<std::uint16_t>& operator[](Service service) {
    return ports_[static_cast<std::size_t>(service)];
  }

 private:
  void TakeAll(std::string_view words) {
    for (std::size_t begin = 0; begin < words.size();) {
      const std::size_t end = std::min(words.find(' ', begin), words.size());
      Take(words.substr(begin, end - begin));
      begin = end + 1;
    }
  }

  // A word is "name=port"; any other is passed over.
  void Take(std::string_view word) {
    const std::string_view name = word.substr(0, word.find('='));
    if (name.size() == word.size()) return;
    const auto port = WholeNumber<std::uint16_t>(word.substr(name.size() + 1)).value_or(0);
    if (port == 0) return;
    for (std::size_t i = 0; i < kServices.size(); ++i) {
      if (kServices[i].name == name) ports_[i] = port;
    }
  }

  std::array<std::atomic<std::uint16_t>, kServices.size()> ports_;
};

std::atomic<std::uint16_t>& PortOf(Service service) noexcept {
  static Ports ports;
  return ports[service];
}

}  // namespace

std::uint16_t ServicePort(Service service) noexcept { return PortOf(service).load(); }

ScopedServicePort::ScopedServicePort(Service service, std::uint16_t port) noexcept
    : service_(service), old_(PortOf(service).exchange(port)) {}

ScopedServicePort::~ScopedServicePort() { PortOf(service_).store(old_); }

}  // namespace vk::tq
