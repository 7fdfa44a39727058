// A TCP server on loopback that a test scripts.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

#include "support/loopback.h"

namespace vk::tq::testing {

// Serves one connection after the other in a thread of its own, until it is destroyed.
class LoopbackServer {
 public:
  explicit LoopbackServer(std::function<void(Peer& peer, int index)> serve, int receive_buffer = 0,
                          bool is_ipv6 = false)
      : listener_(is_ipv6) {
    if (receive_buffer > 0) {
      setsockopt(listener_.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    }
    thread_ = std::thread([this, serve = std::move(serve)] {
      while (Descriptor socket = listener_.Accept(stop_)) {
        Peer peer(std::move(socket), stop_);
        serve(peer, connections_++);
      }
    });
  }
  ~LoopbackServer() {
    stop_.Raise();
    thread_.join();
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
