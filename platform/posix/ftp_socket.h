// The sockets of an FTP session. They do not block; every wait has a time-out in milliseconds.
// Failures are 12002, 12030 or 12031.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/posix/native.h"

namespace vk::tq {

// The end of a wait that may be made of several.
class Deadline {
 public:
  explicit Deadline(std::uint32_t timeout)
      : timeout_(timeout),
        end_(std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout)) {}

  // Milliseconds, rounded up; 0 when it has passed, kNoFtpTimeout when it never does.
  std::uint32_t Left() const noexcept;

 private:
  std::uint32_t timeout_;
  std::chrono::steady_clock::time_point end_;
};

// A socket that programs which this process starts do not get.
FileDescriptor OpenStreamSocket(int family);

// Whether there is something to read: bytes, the end or an error.
bool HasNews(int fd) noexcept;

// Takes what comes, at most `size` bytes; 0 when the peer has closed.
std::optional<std::size_t> ReceiveSome(int fd, void* buffer, std::size_t size,
                                       std::uint32_t timeout) noexcept;

enum class Sent { kAll, kFailed, kInterrupted };

// Sends all the bytes; the time counts anew for each piece that the peer takes. While it takes none,
// this also looks at another socket, if one is given:
// news there interrupt it.
Sent SendAll(int fd, std::string_view bytes, std::uint32_t timeout, int watched = -1) noexcept;

// A connection to another port of the host that a socket is connected to; 12029 when the host
// refuses it.
FileDescriptor ConnectBeside(int fd, std::uint16_t port, std::uint32_t timeout) noexcept;

// Whether a socket is connected over IPv6.
bool IsIpv6(int fd) noexcept;

// Closes a connection in such a way that the peer does not take it for an end.
void AbortConnection(FileDescriptor fd) noexcept;

}  // namespace vk::tq
