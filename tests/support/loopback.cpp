#include "support/loopback.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace vk::tq::testing {

StopSignal::StopSignal() : event_(eventfd(0, EFD_CLOEXEC)) {
  if (!event_) throw std::runtime_error("no event");
}

void StopSignal::Raise() const { eventfd_write(event_.get(), 1); }

bool StopSignal::Wait(int fd, short events) const {
  pollfd wait[] = {{fd, events, 0}, {event_.get(), POLLIN, 0}};
  while (poll(wait, 2, -1) < 0 && errno == EINTR) {
  }
  return wait[1].revents == 0;
}

Listener::Listener(bool is_ipv6, bool is_deaf)
    : socket_(socket(is_ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in6 address{};
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (is_ipv6) {
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
  } else {
    auto* const ipv4 = reinterpret_cast<sockaddr_in*>(&address);
    ipv4->sin_family = AF_INET;
    ipv4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  }
  socklen_t size = is_ipv6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  if (bind(get(), any, size) != 0 || (!is_deaf && listen(get(), 8) != 0) ||
      getsockname(get(), any, &size) != 0) {
    throw std::runtime_error("no loopback port");
  }
  port_ = ntohs(address.sin6_port);
}

Descriptor Listener::Accept(const StopSignal& stop) const {
  if (!stop.Wait(get(), POLLIN)) return Descriptor();
  Descriptor peer(accept4(get(), nullptr, nullptr, SOCK_CLOEXEC));
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

void Peer::ResetOnClose() const {
  const linger now{1, 0};
  setsockopt(get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

}  // namespace vk::tq::testing
