#include "platform/tcp_socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "platform/posix/native.h"

namespace vk::tq {
namespace {

using std::chrono::steady_clock;

struct ErrorPair {
  int from;
  ErrorCode to;
};

// Where a socket's error is another one than a file's.
constexpr ErrorPair kSocketErrors[] = {
    {EBADF, kErrorNotSocket},
    {EPIPE, kErrorConnectionReset},
    {ETIMEDOUT, kErrorSocketTimeout},
};

constexpr ErrorPair kResolverErrors[] = {
    {EAI_NONAME, kErrorHostNotFound},   {EAI_AGAIN, kErrorHostTryAgain},
    {EAI_FAIL, kErrorHostNoRecovery},   {EAI_NODATA, kErrorHostNoData},
    {EAI_ADDRFAMILY, kErrorHostNoData}, {EAI_MEMORY, kErrorNotEnoughMemory},
};

template <std::size_t kSize>
bool FailWith(const ErrorPair (&table)[kSize], int error, ErrorCode otherwise) noexcept {
  const auto* found = std::ranges::find(table, error, &ErrorPair::from);
  return Fail(found == std::end(table) ? otherwise : found->to);
}

bool FailWithSocketError() noexcept {
  return FailWith(kSocketErrors, errno, ErrorFromErrno(errno));
}

bool IsConnected(int socket) noexcept {
  sockaddr_in peer{};
  socklen_t size = sizeof peer;
  return getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) == 0;
}

}  // namespace

bool StartSockets() noexcept { return true; }

std::optional<std::uint32_t> ResolveHost(const std::string& name) {
  addrinfo wanted{};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int error = getaddrinfo(name.c_str(), nullptr, &wanted, &found);
  if (error != 0) {
    error == EAI_SYSTEM ? FailWithSocketError()
                        : FailWith(kResolverErrors, error, kErrorHostNoRecovery);
    return {};
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);
  return ntohl(reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr.s_addr);
}

int OpenTcpSocket() noexcept {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) FailWithSocketError();
  return fd < 0 ? kNoSocket : fd;
}

void CloseTcpSocket(int socket) noexcept {
  if (socket >= 0) close(socket);
}

bool ConnectTcp(int socket, std::uint32_t address, std::uint16_t port,
                std::chrono::milliseconds timeout) noexcept {
  const auto deadline = steady_clock::now() + timeout;
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(port);
  peer.sin_addr.s_addr = htonl(address);
  if (connect(socket, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0) return true;
  if (errno != EINPROGRESS && errno != EINTR) return FailWithSocketError();
  pollfd wait{socket, POLLOUT, 0};
  PollUntil({&wait, 1}, timeout.count() < 0 ? nullptr : &deadline);
  // The socket's own error is not asked for: that would take it away from the send that follows.
  if (IsConnected(socket)) return true;
  return Fail(kErrorWouldBlock);
}

bool SendTcp(int socket, const void* data, std::size_t size,
             std::chrono::microseconds timeout) noexcept {
  const char* rest = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t sent =
        RetryInterrupted([&] { return send(socket, rest, size, MSG_NOSIGNAL | MSG_DONTWAIT); });
    if (sent >= 0) {
      rest += sent;
      size -= static_cast<std::size_t>(sent);
      continue;
    }
    if (errno != EAGAIN) return FailWithSocketError();
    // A connection under way takes nothing either, but there is nothing to wait for any more.
    if (!IsConnected(socket)) return Fail(kErrorNotConnected);
    if (WaitForSocket(socket, SocketEvent::kWritable, timeout) != SocketWait::kReady) return false;
  }
  return true;
}

std::optional<std::size_t> ReceiveTcp(int socket, void* buffer, std::size_t size) noexcept {
  const ssize_t received =
      RetryInterrupted([&] { return recv(socket, buffer, size, MSG_DONTWAIT); });
  if (received >= 0) return static_cast<std::size_t>(received);
  FailWithSocketError();
  return {};
}

SocketWait WaitForSocket(int socket, SocketEvent event,
                         std::chrono::microseconds timeout) noexcept {
  const auto deadline = steady_clock::now() + timeout;
  pollfd wait{socket, static_cast<short>(event == SocketEvent::kReadable ? POLLIN : POLLOUT), 0};
  // poll(2) passes over a negative number, and would sleep till the end.
  const int ready = socket < 0 ? -1 : PollUntil({&wait, 1}, &deadline);
  if (ready == 0) {
    SetLastError(kErrorSocketTimeout);
    return SocketWait::kTimeout;
  }
  if (ready > 0 && (wait.revents & POLLNVAL) == 0) return SocketWait::kReady;
  SetLastError(kErrorNotSocket);
  return SocketWait::kFailed;
}

}  // namespace vk::tq
