#include "support/loopback.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>

namespace vk::tq::testing {

StopSignal::StopSignal() : event_(eventfd(0, EFD_CLOEXEC)) {}

void StopSignal::Raise() const { eventfd_write(event_.get(), 1); }

bool StopSignal::Wait(int fd, short events) const {
  pollfd wait[] = {{fd, events, 0}, {event_.get(), POLLIN, 0}};
  PollUntil(wait, nullptr);
  return wait[1].revents == 0;
}

Listener::Listener(bool is_deaf, bool is_ipv6)
    : socket_(socket(is_ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  sockaddr_in6 address6{AF_INET6, 0, 0, IN6ADDR_LOOPBACK_INIT, 0};
  auto* const any =
      is_ipv6 ? reinterpret_cast<sockaddr*>(&address6) : reinterpret_cast<sockaddr*>(&address);
  socklen_t size = is_ipv6 ? sizeof address6 : sizeof address;
  if (bind(get(), any, size) != 0 || (!is_deaf && listen(get(), 8) != 0) ||
      getsockname(get(), any, &size) != 0) {
    throw std::runtime_error("no loopback port");
  }
  port_ = ntohs(is_ipv6 ? address6.sin6_port : address.sin_port);
}

FileDescriptor Listener::Accept(const StopSignal& stop) const {
  if (!stop.Wait(get(), POLLIN)) return FileDescriptor();
  FileDescriptor peer(accept4(get(), nullptr, nullptr, SOCK_CLOEXEC));
  // Two short replies in a row would wait for each other.
  const int on = 1;
  setsockopt(peer.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return peer;
}

std::string Peer::Take(std::size_t most) const {
  std::string bytes(std::min<std::size_t>(most, 64 * 1024), '\0');
  const bool is_ready = stop_.Wait(get(), POLLIN);
  const ssize_t count = is_ready ? recv(get(), bytes.data(), bytes.size(), 0) : 0;
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return bytes;
}

std::string Peer::Read(std::size_t size) const {
  std::string bytes;
  while (bytes.size() < size) {
    const std::string piece = Take(size - bytes.size());
    if (piece.empty()) break;
    bytes += piece;
  }
  return bytes;
}

bool Peer::Write(std::string_view bytes) const {
  while (!bytes.empty()) {
    if (!stop_.Wait(get(), POLLOUT)) return false;
    const ssize_t sent = send(get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

bool Peer::IsReset() const {
  pollfd any{get(), 0, 0};
  return poll(&any, 1, 0) == 1;
}

void Peer::ResetOnClose() const {
  const linger now{1, 0};
  setsockopt(get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

}  // namespace vk::tq::testing
