/// From a printer server's address to its name, by reverse DNS.
#pragma once

#include <cstdint>

#include "platform/types.h"

namespace vk::tq {

/// A dotted IPv4 address as ANSI text with its terminator.
struct IP_ADDRESS_STRING {
  char String[16];
};

/// One node of a chain of addresses.
struct IP_ADDR_STRING {
  IP_ADDR_STRING* Next;  ///< null behind the last one
  IP_ADDRESS_STRING IpAddress;
  IP_ADDRESS_STRING IpMask;  ///< zero
  unsigned long Context;     ///< zero
};

/// Finds the fully qualified name of an IPv4 address. Every operation is static, keeps nothing
/// between calls, may run on any thread and throws nothing.
///
/// The questions are DNS queries of type PTR (RFC 1035) to the servers of the machine's
/// configuration. They pass every cache and the hosts file, so a name that DNS does not know is not
/// found. The operations block for the length of the queries: at most 9 seconds for each server.
///
/// A DNS status is 0, or 9001 format error, 9002 server failure, 9003 no such name, 9004 not
/// implemented, 9005 refused, 9501 no PTR record, 9502 bad packet, 1460 no answer in time, 123 the
/// address is no IPv4 address, 87 the server is none, 8 memory lacks.
///
/// All lines have number 0 and the operation as function. "START" (level 0) opens every operation
/// but FreeDNSList; "END" closes the first GetFQDN and AllocDNSList. In ConformFQDN a host name and
/// a name that was found leave a line at level 3, each attempt that failed one at level 4 with the
/// status in its text. A query that failed leaves one at level 1, with the status as code. What else
/// is told of the way stands at level 2.
class TQ_EXPORT CUtilLink {
 public:
  /// The name of an address, from the caller's cache or by queries. 1 when `name` is good, 0 when
  /// no name was found; `name` is then the address, or without any try what the cache held. For want
  /// of memory 0 as well, and nothing is changed.
  ///
  /// `cache` is "address@name", empty before the first call; `resolve_time` is when the name was
  /// queried (seconds since 1970), 0 before the first call. Both are kept by the caller, handed to
  /// every call and brought up to date here. The cached name counts when the address is the same
  /// without regard to case, `valid_minutes` is not 0, and not more than so many minutes have gone
  /// by; a resolve time in the future counts too. Otherwise up to `tries` queries are made without
  /// a pause, and the resolve time becomes the time of the success.
  ///
  /// A text that is no dotted IPv4 address, an IPv6 address or an empty text too, is a host name of
  /// any length: it is given back as it is, and stands twice in the cache string. The resolve time
  /// stays.
  ///
  /// Of the cache string only the first two pieces between "@" are read. A name from DNS holds no
  /// "@": it stands there as "\064" (RFC 1035, 5.1).
  static int ConformFQDN(const CString& address, CString& name, CString& cache, int tries,
                         int valid_minutes, std::int64_t& resolve_time);

  /// Asks the DNS servers of the machine's configuration, one after the other, until one knows the
  /// name; without a configuration, the resolver's own. The DNS status of the last server asked.
  /// `name` is the name, or the address on failure.
  static long GetFQDN(const CString& address, CString& name);

  /// Asks one DNS server (dotted, ANSI; null or empty: the machine's own servers) for the name of
  /// an address. The DNS status; 13, and `name` is left alone, when the address is empty.
  ///
  /// The name is that of the first record of the answer. When the address's zone is delegated by
  /// aliases (RFC 2317), that is the alias's target, not the PTR record's. A PTR record in front of
  /// its alias does not count; without another one the status is 9501.
  static long GetFQDN(const CString& address, const char* server, CString& name);

  /// The name under which the name of an IPv4 address is kept: "4.3.2.1.IN-ADDR.ARPA" for 1.2.3.4.
  /// Empty, and the buffer is left alone, when the text is no dotted IPv4 address. Otherwise the
  /// first point in the buffer and those behind it become NULs.
  static CString ReverseIP(wchar_t* address);

  /// The DNS servers of the machine's configuration, IPv4 only, as a chain that the caller gives to
  /// FreeDNSList; `count` says how many. A machine without one has one node with an empty address.
  /// Null, with a line at level 5, when memory lacks or the configuration cannot be had.
  static IP_ADDR_STRING* AllocDNSList(int& count);

  /// Frees a chain. Null does nothing.
  static void FreeDNSList(IP_ADDR_STRING* first);
};

}  // namespace vk::tq
