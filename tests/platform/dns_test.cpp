#include "platform/dns.h"

#include <algorithm>
#include <chrono>
#include <functional>

#include "platform/service_table.h"
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
};

// Asks a server on loopback.
Outcome Ask(std::uint16_t port, milliseconds wait = milliseconds(5000)) {
  const ScopedServicePort use_port(Service::kDns, port);
  const ScopedDnsWait use_wait(wait);
  SetLastError(kErrorSuccess);
  std::vector<DnsRecord> records;
  Outcome outcome;
  outcome.status = QueryPtr(kName, kLoopback, records);
  EXPECT_EQ(outcome.status, GetLastError());
  for (const DnsRecord& record : records) outcome.hosts.push_back(record.host);
  return outcome;
}

// Asks a peer that answers each question over UDP with these messages.
Outcome AskPeer(const std::function<std::vector<std::string>(const std::string&)>& answer,
                milliseconds wait = milliseconds(5000)) {
  DnsPeer peer([&](const std::string& question, bool) { return answer(question); });
  return Ask(peer.port(), wait);
}

// One that answers with a code and records.
Outcome AskPeer(const Reply& reply) {
  return AskPeer([&](const std::string& question) { return std::vector{reply.To(question)}; });
}

std::string PointerTo(std::string_view host) {
  return PackRecord(kAskedName, kPtr, PackName(host));
}

TEST(DnsTest, ResponseCodesBecomeStatusValues) {
  for (const int code : {1, 2, 4, 10}) {
    // What came along with the failure is no answer.
    const Outcome outcome = AskPeer(Reply{.code = code, .records = {PointerTo("a")}});
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
  const std::string to_alias = PackRecord(kAskedName, kCname, alias);
  const Outcome outcome =
      AskPeer(Reply{.records = {PackRecord(PackName("other.example"), kPtr, alias),
                                PackRecord(kAskedName, 1, "\1\2\3\4"), to_alias,
                                PackRecord(PackName("4.0-15.2.0.192.IN-addr.arpa"), kPtr,
                                           PackName("one.example")),
                                PackRecord(alias, kPtr, PackName("two.example"))}});
  EXPECT_THAT(outcome.hosts,
              ElementsAre(L"4.0-15.2.0.192.in-addr.arpa", L"one.example", L"two.example"));
  // An alias that leads nowhere is no answer, nor is one that comes behind what it leads to.
  const std::string early = PackRecord(alias, kPtr, PackName("early.example"));
  EXPECT_EQ(kDnsNoRecords, AskPeer(Reply{.records = {early, to_alias}}).status);
}

TEST(DnsTest, NamesAreWrittenSoThatTheyCanBeTold) {
  const std::pair<std::string, std::wstring> cases[] = {
      {std::string("\4a.b\\\7example\0", 14), L"a\\046b\\092.example"},
      {std::string("\4 \t\x7F\0\0", 6), L"\\032\\009\\127\\000"},
      {PackName("\xC2\x80\xC2\x9B\xC2\x9F\xC2\xA0é.\xC2"),
       L"\\194\\128\\194\\155\\194\\159\xA0é.\xFFFD"},
      {std::string("\0", 1), L"."},
      {"\1x" + std::string("\xC0\x0E", 2), L"x.2.0.192.IN-ADDR.ARPA"}};
  for (const auto& [packed, host] : cases) {
    EXPECT_THAT(AskPeer(Reply{.records = {PackRecord(kAskedName, kPtr, packed)}}).hosts,
                ElementsAre(host));
  }
}

TEST(DnsTest, MalformedAnswersAreRefused) {
  const std::string record = PointerTo("host.example");
  const std::string label = std::string(63, 'x') + ".";
  const std::string names[] = {"\x05host",                // a label without an end
                               PackName("a") + "behind",  // more than a name
                               "",                        // less than a name
                               "\xC0\x34",                // a name that leads to itself
                               "\xFF\xFF",                // a name outside of the message
                               "\x40w",                   // a label of an unknown kind
                               PackName(label + label + label + label + label)};
  std::vector<std::string> records = {record.substr(0, record.size() - 3), "\xC0"};  // cut off
  for (const std::string& name : names) records.push_back(PackRecord(kAskedName, kPtr, name));
  for (const std::string& bad : records) {
    const Outcome outcome = AskPeer(Reply{.records = {bad}});
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
    std::vector messages{std::string(), std::string("xx"), question};
    // Another number, another name; a notification.
    for (const auto& [place, bit] : {std::pair(1u, 1), std::pair(13u, 1), std::pair(2u, 0x20)}) {
      messages.push_back(Reply{.records = {PointerTo("wrong.example")}}.To(question));
      messages.back()[place] = static_cast<char>(messages.back()[place] ^ bit);
    }
    for (const int code : {0, 2, 3, 5}) {  // only a format error need not repeat the question
      messages.push_back(Reply{.code = code}.To(question).substr(0, 12));
      messages.back()[5] = 0;
    }
    messages.push_back(good);
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    std::transform(good.begin() + 12, good.end(), messages.back().begin() + 12, lower);
    return messages;
  });
  EXPECT_THAT(outcome.hosts, ElementsAre(L"right.example"));
}

TEST(DnsTest, AFloodOfForeignAnswersDoesNotProlongTheWait) {
  std::atomic<bool> is_over = false;
  DnsPeer peer([&](const std::string& question, bool) {
    return std::vector(is_over ? 0 : 200, std::string("flood") + question);
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(kErrorTimeout, Ask(peer.port(), milliseconds(50)).status);
  is_over = true;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(DnsTest, AQuestionIsRepeatedOnce) {
  for (const int answered : {2, 3}) {
    std::atomic<int> asked = 0;
    const Outcome outcome = AskPeer(
        [&](const std::string& question) {
          return std::vector(++asked == answered ? 1 : 0, Reply{}.To(question));
        },
        milliseconds(500));
    EXPECT_EQ(answered == 2 ? kDnsNoRecords : kErrorTimeout, outcome.status);
    EXPECT_EQ(2, asked);
  }
}

TEST(DnsTest, NobodyThereIsLikeNoAnswer) {
  const auto silence = [](const std::string&, bool) { return std::vector<std::string>(); };
  const std::uint16_t port = DnsPeer(silence).port();
  EXPECT_EQ(kErrorTimeout, Ask(port, std::chrono::minutes(10)).status);
}

TEST(DnsTest, ATruncatedAnswerIsFetchedOverTcp) {
  using Messages = std::vector<std::string>;
  const auto whole = [](const std::string& question) {
    const Reply many{.records = Messages(300, PointerTo("whole.example"))};
    Messages messages(2, many.To(question));
    messages[0][0] ^= 1;  // somebody else's
    return messages;
  };
  const std::pair<std::function<Messages(const std::string&)>, ErrorCode> cases[] = {
      {whole, kErrorSuccess},
      {[](const auto&) { return Messages(); }, kErrorTimeout},
      {[](const auto&) { return Messages{"cut"}; }, kErrorTimeout}};
  for (const auto& [over_tcp, status] : cases) {
    DnsPeer peer([&over_tcp = over_tcp](const std::string& question, bool is_tcp) {
      if (is_tcp) return over_tcp(question);
      // The last record is cut off in the middle.
      const Reply part{.is_truncated = true, .records = {PointerTo("part.example")}};
      const std::string message = part.To(question);
      return Messages{message.substr(0, message.size() - 4)};
    });
    const Outcome outcome = Ask(peer.port(), milliseconds(1000));
    EXPECT_EQ(status, outcome.status);
    EXPECT_EQ(status == kErrorSuccess ? 300u : 0u, outcome.hosts.size());
  }
}

}  // namespace
}  // namespace vk::tq::testing
