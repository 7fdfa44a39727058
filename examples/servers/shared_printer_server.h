#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "support/loopback.h"

namespace vk::tq::servers {

// A command, a length, and what that announces: nothing for the time. Empty when the client ends.
std::string ReadFrame(const testing::Peer& client);

// Speaks the protocol of docs/wire-protocol.md. It tells its time in UTC, and lets its owner decide
// about everything else.
class SharedPrinterServer {
 public:
  struct Request {
    std::string command;   // "CS01" delivers a file, "CS06" asks for a print-out
    std::string name;      // of the file
    std::string contents;  // the file, or the XML text that names the job
  };
  // Whether a request is accepted. It is called by the server's thread.
  using Decision = std::function<bool(const Request& request)>;

  explicit SharedPrinterServer(Decision decide);

  std::uint16_t port() const { return server_.port(); }

 private:
  void Answer(testing::Peer& client) const;

  Decision decide_;
  testing::LoopbackServer server_;
};

}  // namespace vk::tq::servers
