/// TCP connections over IPv4 (RFC 9293), from the side that opens them.
///
/// A socket is a number, and kNoSocket stands for none. Programs that this process starts do not
/// get it. No operation raises a signal, and one that a signal interrupts goes on. Only the waits
/// that are named block the caller; a socket is served by one thread at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/error.h"

namespace vk::tq {

inline constexpr int kNoSocket = -1;

inline constexpr ErrorCode kErrorNotSocket = 10038;
inline constexpr ErrorCode kErrorConnectionReset = 10054;
inline constexpr ErrorCode kErrorNotConnected = 10057;
inline constexpr ErrorCode kErrorSocketTimeout = 10060;
inline constexpr ErrorCode kErrorConnectionRefused = 10061;
inline constexpr ErrorCode kErrorHostNotFound = 11001;
inline constexpr ErrorCode kErrorHostTryAgain = 11002;
inline constexpr ErrorCode kErrorHostNoRecovery = 11003;
inline constexpr ErrorCode kErrorHostNoData = 11004;

/// Readies the socket layer for this process, where the platform wants that. Any number of calls.
bool StartSockets() noexcept;

/// The first IPv4 address that the system's resolver gives for a host name or a dotted address, as
/// a number: 127.0.0.1 is 0x7F000001. The name is in the ANSI code page. Nothing (11001 to 11004)
/// when there is none. The wait is the resolver's own.
std::optional<std::uint32_t> ResolveHost(const std::string& name);

/// A new socket without a connection, or kNoSocket.
int OpenTcpSocket() noexcept;

void CloseTcpSocket(int socket) noexcept;

/// Connects, and waits for the outcome no longer than the time given; a negative time stands for as
/// long as the system itself tries.
///
/// False with the last error 10035 when the attempt got under way and no connection has come of it,
/// be it that the peer has not answered yet or that it refused: SendTcp then tells. False with any
/// other error when the attempt could not be begun.
bool ConnectTcp(int socket, std::uint32_t address, std::uint16_t port,
                std::chrono::milliseconds timeout) noexcept;

/// Sends all the bytes, in as many pieces as the system takes, and waits for each piece no longer
/// than the time given. False, and never with 10035, when there is no connection (10057, 10061), it
/// broke (10053, 10054), or nothing more was taken in time (10060); how much has gone out is then
/// not known.
bool SendTcp(int socket, const void* data, std::size_t size,
             std::chrono::microseconds timeout) noexcept;

/// Takes what has come, at most `size` bytes, which is not 0. Gives 0 when the peer has closed, and
/// nothing on an error: 10035 when there is nothing to take at the moment, 10054 when the peer has
/// reset the connection.
std::optional<std::size_t> ReceiveTcp(int socket, void* buffer, std::size_t size) noexcept;

enum class SocketEvent {
  kReadable,  ///< ReceiveTcp has something to tell: bytes, the end, or an error
  kWritable,  ///< SendTcp can go on, or has an error to tell
};

enum class SocketWait {
  kReady,
  kTimeout,  ///< the last error is 10060
  kFailed,
};

SocketWait WaitForSocket(int socket, SocketEvent event, std::chrono::microseconds timeout) noexcept;

}  // namespace vk::tq
