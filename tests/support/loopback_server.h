// A TCP server on loopback that a test scripts.
#pragma once

#include <sys/socket.h>
#include <sys/time.h>

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "support/loopback.h"

namespace vk::tq::testing {

// One connection, as the server sees it.
class Peer {
 public:
  explicit Peer(Socket socket) : socket_(std::move(socket)) {
    const timeval limit{20, 0};  // a test that goes wrong must end
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }

  // That many bytes, or fewer when the client has closed.
  std::string Read(std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t done = 0;
    while (done < size) {
      const ssize_t count = recv(socket_.get(), bytes.data() + done, size - done, 0);
      if (count <= 0) break;
      done += static_cast<std::size_t>(count);
    }
    bytes.resize(done);
    return bytes;
  }

  void Write(std::string_view bytes) {
    [[maybe_unused]] const ssize_t ignored =
        send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  }

  // Lets the connection end by a reset instead of an orderly close.
  void ResetOnClose() {
    const linger now{1, 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
  }

 private:
  Socket socket_;
};

// Serves one connection after the other in a thread of its own.
class LoopbackServer {
 public:
  explicit LoopbackServer(std::function<void(Peer& peer, int index)> serve,
                          int receive_buffer = 0) {
    if (receive_buffer > 0) {
      setsockopt(listener_.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    }
    thread_ = std::thread([this, serve = std::move(serve)] {
      while (Socket socket = listener_.Accept(stop_)) {
        Peer peer(std::move(socket));
        serve(peer, connections_++);
      }
    });
  }
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;
  ~LoopbackServer() { Stop(); }

  // Returns when the connection at work has been served.
  void Stop() {
    stop_.Raise();
    if (thread_.joinable()) thread_.join();
  }

  std::uint16_t port() const { return listener_.port(); }
  int connections() const { return connections_; }

 private:
  Listener listener_;
  StopSignal stop_;
  std::atomic<int> connections_ = 0;
  std::thread thread_;
};

}  // namespace vk::tq::testing
