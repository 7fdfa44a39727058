// Chapter 6. The printer server's name, from DNS and from the caller's cache.
#include <cstdint>

#include "platform/clock.h"
#include "platform/service_table.h"
#include "platform/system_info.h"
#include "road.h"
#include "servers/dns_server.h"
#include "transport/util_link.h"

namespace demo {
namespace {

// A machine whose only DNS server is the one of the demonstration.
class LoopbackMachine : public vk::tq::Machine {
 public:
  vk::tq::ErrorCode Network(vk::tq::NetworkParameters& parameters, std::size_t& room) override {
    parameters = {L"demo", L"example.co.jp", {"127.0.0.1"}};
    room = 1;
    return vk::tq::kErrorSuccess;
  }
};

// A clock that can be put forward.
class AdjustableClock : public vk::tq::Clock {
 public:
  std::int64_t Now() override { return machine_.Now() + ahead_; }
  std::uint32_t TickCount() override { return machine_.TickCount(); }
  void Sleep(std::uint32_t milliseconds) override { machine_.Sleep(milliseconds); }
  void PutForward(std::int64_t seconds) { ahead_ += seconds; }

 private:
  vk::tq::Clock& machine_ = vk::tq::CurrentClock();
  std::int64_t ahead_ = 0;
};

}  // namespace

void FindTheServersName(Road& road) {
  Chapter("6. The printer server's name");
  const vk::tq::servers::DnsServer server(
      {"127.in-addr.arpa."}, {"1.0.0.127.in-addr.arpa. PTR printserver.example.co.jp."});
  const vk::tq::ScopedServicePort port(vk::tq::Service::kDns, server.port());
  LoopbackMachine machine;
  const vk::tq::ScopedMachine scoped_machine(machine);
  AdjustableClock clock;
  const vk::tq::ScopedClock scoped_clock(clock);

  // The caller keeps these two between calls.
  std::wstring cache;
  std::int64_t resolve_time = 0;
  const auto find = [&](const char* when) {
    Say(when);
    std::wstring name;
    const int result =
        vk::tq::CUtilLink::ConformFQDN(road.settings.P1, name, cache, road.settings.FQDNTryCount,
                                       road.settings.FQDNExpirationMinute, resolve_time);
    Expect(result == 1 && name == L"printserver.example.co.jp", "the name is found");
    road.log.Show();
  };
  find("The first call asks the DNS server:");
  find("The second takes the name from the cache:");
  clock.PutForward(60 * road.settings.FQDNExpirationMinute + 1);
  find("An hour and a second later the entry is too old:");
}

}  // namespace demo
