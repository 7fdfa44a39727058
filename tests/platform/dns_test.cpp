#include "platform/dns.h"

#include <algorithm>

#include "platform/service_table.h"
#include "support/dns_server.h"

namespace vk::tq::testing {
namespace {

using std::chrono::milliseconds;
using Messages = std::vector<std::string>;

// The status, and the hosts behind it.
std::string Ask(std::uint16_t port, milliseconds wait) {
  const ScopedServicePort use_port(Service::kDns, port);
  const ScopedDnsWait use_wait(wait);
  std::vector<DnsRecord> records;
  const ErrorCode status = QueryPtr(L"4.2.0.192.IN-ADDR.ARPA", Ipv4Address{127, 0, 0, 1}, records);
  std::string outcome = std::to_string(status);
  for (const DnsRecord& record : records) outcome += " " + ToUtf8(record.host);
  return outcome;
}

std::string Ask(const DnsPeer::Answer& answer, milliseconds wait = milliseconds(5000)) {
  const DnsPeer peer(answer);
  return Ask(peer.port(), wait);
}

// Some bits of one byte may be changed.
std::string Answered(const Reply& reply, std::size_t place = 0, int bits = 0) {
  return Ask([&](const std::string& question, bool) {
    std::string message = reply.To(question);
    message[place] = static_cast<char>(message[place] ^ bits);
    return Messages{message};
  });
}

std::string PointerTo(std::string_view host) {
  return PackRecord(kAskedName, kPtr, PackName(host));
}

TEST(DnsTest, AliasesComeInOrderBeforeThePointers) {
  const std::string alias = PackName("4.0-15.2.0.192.in-addr.arpa");
  const std::string to_alias = PackRecord(kAskedName, kCname, alias);
  const Messages records = {
      PackRecord(PackName("other.example"), kPtr, alias), PackRecord(kAskedName, 1, "\1\2\3\4"),
      to_alias, PackRecord(PackName("4.0-15.2.0.192.IN-addr.arpa"), kPtr, PackName("one.example")),
      PackRecord(alias, kPtr, PackName("two.example"))};
  EXPECT_EQ("0 4.0-15.2.0.192.in-addr.arpa one.example two.example",
            Answered({.records = records}));
  // An alias that leads nowhere is no answer, nor is one that comes behind what it leads to.
  const std::string early = PackRecord(alias, kPtr, PackName("early.example"));
  EXPECT_EQ("9501", Answered({.records = {early, to_alias}}));
  EXPECT_EQ("9002", Answered({.code = 2, .records = records})) << "what comes with it counts not";
}

TEST(DnsTest, NamesAreWrittenSoThatTheyCanBeTold) {
  const std::pair<std::string, std::string> cases[] = {
      {std::string("\4a.b\\\7example\0", 14), "a\\046b\\092.example"},
      {PackName("\xC2\x80\xC2\x9F\xC2\xA0é.\xC2"), "\\194\\128\\194\\159\u00A0é.\uFFFD"},
      {std::string("\0", 1), "."},
      {"\1x" + std::string("\xC0\x0E", 2), "x.2.0.192.IN-ADDR.ARPA"}};
  for (const auto& [packed, host] : cases) {
    EXPECT_EQ("0 " + host, Answered({.records = {PackRecord(kAskedName, kPtr, packed)}}));
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
                               PackName(label + label + label + label + label)};
  Messages records = {record.substr(0, record.size() - 3), "\xC0"};  // cut off
  for (const std::string& name : names) records.push_back(PackRecord(kAskedName, kPtr, name));
  for (const std::string& bad : records) {
    EXPECT_EQ("9502", Answered({.records = {bad}})) << ToHex(bad);
  }
  // Records that are announced and missing.
  for (const std::size_t field : {5u, 7u, 9u, 11u}) {
    EXPECT_EQ("9502", Answered({.records = {record}}, field, 3)) << field;
  }
}

TEST(DnsTest, WhatIsNoAnswerToTheQuestionIsPassedOver) {
  const auto answer = [](const std::string& question, bool) {
    Messages messages{std::string(), std::string("xx"), question};
    // Another number, another name; a notification.
    for (const auto& [place, bit] : {std::pair(1u, 1), std::pair(13u, 1), std::pair(2u, 0x20)}) {
      messages.push_back(Reply{.records = {PointerTo("wrong.example")}}.To(question));
      messages.back()[place] = static_cast<char>(messages.back()[place] ^ bit);
    }
    for (const int code : {0, 2, 3, 5}) {  // only a format error need not repeat the question
      messages.push_back(Reply{.code = code}.To(question).substr(0, 12));
      messages.back()[5] = 0;
    }
    messages.push_back(Reply{.records = {PointerTo("right.example")}}.To(question));
    messages.back()[15] |= 0x20;  // the name in another case
    return messages;
  };
  EXPECT_EQ("0 right.example", Ask(answer));
}

TEST(DnsTest, AFloodOfForeignAnswersDoesNotProlongTheWait) {
  std::atomic<bool> is_over = false;
  DnsPeer peer([&](const std::string& question, bool) {
    return Messages(is_over ? 0 : 200, "flood" + question);
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ("1460", Ask(peer.port(), milliseconds(50)));
  is_over = true;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(DnsTest, AQuestionIsRepeatedOnceWhereSomebodyIsThere) {
  std::uint16_t port = 0;
  {
    DnsPeer peer([](const std::string&, bool) { return Messages(); });
    port = peer.port();
    EXPECT_EQ("1460", Ask(port, milliseconds(500)));
    EXPECT_EQ(2, peer.questions());
  }
  EXPECT_EQ("1460", Ask(port, std::chrono::minutes(10))) << "nobody is there";
}

TEST(DnsTest, ATruncatedAnswerIsFetchedOverTcp) {
  const Reply many{.records = Messages(300, PointerTo("whole.example"))};
  const std::string whole = Ask([&](const std::string& question, bool is_tcp) {
    // The last record is cut off in the middle.
    const Reply part{.is_truncated = true, .records = {PointerTo("part.example")}};
    if (!is_tcp) return Messages{part.To(question).substr(0, 50)};
    Messages messages(2, many.To(question));
    messages[0][0] ^= 1;  // somebody else's
    return messages;
  });
  EXPECT_EQ(300, std::ranges::count(whole, ' ')) << whole;
}

}  // namespace
}  // namespace vk::tq::testing
