// The servers that tests run on loopback.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/posix/native.h"

namespace vk::tq::testing {

// A value that a test and a server's thread share.
template <class T>
class Guarded {
 public:
  explicit Guarded(T value = {}) : value_(std::move(value)) {}
  void operator=(T value) {
    const std::lock_guard lock(mutex_);
    value_ = std::move(value);
  }
  T operator*() const {
    const std::lock_guard lock(mutex_);
    return value_;
  }

 private:
  mutable std::mutex mutex_;
  T value_;
};

// Ends the waits of a server's thread.
class StopSignal {
 public:
  StopSignal();

  void Raise() const;
  // Waits until a socket is ready for poll(2)'s events; false when the signal was raised.
  bool Wait(int fd = -1, short events = 0) const;

 private:
  FileDescriptor event_;
};

// A socket that listens on a loopback port that the kernel chose; a deaf one only keeps the port.
class Listener {
 public:
  explicit Listener(bool is_deaf = false, bool is_ipv6 = false);

  std::uint16_t port() const { return port_; }
  int get() const { return socket_.get(); }
  // The next connection; none when the signal was raised before one came.
  FileDescriptor Accept(const StopSignal& stop) const;

 private:
  FileDescriptor socket_;
  std::uint16_t port_ = 0;
};

// A connection, as the server sees it.
class Peer {
 public:
  Peer(FileDescriptor socket, const StopSignal& stop) : socket_(std::move(socket)), stop_(stop) {}

  int get() const { return socket_.get(); }
  const StopSignal& stop() const { return stop_; }
  // The next bytes, so many at most; none when the client has closed.
  std::string Take(std::size_t most) const;
  // That many bytes, or fewer when the client has closed.
  std::string Read(std::size_t size) const;
  // False when the client is gone.
  bool Write(std::string_view bytes) const;
  // Whether the client has broken the connection off instead of closing it. The other one waits for
  // that; false when the test is over before.
  bool IsReset() const;
  bool AwaitReset() const { return stop_.Wait(get()); }
  // Lets the connection end by a reset instead of an orderly close.
  void ResetOnClose() const;

 private:
  FileDescriptor socket_;
  const StopSignal& stop_;
};

// Serves one connection after the other in a thread of its own, until it is destroyed.
class LoopbackServer {
 public:
  using Serve = std::function<void(Peer& peer, int index)>;

  explicit LoopbackServer(const Serve& serve, bool is_ipv6 = false)
      : listener_(false, is_ipv6), thread_([this, serve] {
          while (FileDescriptor socket = listener_.Accept(stop_)) {
            Peer peer(std::move(socket), stop_);
            serve(peer, connections_++);
          }
        }) {}
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
