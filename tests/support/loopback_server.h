// A TCP server on a free port of the loopback interface, which a test scripts.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace vk::tq::testing {

// One connection, as the server sees it; closed with the object.
class Peer {
 public:
  explicit Peer(int fd) : fd_(fd) {
    const timeval limit{20, 0};  // a test that goes wrong must end
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  ~Peer() { close(fd_); }

  // That many bytes, or fewer when the client has closed.
  std::string Read(std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t done = 0;
    while (done < size) {
      const ssize_t count = recv(fd_, bytes.data() + done, size - done, 0);
      if (count <= 0) break;
      done += static_cast<std::size_t>(count);
    }
    bytes.resize(done);
    return bytes;
  }

  // A command of four bytes, a big-endian length, and as many bytes as that says.
  std::string ReadFrame() {
    std::string frame = Read(8);
    if (frame.size() < 8) return frame;
    std::size_t length = 0;
    for (std::size_t i = 4; i < 8; ++i) length = length << 8 | static_cast<unsigned char>(frame[i]);
    return frame + Read(length);
  }

  bool Write(std::string_view bytes) {
    return send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  }

  // Lets the connection end by a reset instead of an orderly close.
  void ResetOnClose() {
    const linger now{1, 0};
    setsockopt(fd_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  }

  int fd() const { return fd_; }

 private:
  int fd_;
};

// Listens from construction on. Serves one connection after the other in a thread of its own.
class LoopbackServer {
 public:
  using Serve = std::function<void(Peer& peer, int index)>;

  explicit LoopbackServer(Serve serve, int receive_buffer = 0) : LoopbackServer(8) {
    if (receive_buffer > 0) {
      setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    }
    thread_ = std::thread([this, serve = std::move(serve)] {
      for (int fd = 0; (fd = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        Peer peer(fd);
        serve(peer, connections_++);
      }
    });
  }

  // Accepts nothing: connections wait in the queue of that length.
  explicit LoopbackServer(int backlog) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = Loopback();
    socklen_t size = sizeof address;
    if (bind(fd_, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(fd_, backlog) != 0 ||
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      throw std::runtime_error("no loopback server");
    }
    port_ = ntohs(address.sin_port);
  }

  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;
  ~LoopbackServer() { Stop(); }

  // Ends when the connection at work has been served; nobody is connected any more then.
  void Stop() {
    if (fd_ < 0) return;
    shutdown(fd_, SHUT_RDWR);
    if (thread_.joinable()) thread_.join();
    close(fd_);
    fd_ = -1;
  }

  std::uint16_t port() const { return port_; }
  int connections() const { return connections_; }

 private:
  static sockaddr_in Loopback() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
  }

  int fd_;
  std::uint16_t port_ = 0;
  std::atomic<int> connections_ = 0;
  std::thread thread_;
};

}  // namespace vk::tq::testing
