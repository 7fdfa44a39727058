// DNS messages: what is sent, and what is made of an answer.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/dns.h"

namespace vk::tq {

// A question for the PTR records of a name, recursion desired. Nothing when the name is not one.
std::optional<std::vector<std::uint8_t>> ComposeQuestion(std::uint16_t number,
                                                         const std::string& name);

struct DnsAnswer {
  enum class Kind {
    kForeign,    // no answer to the question
    kTruncated,  // an answer with parts left out
    kWhole,
  };
  Kind kind = Kind::kForeign;
  ErrorCode status = kErrorSuccess;  // of a whole one
  std::vector<DnsRecord> records;
};

DnsAnswer ReadAnswer(std::span<const std::uint8_t> question, std::span<const std::uint8_t> message);

}  // namespace vk::tq
