#include "platform/dns.h"

#include <chrono>
#include <functional>
#include <thread>

#include "platform/service_table.h"
#include "platform/system_info.h"
#include "support/dns_server.h"

namespace vk::tq::testing {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr Ipv4Address kLoopback = {127, 0, 0, 1};
constexpr const wchar_t* kName = L"4.2.0.192.IN-ADDR.ARPA";

struct Outcome {
  ErrorCode status = 0;
  std::vector<std::wstring> hosts;
  std::vector<int> types;
};

// Asks a server on loopback.
Outcome Ask(std::uint16_t port, const std::wstring& name = kName,
            milliseconds wait = milliseconds(5000)) {
  const ScopedServicePort use_port(Service::kDns, port);
  const ScopedDnsWait use_wait(wait);
  SetLastError(kErrorSuccess);
  std::vector<DnsRecord> records;
  Outcome outcome;
  outcome.status = QueryPtr(name, kLoopback, records);
  EXPECT_EQ(outcome.status, GetLastError());
  for (const DnsRecord& record : records) {
    outcome.hosts.push_back(record.host);
    outcome.types.push_back(record.type);
  }
  return outcome;
}

// Asks a peer that answers each question over UDP with these messages.
Outcome AskPeer(const std::function<std::vector<std::string>(const std::string&)>& answer,
                milliseconds wait = milliseconds(5000)) {
  DnsPeer peer([&](const std::string& question, bool) { return answer(question); });
  return Ask(peer.port(), kName, wait);
}

std::string PointerTo(std::string_view host) {
  return PackRecord(kAskedName, kPtr, PackName(host));
}

TEST(DnsTest, ARealServerIsAsked) {
  const DnsServer server(
      {"2.0.192.in-addr.arpa.", "127.in-addr.arpa."},
      {"4.2.0.192.in-addr.arpa. PTR Printer-1.example.jp.",
       "1.0.0.127.in-addr.arpa. PTR server.example.jp.", "9.2.0.192.in-addr.arpa. TXT nothing"});
  EXPECT_THAT(Ask(server.port()).hosts, ElementsAre(L"Printer-1.example.jp"));
  // The hosts file calls this address by another name.
  EXPECT_THAT(Ask(server.port(), L"1.0.0.127.IN-ADDR.ARPA").hosts,
              ElementsAre(L"server.example.jp"));
  EXPECT_EQ(kDnsNameError, Ask(server.port(), L"5.2.0.192.IN-ADDR.ARPA").status);
  EXPECT_EQ(kDnsNoRecords, Ask(server.port(), L"9.2.0.192.IN-ADDR.ARPA").status);
}

TEST(DnsTest, ResponseCodesBecomeStatusValues) {
  for (const int code : {1, 2, 3, 4, 5, 10}) {
    // What came along with the failure is no answer.
    const Outcome outcome = AskPeer([&](const std::string& question) {
      return std::vector{Reply{.code = code, .records = {PointerTo("a")}}.To(question)};
    });
    EXPECT_EQ(9000u + static_cast<unsigned>(code), outcome.status);
    EXPECT_THAT(outcome.hosts, IsEmpty());
  }
  // A server that cannot read the question need not repeat it.
  EXPECT_EQ(kDnsFormatError, AskPeer([](const std::string& question) {
                               std::string header = Reply{.code = 1}.To(question).substr(0, 12);
                               header[5] = 0;
                               return std::vector{header};
                             }).status);
}

TEST(DnsTest, AliasesComeInOrderBeforeThePointers) {
  const std::string alias = PackName("4.0-15.2.0.192.in-addr.arpa");
  const Outcome outcome = AskPeer([&](const std::string& question) {
    return std::vector{Reply{.records = {PackRecord(PackName("other.example"), kPtr, alias),
                                         PackRecord(kAskedName, 1, "\1\2\3\4"),
                                         PackRecord(kAskedName, kCname, alias),
                                         PackRecord(PackName("4.0-15.2.0.192.IN-addr.arpa"), kPtr,
                                                    PackName("one.example")),
                                         PackRecord(alias, kPtr, PackName("two.example"))}}
                           .To(question)};
  });
  EXPECT_EQ(kErrorSuccess, outcome.status);
  EXPECT_THAT(outcome.hosts,
              ElementsAre(L"4.0-15.2.0.192.in-addr.arpa", L"one.example", L"two.example"));
  EXPECT_THAT(outcome.types, ElementsAre(kDnsTypeCname, kDnsTypePtr, kDnsTypePtr));
  // An alias that leads nowhere is no answer, nor is one that comes behind what it leads to.
  const std::string to_alias = PackRecord(kAskedName, kCname, alias);
  const std::vector<std::string> answers[] = {
      {to_alias}, {PackRecord(alias, kPtr, PackName("early.example")), to_alias}};
  for (const auto& records : answers) {
    EXPECT_EQ(kDnsNoRecords, AskPeer([&](const std::string& question) {
                               return std::vector{Reply{.records = records}.To(question)};
                             }).status);
  }
}

TEST(DnsTest, NamesAreWrittenSoThatTheyCanBeTold) {
  const struct {
    std::string packed;
    std::wstring host;
  } kCases[] = {
      {PackName("a_b-c.Example"), L"a_b-c.Example"},
      {PackName("na@me.example"), L"na\\064me.example"},
      {std::string("\4a.b\\\7example\0", 14), L"a\\046b\\092.example"},
      {std::string("\4 \t\x7F\0\0", 6), L"\\032\\009\\127\\000"},
      {PackName("プリンタ.example"), L"プリンタ.example"},
      {PackName("\xC2\x80\xC2\x9B\xC2\x9F\xC2\xA0é.\xC2"),
       L"\\194\\128\\194\\155\\194\\159\xA0é.\xFFFD"},
      {PackName("\xFF.example"), L"\xFFFD.example"},
      {std::string("\0", 1), L"."},
      // Compressed: the rest of the name that was asked for.
      {"\1x" + std::string("\xC0\x0E", 2), L"x.2.0.192.IN-ADDR.ARPA"},
  };
  for (const auto& test : kCases) {
    const Outcome outcome = AskPeer([&](const std::string& question) {
      return std::vector{
          Reply{.records = {PackRecord(kAskedName, kPtr, test.packed)}}.To(question)};
    });
    EXPECT_EQ(kErrorSuccess, outcome.status);
    EXPECT_THAT(outcome.hosts, ElementsAre(test.host)) << ToUtf8(test.host);
  }
}

TEST(DnsTest, MalformedAnswersAreRefused) {
  const std::string record = PointerTo("host.example");
  const std::string long_label(63, 'x');
  const std::string too_long = PackName(long_label + "." + long_label + "." + long_label + "." +
                                        long_label + "." + long_label);
  const std::string records[] = {
      record.substr(0, record.size() - 3),                     // cut off
      PackRecord(kAskedName, kPtr, "\x05host"),                // a label without an end
      PackRecord(kAskedName, kPtr, PackName("a") + "behind"),  // more than a name
      PackRecord(kAskedName, kPtr, ""),                        // less than a name
      PackRecord(kAskedName, kPtr, "\xC0\x34"),                // a name that leads to itself
      PackRecord(kAskedName, kPtr, "\xFF\xFF"),                // a name outside of the message
      PackRecord(kAskedName, kPtr, "\x40w"),                   // a label of an unknown kind
      PackRecord(kAskedName, kPtr, too_long),
      std::string("\xC0"),
  };
  for (const std::string& bad : records) {
    const Outcome outcome = AskPeer([&](const std::string& question) {
      return std::vector{Reply{.records = {bad}}.To(question)};
    });
    EXPECT_EQ(kDnsBadPacket, outcome.status) << ToHex(bad);
    EXPECT_THAT(outcome.hosts, IsEmpty());
  }
  // Records that are announced and missing, and an answer without the question.
  for (const std::size_t field : {5u, 7u, 9u, 11u}) {
    EXPECT_EQ(kDnsBadPacket, AskPeer([&](const std::string& question) {
                               std::string message = Reply{.records = {record}}.To(question);
                               message[field] ^= 3;
                               return std::vector{message};
                             }).status)
        << field;
  }
}

TEST(DnsTest, WhatIsNoAnswerToTheQuestionIsPassedOver) {
  const Outcome outcome = AskPeer([](const std::string& question) {
    const std::string good = Reply{.records = {PointerTo("right.example")}}.To(question);
    std::string wrong_number = Reply{.records = {PointerTo("wrong.example")}}.To(question);
    wrong_number[1] ^= 1;
    std::string wrong_name = Reply{.records = {PointerTo("wrong.example")}}.To(question);
    wrong_name[13] ^= 1;
    std::string lower_case = good;
    for (std::size_t at = 12; at < lower_case.size(); ++at) {
      char& c = lower_case[at];
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    }
    std::string notify = good;
    notify[2] = static_cast<char>(notify[2] | 0x20);
    std::vector messages{std::string(), std::string("xx"), wrong_number,
                         wrong_name,    question,          notify};
    for (const int code : {0, 2, 3, 5}) {  // only a format error need not repeat the question
      std::string no_question = Reply{.code = code}.To(question).substr(0, 12);
      no_question[5] = 0;
      messages.push_back(no_question);
    }
    messages.push_back(lower_case);
    return messages;
  });
  EXPECT_EQ(kErrorSuccess, outcome.status);
  EXPECT_THAT(outcome.hosts, ElementsAre(L"right.example"));
}

TEST(DnsTest, AFloodOfForeignAnswersDoesNotProlongTheWait) {
  std::atomic<bool> is_over = false;
  DnsPeer peer([&](const std::string& question, bool) {
    return std::vector(is_over ? 0 : 200, std::string("flood") + question);
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(kErrorTimeout, Ask(peer.port(), kName, milliseconds(50)).status);
  is_over = true;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(DnsTest, AQuestionIsRepeatedOnce) {
  std::atomic<int> asked = 0;
  DnsPeer second_time([&](const std::string& question, bool) {
    return asked++ == 0 ? std::vector<std::string>()
                        : std::vector{Reply{.records = {PointerTo("late.example")}}.To(question)};
  });
  EXPECT_THAT(Ask(second_time.port(), kName, milliseconds(1000)).hosts,
              ElementsAre(L"late.example"));

  DnsPeer silent([](const std::string&, bool) { return std::vector<std::string>(); });
  EXPECT_EQ(kErrorTimeout, Ask(silent.port(), kName, milliseconds(100)).status);
  EXPECT_EQ(2, silent.questions());
}

TEST(DnsTest, NobodyThereIsLikeNoAnswer) {
  const std::uint16_t port =
      DnsPeer([](const std::string&, bool) { return std::vector<std::string>(); }).port();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(kErrorTimeout, Ask(port, kName, std::chrono::minutes(10)).status);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::minutes(1));
}

TEST(DnsTest, ATruncatedAnswerIsFetchedOverTcp) {
  using Messages = std::vector<std::string>;
  const struct {
    std::function<Messages(const std::string&)> over_tcp;
    ErrorCode status;
  } kCases[] = {
      {[](const std::string& question) {
         Reply many;
         for (int i = 0; i < 300; ++i) many.records.push_back(PointerTo("whole.example"));
         std::string foreign = many.To(question);
         foreign[0] ^= 1;
         return Messages{foreign, many.To(question)};
       },
       kErrorSuccess},
      {[](const std::string& question) { return Messages{Reply{.code = 3}.To(question)}; },
       kDnsNameError},
      {[](const std::string&) { return Messages(); }, kErrorTimeout},
      {[](const std::string&) { return Messages{"cut"}; }, kErrorTimeout},
  };
  for (const auto& test : kCases) {
    DnsPeer peer([&](const std::string& question, bool is_tcp) {
      if (is_tcp) return test.over_tcp(question);
      // The last record is cut off in the middle.
      const Reply part{.is_truncated = true, .records = {PointerTo("part.example")}};
      const std::string message = part.To(question);
      return Messages{message.substr(0, message.size() - 4)};
    });
    const bool is_silent = test.over_tcp(std::string(64, '\0')).empty();
    const Outcome outcome = Ask(peer.port(), kName, milliseconds(is_silent ? 500 : 5000));
    EXPECT_EQ(test.status, outcome.status);
    EXPECT_EQ(test.status == kErrorSuccess ? 300u : 0u, outcome.hosts.size());
    EXPECT_LE(2, peer.questions());
  }
}

TEST(DnsTest, TheMachinesOwnServersAreAskedUntilOneKnows) {
  struct OwnServers : Machine {
    std::vector<std::string> NameServers() override { return servers; }
    std::vector<std::string> servers;
  } machine;
  const ScopedMachine use_machine(machine);
  std::atomic<int> code = 0;
  DnsPeer peer([&](const std::string& question, bool) {
    return std::vector{Reply{.code = code, .records = {PointerTo("own.example")}}.To(question)};
  });
  const ScopedServicePort use_port(Service::kDns, peer.port());
  const struct {
    std::vector<std::string> servers;
    int code;
    ErrorCode status;
    int questions;
  } kCases[] = {
      {{"no address", "127.0.0.9", "127.0.0.1"}, 0, kErrorSuccess, 1},
      {{"127.0.0.1", "127.0.0.1"}, 2, kDnsServerFailure, 2},
      {{"127.0.0.1", "127.0.0.1"}, 3, kDnsNameError, 1},
      {{"no address"}, 0, kErrorTimeout, 0},
  };
  for (const auto& test : kCases) {
    machine.servers = test.servers;
    code = test.code;
    const int before = peer.questions();
    std::vector<DnsRecord> records;
    EXPECT_EQ(test.status, QueryPtr(kName, std::nullopt, records));
    EXPECT_EQ(test.status == kErrorSuccess, !records.empty());
    EXPECT_EQ(test.questions, peer.questions() - before);
  }
}

TEST(DnsTest, WhatIsNoNameIsNotAskedFor) {
  DnsPeer peer([](const std::string&, bool) { return std::vector<std::string>(); });
  const std::wstring names[] = {L"", L"a..b", std::wstring(64, L'x') + L".example",
                                std::wstring(400, L'x'), L"a.b." + std::wstring(10, L'.')};
  for (const std::wstring& name : names) {
    EXPECT_EQ(kErrorInvalidName, Ask(peer.port(), name).status) << ToUtf8(name);
  }
  EXPECT_EQ(0, peer.questions());
}

}  // namespace
}  // namespace vk::tq::testing
