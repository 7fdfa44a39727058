#include "platform/dns.h"

#include <algorithm>
#include <chrono>

#include "platform/service_table.h"
#include "support/dns_server.h"

namespace vk::tq::testing {
namespace {

using std::chrono::milliseconds;
using Messages = std::vector<std::string>;

const std::wstring kBadPacket = std::to_wstring(kDnsBadPacket);
const std::wstring kNoRecords = std::to_wstring(kDnsNoRecords);
const std::wstring kTimeout = std::to_wstring(kErrorTimeout);

// Asks a server on loopback; the status, and the hosts behind it.
std::wstring Ask(std::uint16_t port, milliseconds wait) {
  const ScopedServicePort use_port(Service::kDns, port);
  const ScopedDnsWait use_wait(wait);
  SetLastError(kErrorSuccess);
  std::vector<DnsRecord> records;
  const ErrorCode status = QueryPtr(L"4.2.0.192.IN-ADDR.ARPA", Ipv4Address{127, 0, 0, 1}, records);
  EXPECT_EQ(status, GetLastError());
  std::wstring outcome = std::to_wstring(status);
  for (const DnsRecord& record : records) outcome += L' ' + record.host;
  return outcome;
}

// Asks a peer.
std::wstring AskPeer(const DnsPeer::Answer& answer, milliseconds wait = milliseconds(5000)) {
  const DnsPeer peer(answer);
  return Ask(peer.port(), wait);
}

// Asks one that answers with a code and records, and with some bits of one byte changed.
std::wstring Ask(const Reply& reply, std::size_t place = 0, int bits = 0) {
  return AskPeer([&](const std::string& question, bool) {
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
  EXPECT_EQ(L"0 4.0-15.2.0.192.in-addr.arpa one.example two.example", Ask({.records = records}));
  // An alias that leads nowhere is no answer, nor is one that comes behind what it leads to.
  const std::string early = PackRecord(alias, kPtr, PackName("early.example"));
  EXPECT_EQ(kNoRecords, Ask({.records = {early, to_alias}}));
  EXPECT_EQ(L"9002", Ask({.code = 2, .records = records})) << "what comes with a failure is none";
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
    EXPECT_EQ(L"0 " + host, Ask({.records = {PackRecord(kAskedName, kPtr, packed)}}));
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
  Messages records = {record.substr(0, record.size() - 3), "\xC0"};  // cut off
  for (const std::string& name : names) records.push_back(PackRecord(kAskedName, kPtr, name));
  for (const std::string& bad : records) {
    EXPECT_EQ(kBadPacket, Ask({.records = {bad}})) << ToHex(bad);
  }
  // Records that are announced and missing, and an answer without the question.
  for (const std::size_t field : {5u, 7u, 9u, 11u}) {
    EXPECT_EQ(kBadPacket, Ask({.records = {record}}, field, 3)) << field;
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
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    std::transform(question.begin() + 12, question.end(), messages.back().begin() + 12, lower);
    return messages;
  };
  EXPECT_EQ(L"0 right.example", AskPeer(answer));
  EXPECT_EQ(L"9001", AskPeer([](const std::string& question, bool) {
              std::string header = Reply{.code = 1}.To(question).substr(0, 12);
              header[5] = 0;
              return Messages{header};
            }));
}

TEST(DnsTest, AFloodOfForeignAnswersDoesNotProlongTheWait) {
  std::atomic<bool> is_over = false;
  DnsPeer peer([&](const std::string& question, bool) {
    return Messages(is_over ? 0 : 200, "flood" + question);
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(kTimeout, Ask(peer.port(), milliseconds(50)));
  is_over = true;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(DnsTest, AQuestionIsRepeatedOnceWhereSomebodyIsThere) {
  std::uint16_t port = 0;
  for (const int answered : {2, 3}) {
    std::atomic<int> asked = 0;
    DnsPeer peer([&](const std::string& question, bool) {
      return Messages(++asked == answered ? 1 : 0, Reply{}.To(question));
    });
    port = peer.port();
    EXPECT_EQ(answered == 2 ? kNoRecords : kTimeout, Ask(port, milliseconds(500)));
    EXPECT_EQ(2, peer.questions());
  }
  EXPECT_EQ(kTimeout, Ask(port, std::chrono::minutes(10))) << "nobody is there";
}

TEST(DnsTest, ATruncatedAnswerIsFetchedOverTcp) {
  const auto ask = [](const std::function<Messages(const std::string&)>& over_tcp) {
    const auto answer = [&](const std::string& question, bool is_tcp) {
      if (is_tcp) return over_tcp(question);
      // The last record is cut off in the middle.
      const Reply part{.is_truncated = true, .records = {PointerTo("part.example")}};
      const std::string message = part.To(question);
      return Messages{message.substr(0, message.size() - 4)};
    };
    return AskPeer(answer, milliseconds(1000));
  };
  const Reply many{.records = Messages(300, PointerTo("whole.example"))};
  const std::wstring whole = ask([&](const std::string& question) {
    Messages messages(2, many.To(question));
    messages[0][0] ^= 1;  // somebody else's
    return messages;
  });
  EXPECT_EQ(300, std::ranges::count(whole, L' ')) << ToUtf8(whole);
  EXPECT_EQ(kTimeout, ask([](const auto&) { return Messages(); }));
  EXPECT_EQ(kTimeout, ask([](const auto&) { return Messages{"cut"}; }));
}

}  // namespace
}  // namespace vk::tq::testing
