// Sockets for the servers that tests run on loopback.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace vk::tq::testing {

// A descriptor that is closed with its owner.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() {
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

  void Raise() const;
  // Waits until a socket is ready for poll(2)'s events; false when the signal was raised.
  bool Wait(int fd, short events) const;
  // Waits for the signal alone.
  void Wait() const { Wait(-1, 0); }

 private:
  Descriptor event_;
};

// A socket that listens on a loopback port that the kernel chose; a deaf one only keeps the port.
class Listener {
 public:
  explicit Listener(bool is_ipv6 = false, bool is_deaf = false);

  std::uint16_t port() const { return port_; }
  int get() const { return socket_.get(); }
  // The next connection; none when the signal was raised before one came.
  Descriptor Accept(const StopSignal& stop) const;

 private:
  Descriptor socket_;
  std::uint16_t port_ = 0;
};

// A connection, as the server sees it. The signal ends its waits.
class Peer {
 public:
  Peer(Descriptor socket, const StopSignal& stop) : socket_(std::move(socket)), stop_(stop) {}

  int get() const { return socket_.get(); }
  const StopSignal& stop() const { return stop_; }
  // The next bytes, so many at most; none when the client has closed.
  std::string Take(std::size_t most) const;
  // That many bytes, or fewer when the client has closed.
  std::string Read(std::size_t size) const;
  // False when the client is gone.
  bool Write(std::string_view bytes) const;
  // Lets the connection end by a reset instead of an orderly close.
  void ResetOnClose() const;

 private:
  Descriptor socket_;
  const StopSignal& stop_;
};

}  // namespace vk::tq::testing
