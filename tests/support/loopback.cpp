#include "support/loopback.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <stdexcept>

namespace vk::tq::testing {

StopSignal::StopSignal() {
  if (pipe2(ends_, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
}

StopSignal::~StopSignal() {
  close(ends_[0]);
  close(ends_[1]);
}

void StopSignal::Raise() const { [[maybe_unused]] const ssize_t ignored = write(ends_[1], "x", 1); }

bool StopSignal::Wait(int fd, short events) const {
  pollfd wait[] = {{fd, events, 0}, {ends_[0], POLLIN, 0}};
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
  if (bind(socket_.get(), any, size) != 0 || (!is_deaf && listen(socket_.get(), 8) != 0) ||
      getsockname(socket_.get(), any, &size) != 0) {
    throw std::runtime_error("no loopback port");
  }
  port_ = ntohs(address.sin6_port);
}

Socket Listener::Accept(const StopSignal& stop) const {
  if (!stop.Wait(get(), POLLIN)) return Socket();
  Socket peer(accept4(get(), nullptr, nullptr, SOCK_CLOEXEC));
  // Two short replies in a row would wait for each other.
  const int on = 1;
  setsockopt(peer.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return peer;
}

}  // namespace vk::tq::testing
