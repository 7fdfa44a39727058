#include "transport/util_link.h"

#include "platform/dns.h"
#include "platform/service_table.h"
#include "platform/system_info.h"
#include "support/dns_peer.h"
#include "support/test_clock.h"

namespace vk::tq::testing {
namespace {

// Its DNS configuration is the test's choice.
class ConfiguredMachine : public Machine {
 public:
  ErrorCode Network(NetworkParameters& parameters, std::size_t& room) override {
    if (servers.empty()) return kErrorNotSupported;
    if (room < servers.size()) {
      room = servers.size();
      return kErrorBufferOverflow;
    }
    parameters = {L"pc-7", L"example.jp", servers};
    return kErrorSuccess;
  }
  std::vector<std::string> NameServers() override { return {"127.0.0.1"}; }

  std::vector<std::string> servers;
};

class UtilLinkTest : public ProductTest {
 protected:
  TestClock clock_;
  ScopedClock use_clock_{clock_};
  ConfiguredMachine machine_;
  ScopedMachine use_machine_{machine_};
  ScopedDnsWait wait_{std::chrono::milliseconds(5000)};
  Guarded<Reply> reply_;  // to every question
  DnsPeer peer_{
      [this](const std::string& question, bool) { return std::vector{(*reply_).To(question)}; }};
  ScopedServicePort port_{Service::kDns, peer_.port()};
};

// fqdn_log.txt has what is told, and what comes of it: the result, the name, the cache, its age,
// and how many questions were asked.
TEST_F(UtilLinkTest, AnAddressBecomesItsNameAndStaysInTheCacheForItsLife) {
  using Servers = std::vector<std::string>;
  const std::string here = "127.0.0.1";
  const std::string nobody = "127.255.255.254";  // the greatest length
  // The DNS servers, the host or that there is none, the address, the cache, its age and its life.
  const std::tuple<Servers, const char*, const wchar_t*, const wchar_t*, int, int> cases[] = {
      {{here}, "a.example", L"127.0.0.1", L"", 7200, 60},
      {{here}, "a.example", L"127.0.0.1", L"127.0.0.1@kept@third", 3600, 60},
      {{here}, nullptr, L"127.0.0.1", L"127.0.0.1@kept", 3601, 60},
      {{here}, "na@me", L"192.0.2.1", L"192.0.2.9@kept", 0, 60},
      {{here}, "na@me", L"192.0.2.1", L"192.0.2.1@kept", -100000, 1},
      {{nobody, here}, "b.example", L"192.0.2.1", L"@192.0.2.1@kept", 0, 60},
      {{here, nobody}, "b.example", L"192.0.2.1", L"192.0.2.1@kept", 0, 0},
      {{here, nobody}, nullptr, L"192.0.2.1", L"", 0, 60},
      {{}, "own.example", L"192.0.2.1", L"", 0, 60},
      {{here}, "a.example", L"プリンタ", L"", 0, 60},
      {{here}, "a.example", L"192.0.2.01", L"", 0, 60},
      {{here}, "a.example", L"", L"", 0, 60},
  };
  for (const auto& [servers, host, address, old_cache, age, minutes] : cases) {
    machine_.servers = servers;
    reply_ = host == nullptr ? Reply{.code = 3}
                             : Reply{.records = {PackRecord(kAskedName, kPtr, PackName(host))}};
    std::wstring name = L"old";
    std::wstring cache = old_cache;
    std::int64_t time = clock_.now - age;
    const int result = CUtilLink::ConformFQDN(address, name, cache, 2, minutes, time);
    Tell(std::to_string(result) + " [" + ToUtf8(name + L"] [" + cache) + "] " +
         std::to_string(clock_.now - time) + " " + std::to_string(peer_.questions()));
  }
  EXPECT_EQ(told_, ReadNative(TQ_TEST_DATA "/fqdn_log.txt"));
}

TEST_F(UtilLinkTest, WhatCannotBeAskedIsNotAsked) {
  CString name = L"old";
  EXPECT_EQ(13, CUtilLink::GetFQDN(L"", name));
  EXPECT_EQ(87, CUtilLink::GetFQDN(L"192.0.2.1", "localhost", name));
  for (const CString text : {L"1.2.3", L"1.2.3.4.5", L"1.2.3.04", L"1.2.3.256", L"1.2.3.４"}) {
    EXPECT_EQ(123, CUtilLink::GetFQDN(text, name));
    EXPECT_EQ(text, name);
  }
  EXPECT_EQ(0, peer_.questions());
  wchar_t address[] = L"1.2.3.4";
  EXPECT_EQ(L"4.3.2.1.IN-ADDR.ARPA", CUtilLink::ReverseIP(address));
}

}  // namespace
}  // namespace vk::tq::testing
