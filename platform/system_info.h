/// What the machine says about itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"
#include "platform/ipv4_address.h"

namespace vk::tq {

/// The version of the operating system. The platform number is 1 for the Windows 9x line, 2 for the
/// Windows NT line and 3 for any other system. Major and minor are in the count of Windows; another
/// system reports 10.0, that of a current one. The product type is 1 for a workstation.
struct SystemVersion {
  std::uint32_t platform = 0;
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  std::uint32_t product_type = 0;
};

/// False, with the last error set, when the version cannot be had.
bool GetSystemVersion(SystemVersion& version);

/// A point in time by the calendar and the clock on the wall.
struct LocalTime {
  int year = 0;
  int month = 0;  ///< from 1
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

/// The local time of a point in time (seconds since 1970-01-01 UTC), with the daylight saving that
/// was in force then. False, with the last error set, for a time that the calendar does not reach.
bool ToLocalTime(std::int64_t time, LocalTime& local);

/// The steps on the way to the logon time.
enum class LogonStep {
  kToken,             ///< which session the process belongs to
  kTokenInformation,  ///< where that session is recorded
  kSessionData,       ///< what the record says
};

/// The host and its DNS configuration.
struct NetworkParameters {
  std::wstring host_name;
  std::wstring domain_name;
  /// Dotted addresses of the IPv4 servers, in the order in which they are asked, at most 15
  /// characters each. A machine without one has a single empty text.
  std::vector<std::string> dns_servers;
};

/// The processor architectures that callers tell apart.
inline constexpr std::uint16_t kArchitectureX64 = 9;

/// The machine's facts. A test overrides what it wants to be different, and installs the object
/// with a ScopedMachine. Operations that give a bool set the last error when they fail; the others
/// give it as their result.
class Machine {
 public:
  Machine() = default;
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  virtual ~Machine();

  virtual bool Version(SystemVersion& version);

  /// The processor's architecture, whatever the running program was built for: 0 x86, 5 ARM, 9 x64,
  /// 12 ARM64, 0xFFFF any other.
  virtual std::uint16_t ProcessorArchitecture();

  /// The local time at which the login session of the calling process began, the same for every
  /// process of the session. On failure `failed` is the step.
  ///
  /// Where a login manager keeps records of sessions, that is the session's record; for a process
  /// of the user's service manager, which belongs to no session, the record of the user's
  /// graphical session. Otherwise it is the start of the process that leads the session, which is
  /// known in ticks since the machine was started: setting the clock moves that time along.
  virtual bool LogonTime(LocalTime& time, LogonStep& failed);

  /// The IPv4 addresses of the machine's interfaces, the loopback interface included, in the
  /// system's order. Without an array: 122, and `count` says how many there are. With an array that
  /// has room for `count` addresses: 0, and `count` says how many were put in, or 122 when there
  /// are more by now.
  virtual ErrorCode Ipv4Addresses(Ipv4Address* addresses, std::size_t& count);

  /// Fills in the parameters. `room` says how many servers the array of servers has room for; with
  /// more servers than that the result is 111, `room` says how many there are, and nothing else has
  /// changed. On 0 the array holds the servers.
  virtual ErrorCode Network(NetworkParameters& parameters, std::size_t& room);

  /// The DNS servers that this machine's own programs ask, in order, as IPv4 or IPv6 addresses.
  /// Without a configuration that is the machine itself.
  virtual std::vector<std::string> NameServers();
};

/// The machine in force: this one, unless a ScopedMachine is alive.
Machine& CurrentMachine() noexcept;

/// Puts another machine in force for a scope.
class ScopedMachine {
 public:
  explicit ScopedMachine(Machine& machine) noexcept;
  ScopedMachine(const ScopedMachine&) = delete;
  ScopedMachine& operator=(const ScopedMachine&) = delete;
  ~ScopedMachine();

 private:
  Machine* old_;
};

/// A text of the registry's local machine hive; empty when there is no such key or value, or it does
/// not fit a buffer of so many characters, terminator included. Here the hive is an INI file: the
/// path of a key is a section, a value's name a key.
std::wstring ReadRegistryString(std::wstring_view key, std::wstring_view value, std::size_t size);

}  // namespace vk::tq
