#include "platform/posix/dns_message.h"

#include <arpa/nameser.h>
#include <netinet/in.h>
#include <resolv.h>

#include <algorithm>
#include <array>

#include "platform/text.h"

namespace vk::tq {
namespace {

using Message = std::span<const std::uint8_t>;

constexpr std::size_t kHeaderSize = NS_HFIXEDSZ;
constexpr ErrorCode kFirstResponseCode = 9000;

// The fields of the header that matter here.
struct Header {
  explicit Header(Message message)
      : number(static_cast<std::uint16_t>(message[0] << 8 | message[1])),
        is_answer((message[2] & 0x80) != 0),
        operation(message[2] >> 3 & 0xF),
        is_truncated((message[2] & 0x02) != 0),
        response_code(message[3] & 0xFu),
        questions(message[4] << 8 | message[5]) {}

  std::uint16_t number;
  bool is_answer;
  int operation;
  bool is_truncated;
  std::uint32_t response_code;
  int questions;
};

// Names are compared without regard to the case of ASCII letters (RFC 4343). The lengths inside a
// packed name are smaller than any letter.
template <class Bytes>
bool IsSameName(const Bytes& left, const Bytes& right) {
  const auto lower = [](int byte) {
    return byte >= 'A' && byte <= 'Z' ? byte + ('a' - 'A') : byte;
  };
  return std::ranges::equal(left, right, {}, lower, lower);
}

// Whether the message repeats the question; a server may change the case of the name.
bool RepeatsQuestion(Message question, Message message) {
  return message.size() >= question.size() &&
         IsSameName(question.subspan(kHeaderSize),
                    message.subspan(kHeaderSize, question.size() - kHeaderSize));
}

// How many bytes at the front of a label, which is not empty, would be taken for something else.
std::size_t TakenForElse(std::span<const std::uint8_t> label) {
  const std::uint8_t byte = label.front();
  if (byte <= ' ' || byte == 0x7F || byte == '.' || byte == '\\' || byte == '@') return 1;
  // The control characters U+0080 to U+009F.
  const bool is_control = byte == 0xC2 && label.size() > 1 && label[1] >= 0x80 && label[1] < 0xA0;
  return is_control ? 2 : 0;
}

// The text of one label, with an escape for each byte that would be taken for something else.
void AppendLabel(std::span<const std::uint8_t> label, std::string& text) {
  while (!label.empty()) {
    const std::size_t escaped = TakenForElse(label);
    for (const std::uint8_t byte : label.first(escaped)) {
      text += '\\';
      for (const int unit : {100, 10, 1}) text += static_cast<char>('0' + byte / unit % 10);
    }
    if (escaped == 0) text += static_cast<char>(label.front());
    label = label.subspan(std::max<std::size_t>(escaped, 1));
  }
}

// The name that is the whole data of a record, or nothing when the data is anything else.
std::optional<std::wstring> NameInData(const ns_msg& message, const ns_rr& record) {
  std::array<std::uint8_t, NS_MAXCDNAME> name;
  const int size = ns_name_unpack(ns_msg_base(message), ns_msg_end(message), ns_rr_rdata(record),
                                  name.data(), name.size());
  if (size != int{ns_rr_rdlen(record)}) return std::nullopt;
  std::string text;
  for (std::size_t at = 0; name[at] != 0; at += name[at] + 1u) {
    if (!text.empty()) text += '.';
    AppendLabel(std::span(name).subspan(at + 1, name[at]), text);
  }
  return text.empty() ? L"." : DecodeText(kCodePageUtf8, text);
}

// Follows the aliases of the answer from the name of the question on.
ErrorCode ReadRecords(Message answer, std::vector<DnsRecord>& records) {
  ns_msg message;
  ns_rr record;
  if (ns_initparse(answer.data(), static_cast<int>(answer.size()), &message) != 0 ||
      ns_parserr(&message, ns_s_qd, 0, &record) != 0) {
    return kDnsBadPacket;
  }
  std::string wanted = ns_rr_name(record);
  bool has_pointer = false;
  for (int i = 0; i < ns_msg_count(message, ns_s_an); ++i) {
    if (ns_parserr(&message, ns_s_an, i, &record) != 0) return kDnsBadPacket;
    const auto type = static_cast<std::uint16_t>(ns_rr_type(record));
    const bool is_name = type == kDnsTypeCname || type == kDnsTypePtr;
    if (!is_name || ns_rr_class(record) != ns_c_in ||
        !IsSameName(std::string_view(ns_rr_name(record)), std::string_view(wanted))) {
      continue;
    }
    auto host = NameInData(message, record);
    if (!host) return kDnsBadPacket;
    records.push_back({type, std::move(*host)});
    has_pointer |= type == kDnsTypePtr;
    if (type == kDnsTypeCname) {
      std::array<char, NS_MAXDNAME> target;
      if (dn_expand(ns_msg_base(message), ns_msg_end(message), ns_rr_rdata(record), target.data(),
                    static_cast<int>(target.size())) < 0) {
        return kDnsBadPacket;
      }
      wanted = target.data();
    }
  }
  return has_pointer ? kErrorSuccess : kDnsNoRecords;
}

}  // namespace

std::optional<std::vector<std::uint8_t>> ComposeQuestion(std::uint16_t number,
                                                         const std::string& name) {
  std::array<std::uint8_t, NS_MAXCDNAME> packed;
  const int size = name.empty() ? -1
                                : dn_comp(name.c_str(), packed.data(),
                                          static_cast<int>(packed.size()), nullptr, nullptr);
  if (size < 0) return std::nullopt;
  constexpr std::uint8_t kRecursionDesired = 0x01;
  std::vector<std::uint8_t> question = {static_cast<std::uint8_t>(number >> 8),
                                        static_cast<std::uint8_t>(number),
                                        kRecursionDesired,
                                        0,
                                        0,
                                        1,  // one question, no records
                                        0,
                                        0,
                                        0,
                                        0,
                                        0,
                                        0};
  question.insert(question.end(), packed.begin(), packed.begin() + size);
  question.insert(question.end(), {0, kDnsTypePtr, 0, ns_c_in});
  return question;
}

DnsAnswer ReadAnswer(Message question, Message message) {
  DnsAnswer answer;
  if (message.size() < kHeaderSize) return answer;
  const Header header(message);
  // Who cannot read the question cannot repeat it; any other answer without it could be forged by
  // guessing the number alone.
  const bool is_to_question = header.questions == 0 ? header.response_code == ns_r_formerr
                                                    : RepeatsQuestion(question, message);
  const bool is_ours = header.is_answer && header.operation == ns_o_query &&
                       header.number == Header(question).number && is_to_question;
  if (!is_ours) return answer;
  answer.kind = header.is_truncated ? DnsAnswer::Kind::kTruncated : DnsAnswer::Kind::kWhole;
  if (header.response_code != 0) {
    answer.status = kFirstResponseCode + header.response_code;
  } else if (header.questions != 1) {
    answer.status = kDnsBadPacket;
  } else {
    answer.status = ReadRecords(message, answer.records);
  }
  if (answer.status != kErrorSuccess) answer.records.clear();
  return answer;
}

}  // namespace vk::tq
