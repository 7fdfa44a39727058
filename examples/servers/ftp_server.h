#pragma once

#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "support/loopback.h"
#include "support/test_support.h"

namespace vk::tq::servers {

// proftpd for one account whose home is a folder of its own, with nothing of the system's
// configuration. Each control connection gets a process, as from inetd: no port is handed over.
class FtpServer {
 public:
  static constexpr const wchar_t* kUser = L"tester";
  static constexpr const wchar_t* kPassword = L"geheim secret";

  FtpServer();

  std::uint16_t port() const { return server_.port(); }
  // The native path of a file on the server.
  std::string home(std::string_view name = {}) const {
    return folder_.native(name.empty() ? "home" : "home/" + std::string(name));
  }

  // The server's own log, "COMMAND -> reply" a line, once every session is over.
  std::vector<std::string> Dialogue();

 private:
  void StartSession(const testing::Peer& control);

  testing::TempFolder folder_;
  std::mutex mutex_;
  std::list<testing::ChildProcess> sessions_;
  testing::LoopbackServer server_;
};

}  // namespace vk::tq::servers
