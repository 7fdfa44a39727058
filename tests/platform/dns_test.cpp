#include "platform/dns.h"

#include "platform/service_table.h"
#include "support/dns_peer.h"

namespace vk::tq::testing {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Messages = std::vector<std::string>;

// The status of a question, and the hosts behind it.
std::string Ask(const DnsPeer& peer, milliseconds wait = milliseconds(5000)) {
  const ScopedServicePort use_port(Service::kDns, peer.port());
  const ScopedDnsWait use_wait(wait);
  std::vector<DnsRecord> records;
  const ErrorCode status = QueryPtr(L"4.2.0.192.IN-ADDR.ARPA", Ipv4Address{127, 0, 0, 1}, records);
  std::string outcome = std::to_string(status);
  for (const DnsRecord& record : records) outcome += " " + ToUtf8(record.host);
  return outcome;
}

std::string Answered(const Reply& reply) {
  return Ask(
      DnsPeer([&](const std::string& question, bool) { return Messages{reply.To(question)}; }));
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

TEST(DnsTest, MalformedAnswersAreRefused) {
  const std::string label = std::string(63, 'x') + ".";
  for (const std::string& name : {"\x05host"s,               // a label without an end
                                  PackName("a") + "behind",  // more than a name
                                  ""s,                       // less than a name
                                  "\xC0\x34"s,               // a name that leads to itself
                                  "\xFF\xFF"s,               // a name outside of the message
                                  PackName(label + label + label + label + label)}) {
    EXPECT_EQ("9502", Answered({.records = {PackRecord(kAskedName, kPtr, name)}})) << ToHex(name);
  }
  const std::string record = PointerTo("host.example");
  EXPECT_EQ("9502", Answered({.records = {record.substr(0, record.size() - 3)}})) << "cut off";
  const auto announce_two = [&](const std::string& question, bool) {
    std::string message = Reply{.records = {record}}.To(question);
    message[7] = 2;
    return Messages{message};
  };
  EXPECT_EQ("9502", Ask(DnsPeer(announce_two)));
}

TEST(DnsTest, WhatIsNoAnswerToTheQuestionIsPassedOver) {
  int asked = 0;
  const auto answer = [&](const std::string& question, bool) {
    if (++asked == 1) return Messages();  // it is asked twice
    Messages messages{std::string(), std::string("xx"), question};
    // Another number, another name; a notification.
    for (const auto& [place, bit] : {std::pair(1u, 1), std::pair(13u, 1), std::pair(2u, 0x20)}) {
      messages.push_back(Reply{.records = {PointerTo("wrong.example")}}.To(question));
      messages.back()[place] = static_cast<char>(messages.back()[place] ^ bit);
    }
    messages.push_back(Reply{.records = {PointerTo("right.example")}}.To(question));
    messages.back()[15] |= 0x20;  // the name in another case
    return messages;
  };
  EXPECT_EQ("0 right.example", Ask(DnsPeer(answer), milliseconds(1000)));
}

TEST(DnsTest, AFloodOfForeignAnswersDoesNotProlongTheWait) {
  std::optional<DnsPeer> peer([](const std::string&, bool) { return Messages(500'000, "flood"); });
  const auto start = steady_clock::now();
  EXPECT_EQ("1460", Ask(*peer, milliseconds(50)));
  const auto time = steady_clock::now() - start;
  peer.reset();
  EXPECT_LT(time, (steady_clock::now() - start) / 2) << "it goes on much longer";
}

}  // namespace
}  // namespace vk::tq::testing
