// Sockets for the servers that tests run on loopback.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <utility>

namespace vk::tq::testing {

// A descriptor that is closed with its owner.
class Socket {
 public:
  explicit Socket(int fd = -1) : fd_(fd) {}
  Socket(Socket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Socket& operator=(Socket&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Socket() {
    if (fd_ >= 0) close(fd_);
  }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_;
};

// Ends the waits of a server's thread.
class StopSignal {
 public:
  StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;
  ~StopSignal();

  void Raise() const;
  // Waits until a socket is ready for poll(2)'s events; false when the signal was raised.
  bool Wait(int fd, short events) const;
  // Waits for the signal alone.
  void Wait() const { Wait(-1, 0); }

 private:
  int ends_[2];
};

// A socket that listens on a loopback port that the kernel chose; a deaf one only keeps the port.
class Listener {
 public:
  explicit Listener(bool is_ipv6 = false, bool is_deaf = false);

  std::uint16_t port() const { return port_; }
  int get() const { return socket_.get(); }
  // The next connection; none when the signal was raised before one came.
  Socket Accept(const StopSignal& stop) const;

 private:
  Socket socket_;
  std::uint16_t port_ = 0;
};

}  // namespace vk::tq::testing
