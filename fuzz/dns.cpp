// Answers of a DNS server. Input: a mode, a line (the name that is asked for), the answer; with mode
// 1 the number and the question of the answer are made to fit.
#include <algorithm>
#include <vector>

#include "fuzz/support.h"
#include "platform/posix/dns_message.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

constexpr std::size_t kHeader = 12;
constexpr std::uint16_t kNumber = 0x4711;

void CheckHost(const std::wstring& host) {
  Require(!host.empty() && host.size() <= 1020, "a name is bounded");
  for (const wchar_t c : host) {
    Require(c > L' ' && c != L'@' && !(c >= 0x7F && c < 0xA0), "a name holds no such character");
  }
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  const unsigned mode = input.Mode();
  const std::string name(input.Line());
  const auto question = ComposeQuestion(kNumber, mode == 1 ? "1.2.0.192.IN-ADDR.ARPA" : name);
  if (!question) return;
  Require(question->size() > kHeader && question->size() <= 12 + 255 + 4, "a question is bounded");
  const std::string_view rest = input.Rest();
  std::vector<std::uint8_t> message(rest.begin(), rest.end());
  if (mode == 1) {
    if (message.size() < kHeader) return;
    std::copy_n(question->begin(), 2, message.begin());
    message.insert(message.begin() + kHeader, question->begin() + kHeader, question->end());
  }
  const DnsAnswer answer = ReadAnswer(*question, message);
  Require(answer.records.size() <= message.size() / 11, "no more records than fit the message");
  const bool has_name = std::ranges::any_of(
      answer.records, [](const DnsRecord& record) { return record.type == kDnsTypePtr; });
  if (answer.kind == DnsAnswer::Kind::kWhole && answer.status == kErrorSuccess) {
    Require(has_name, "a success has a name");
  }
  for (const DnsRecord& record : answer.records) {
    Require(record.type == kDnsTypePtr || record.type == kDnsTypeCname, "no other types come");
    CheckHost(record.host);
  }
}
