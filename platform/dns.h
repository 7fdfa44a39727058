/// Questions to DNS servers (RFC 1035): which name belongs to an address.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"
#include "platform/ipv4_address.h"

namespace vk::tq {

/// What a server answers in place of records is 9000 plus its response code.
inline constexpr ErrorCode kDnsFormatError = 9001;
inline constexpr ErrorCode kDnsServerFailure = 9002;
inline constexpr ErrorCode kDnsNameError = 9003;  ///< there is no such name
inline constexpr ErrorCode kDnsNotImplemented = 9004;
inline constexpr ErrorCode kDnsRefused = 9005;
inline constexpr ErrorCode kDnsNoRecords = 9501;  ///< the name has no record of the type
inline constexpr ErrorCode kDnsBadPacket = 9502;

inline constexpr std::uint16_t kDnsTypeCname = 5;
inline constexpr std::uint16_t kDnsTypePtr = 12;

/// A record whose data is a name.
struct DnsRecord {
  std::uint16_t type = 0;
  /// The name that the record leads to, without a point at its end; the root is ".". It holds no
  /// blank, control character (U+0080 to U+009F are some as well) or "@": the bytes of those, and a
  /// backslash or a point inside a label, are written as a backslash and three decimal digits each
  /// (RFC 1035, 5.1). Other bytes beyond ASCII are UTF-8.
  std::wstring host;
};

/// Asks for the PTR records of a name, for example "1.2.0.192.IN-ADDR.ARPA".
///
/// The question goes to the server, or to the machine's own servers, one after the other until one
/// knows the answer, at port 53 (Service::kDns). It passes every cache and file of this machine and
/// asks for recursion. It is sent over UDP, a second time when no answer has come in 3 seconds, and
/// over TCP when the answer is truncated; that, too, may take 3 seconds. So each server costs at
/// most 9 seconds.
///
/// On 0 the array holds the records of the answer that belong to the question, in the server's
/// order: the aliases (CNAME) that lead away from the name, and the PTR records of the name that
/// they lead to. There is at least one PTR record. A PTR record in front of the alias that leads to
/// it does not count; when it is the only one, the result is 9501. Answers that come from another
/// address, bear another number or belong to another question are passed over (RFC 5452), and so
/// are those that do not repeat the question, unless they are a format error.
///
/// Otherwise the result, which is the last error as well, is one of the values above; 1460 when no
/// answer comes, also because the server cannot be reached; 123 when the name is not one; or what
/// this machine lacks for asking.
ErrorCode QueryPtr(std::wstring_view name, const std::optional<Ipv4Address>& server,
                   std::vector<DnsRecord>& records);

/// Replaces the wait for an answer for a scope. For tests of servers that do not answer.
class ScopedDnsWait {
 public:
  explicit ScopedDnsWait(std::chrono::milliseconds wait) noexcept;
  ScopedDnsWait(const ScopedDnsWait&) = delete;
  ScopedDnsWait& operator=(const ScopedDnsWait&) = delete;
  ~ScopedDnsWait();

 private:
  std::chrono::milliseconds old_;
};

}  // namespace vk::tq
