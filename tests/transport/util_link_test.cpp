#include "transport/util_link.h"

#include "platform/dns.h"
#include "platform/service_table.h"
#include "platform/system_info.h"
#include "support/dns_server.h"
#include "support/test_clock.h"

namespace vk::tq::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsSupersetOf;

// Its DNS configuration is the test's choice.
class ConfiguredMachine : public Machine {
 public:
  ErrorCode Network(NetworkParameters& parameters, std::size_t& room) override {
    if (status != kErrorSuccess) return status;
    if (room < servers.size()) {
      room = servers.size();
      return kErrorBufferOverflow;
    }
    parameters = {L"pc-7", L"example.jp", servers};
    return kErrorSuccess;
  }
  std::vector<std::string> NameServers() override { return {"127.0.0.1"}; }

  std::vector<std::string> servers = {"127.0.0.1"};
  ErrorCode status = kErrorSuccess;
};

// The server answers every question alike.
class UtilLinkTest : public ProductTest {
 protected:
  // "result name cache age"
  std::string Conform(const std::wstring& address, int tries = 1, int valid_minutes = 60) {
    const int result =
        CUtilLink::ConformFQDN(address, name_, cache_, tries, valid_minutes, resolve_time_);
    return std::to_string(result) + " " + ToUtf8(name_ + L" " + cache_) + " " +
           std::to_string(clock_.now - resolve_time_);
  }
  // "status name"
  std::string Ask(const std::wstring& address = L"192.0.2.1") {
    const long status = CUtilLink::GetFQDN(address, name_);
    return std::to_string(status) + " " + ToUtf8(name_);
  }
  void AnswerWith(const std::string& host) {
    reply_ = {.records = {PackRecord(kAskedName, kPtr, PackName(host))}};
  }

  TestClock clock_;
  std::wstring name_ = L"old";
  std::wstring cache_;
  std::int64_t resolve_time_ = clock_.now - 7200;
  ScopedClock use_clock_{clock_};
  ConfiguredMachine machine_;
  ScopedMachine use_machine_{machine_};
  ScopedDnsWait wait_{std::chrono::milliseconds(5000)};
  Reply reply_;
  DnsPeer peer_{
      [this](const std::string& question, bool) { return std::vector{reply_.To(question)}; }};
  ScopedServicePort port_{Service::kDns, peer_.port()};
};

TEST_F(UtilLinkTest, AnAddressBecomesItsNameAndStaysInTheCacheForItsLife) {
  AnswerWith("printer.example.jp");
  const std::string named = "1 printer.example.jp 127.0.0.1@printer.example.jp ";
  EXPECT_EQ(named + "0", Conform(L"127.0.0.1", 3));
  // At the end of its life the entry still counts.
  reply_ = {.code = 3};
  clock_.now += 3600;
  EXPECT_EQ(named + "3600", Conform(L"127.0.0.1"));
  const std::string entry = "( IP:127.0.0.1 , FQDN:printer.example.jp )";
  EXPECT_THAT(
      log_.texts(),
      ElementsAre(
          "0 CUtilLink::ConformFQDN START",
          "2 CUtilLink::ConformFQDN FQDNの取得開始( IP:127.0.0.1 )",
          "2 CUtilLink::ConformFQDN FQDNの取得 1/3回目", "0 CUtilLink::GetFQDN START",
          "0 CUtilLink::AllocDNSList START",
          "2 CUtilLink::AllocDNSList LocalMachineName: pc-7,Domain Name: example.jp",
          "2 CUtilLink::AllocDNSList DNS Servers: [127.0.0.1]",
          "2 CUtilLink::AllocDNSList Num Of DNS Servers : 1", "0 CUtilLink::AllocDNSList END",
          "2 CUtilLink::GetFQDN (127.0.0.1)をDNSサーバ（127.0.0.1）へ問い合わせ ",
          "0 CUtilLink::GetFQDN START", "0 CUtilLink::ReverseIP START",
          "2 CUtilLink::GetFQDN DNS Query Start", "2 CUtilLink::GetFQDN DNS Query End",
          "2 CUtilLink::GetFQDN DNS Query SUCCESS", "2 CUtilLink::GetFQDN FQDN: printer.example.jp",
          "0 CUtilLink::GetFQDN END", "3 CUtilLink::ConformFQDN FQDNの取得に成功" + entry,
          "0 CUtilLink::ConformFQDN START",
          "2 CUtilLink::ConformFQDN FQDNをキャッシュから取得" + entry));
  ++clock_.now;
  log_.Clear();
  EXPECT_EQ("0 127.0.0.1 127.0.0.1@127.0.0.1 3601", Conform(L"127.0.0.1", 2));
  EXPECT_EQ(3, peer_.questions());
  EXPECT_EQ(log_.texts(3),
            std::vector<std::string>(
                2, "4 CUtilLink::ConformFQDN FQDNの取得に失敗( IP:127.0.0.1 ErrCode:9003 )"));
}

TEST_F(UtilLinkTest, TheRulesOfTheCache) {
  AnswerWith("na@me");
  const struct {
    const wchar_t* cache;
    std::int64_t age;
    int valid_minutes;
    std::string name;
    bool is_asked;
  } kCases[] = {
      {L"192.0.2.1@kept", 61, 1, "na\\064me", true},
      {L"192.0.2.1@kept", -100000, 1, "kept", false},
      {L"192.0.2.1@kept", 0, 0, "na\\064me", true},
      {L"192.0.2.9@kept", 0, 60, "na\\064me", true},
      {L"192.0.2.1@kept@third", 3600, 60, "kept", false},
      {L"@192.0.2.1@kept", 0, 60, "na\\064me", true},
  };
  int asked = 0;
  for (const auto& test : kCases) {
    cache_ = test.cache;
    resolve_time_ = clock_.now - test.age;
    EXPECT_EQ("1 " + test.name + " 192.0.2.1@" + test.name + " " +
                  std::to_string(test.is_asked ? 0 : test.age),
              Conform(L"192.0.2.1", 1, test.valid_minutes))
        << ToUtf8(test.cache);
    EXPECT_EQ(asked += test.is_asked, peer_.questions());
  }
}

TEST_F(UtilLinkTest, AHostNameIsUsedAsItIs) {
  for (const std::wstring host : {L"プリンタ", L"192.0.2.01", L""}) {
    EXPECT_EQ("1 " + ToUtf8(host + L" " + host + L"@" + host) + " 7200", Conform(host, 3));
    EXPECT_EQ(
        "3 CUtilLink::ConformFQDN IPアドレス形式でないため、ホスト名をそのまま設定( ホスト名:" +
            ToUtf8(host) + " )",
        log_.texts().back());
  }
  EXPECT_EQ(0, peer_.questions());
}

TEST_F(UtilLinkTest, TheSecondServerIsAskedWhenTheFirstFails) {
  AnswerWith("b.example");
  // Nobody is at this one, whose address has the greatest length.
  const char* const longest = "127.255.255.254";
  machine_.servers = {longest, "127.0.0.1"};
  EXPECT_EQ("0 b.example", Ask());
  EXPECT_THAT(log_.texts(1),
              IsSupersetOf(
                  {"2 CUtilLink::AllocDNSList アロケート不足の為、再アロケート",
                   "2 CUtilLink::AllocDNSList DNS Servers: [127.255.255.254],[127.0.0.1]",
                   "2 CUtilLink::AllocDNSList Num Of DNS Servers : 2",
                   "1 CUtilLink::GetFQDN DNS Query FAIL : [pDnsRecord : 0x00000000] "
                   "[ErrorCode : 0x000005b4] = 1460",
                   "2 CUtilLink::GetFQDN (192.0.2.1)をDNSサーバ（127.255.255.254）へ問い合わせ "}));
  machine_.servers = {"127.0.0.1", longest};
  EXPECT_EQ("0 b.example", Ask()) << "the second one is not asked any more";
  reply_ = {.code = 5};
  EXPECT_EQ("1460 192.0.2.1", Ask()) << "the status is that of the last one";
}

TEST_F(UtilLinkTest, WithoutAConfigurationTheMachinesOwnServersAreAsked) {
  AnswerWith("own.example");
  machine_.status = kErrorNotSupported;
  EXPECT_EQ("0 own.example", Ask());
  EXPECT_THAT(log_.texts(1),
              IsSupersetOf({"5 CUtilLink::AllocDNSList GetNetworkParams failed with error: 50",
                            "2 CUtilLink::GetFQDN (192.0.2.1)をDNSサーバの指定なしで問い合わせ"}));
}

TEST_F(UtilLinkTest, WhatCannotBeAskedIsNotAsked) {
  EXPECT_EQ("13 old", Ask(L""));
  for (const std::wstring text : {L"1.2.3", L"1.2.3.4.5", L"1.2.3.04", L"1.2.3.256", L"1.2.3.４"}) {
    EXPECT_EQ("123 " + ToUtf8(text), Ask(text));
  }
  EXPECT_EQ(L"", CUtilLink::ReverseIP(nullptr));
  EXPECT_EQ(87, CUtilLink::GetFQDN(L"192.0.2.1", "localhost", name_));
  EXPECT_EQ(L"192.0.2.1", name_);
  EXPECT_EQ(0, peer_.questions());
  std::wstring address = L"1.2.3.4";
  EXPECT_EQ(L"4.3.2.1.IN-ADDR.ARPA", CUtilLink::ReverseIP(address.data()));
  EXPECT_EQ(std::wstring(L"1\0002\0003\0004", 7), address);
}

}  // namespace
}  // namespace vk::tq::testing
