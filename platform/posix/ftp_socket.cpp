#include "platform/posix/ftp_socket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <span>

#include "platform/ftp_session.h"

namespace vk::tq {
namespace {

bool FailWithConnectionError() noexcept {
  switch (errno) {
    case ECONNRESET:
      return Fail(kErrorInternetConnectionReset);
    case ETIMEDOUT:
      return Fail(kErrorInternetTimeout);
    default:
      return Fail(kErrorInternetConnectionAborted);
  }
}

// Waits until something happens on one of the sockets; false with 12002 when nothing does in time.
bool Await(std::span<pollfd> sockets, std::uint32_t timeout) noexcept {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
  const int ready = PollUntil(sockets, timeout == kNoFtpTimeout ? nullptr : &end);
  if (ready > 0) return true;
  return ready < 0 ? FailWithConnectionError() : Fail(kErrorInternetTimeout);
}

struct Address {
  sockaddr_storage storage{};
  socklen_t size = sizeof storage;

  sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
};

bool GetPeer(int fd, Address& peer) noexcept {
  return getpeername(fd, peer.get(), &peer.size) == 0 || FailWithConnectionError();
}

void SetPort(Address& address, std::uint16_t port) noexcept {
  if (address.storage.ss_family == AF_INET6) {
    reinterpret_cast<sockaddr_in6*>(&address.storage)->sin6_port = htons(port);
  } else {
    reinterpret_cast<sockaddr_in*>(&address.storage)->sin_port = htons(port);
  }
}

void SetOption(int fd, int level, int option, int value) noexcept {
  setsockopt(fd, level, option, &value, sizeof value);
}

// The bytes that the kernel holds back unsent stay few, so that a send that goes on means that the
// peer takes bytes, and little is left to go out when the file ends.
constexpr int kMostUnsent = 128 * 1024;

}  // namespace

std::uint32_t Deadline::Left() const noexcept {
  using std::chrono::milliseconds;
  if (timeout_ == kNoFtpTimeout) return kNoFtpTimeout;
  const auto left =
      std::chrono::ceil<milliseconds>(end_ - std::chrono::steady_clock::now()).count();
  return static_cast<std::uint32_t>(std::clamp<std::int64_t>(left, 0, timeout_));
}

FileDescriptor OpenStreamSocket(int family) {
  return FileDescriptor(socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

bool HasNews(int fd) noexcept {
  pollfd wait{fd, POLLIN, 0};
  return RetryInterrupted([&] { return poll(&wait, 1, 0); }) != 0;
}

std::optional<std::size_t> ReceiveSome(int fd, void* buffer, std::size_t size,
                                       std::uint32_t timeout) noexcept {
  for (;;) {
    const ssize_t got = recv(fd, buffer, size, 0);
    if (got >= 0) return static_cast<std::size_t>(got);
    if (errno == EINTR) continue;
    if (errno != EAGAIN) {
      FailWithConnectionError();
      return {};
    }
    pollfd wait[] = {{fd, POLLIN, 0}};
    if (!Await(wait, timeout)) return {};
  }
}

Sent SendAll(int fd, std::string_view bytes, std::uint32_t timeout, int watched) noexcept {
  while (!bytes.empty()) {
    const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    } else if (errno == EAGAIN) {
      pollfd wait[] = {{fd, POLLOUT, 0}, {watched, POLLIN, 0}};
      if (!Await(wait, timeout)) return Sent::kFailed;
      if (wait[1].revents != 0) return Sent::kInterrupted;
    } else if (errno != EINTR) {
      FailWithConnectionError();
      return Sent::kFailed;
    }
  }
  return Sent::kAll;
}

FileDescriptor ConnectBeside(int fd, std::uint16_t port, std::uint32_t timeout) noexcept {
  Address peer;
  if (!GetPeer(fd, peer)) return {};
  SetPort(peer, port);
  FileDescriptor data = OpenStreamSocket(peer.storage.ss_family);
  if (!data) {
    FailWithErrno();
    return {};
  }
  SetOption(data.get(), IPPROTO_TCP, TCP_NOTSENT_LOWAT, kMostUnsent);
  int error = connect(data.get(), peer.get(), peer.size) == 0 ? 0 : errno;
  if (error == EINPROGRESS || error == EINTR) {
    pollfd wait[] = {{data.get(), POLLOUT, 0}};
    if (!Await(wait, timeout)) return {};
    socklen_t size = sizeof error;
    if (getsockopt(data.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
  }
  if (error == 0) return data;
  Fail(error == ETIMEDOUT ? kErrorInternetTimeout : kErrorInternetCannotConnect);
  return {};
}

bool IsIpv6(int fd) noexcept {
  Address peer;
  return GetPeer(fd, peer) && peer.storage.ss_family == AF_INET6;
}

void AbortConnection(FileDescriptor fd) noexcept {
  const linger at_once{1, 0};
  setsockopt(fd.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

}  // namespace vk::tq
