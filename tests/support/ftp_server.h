// A real FTP server for tests.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/loopback.h"
#include "support/test_support.h"

namespace vk::tq::testing {

// proftpd on a loopback port that the kernel chose, for one account whose home is a folder of its
// own. Each control connection gets a server process, as from inetd, so that no port is ever handed
// over and nothing of the system's own configuration is touched.
class FtpServer {
 public:
  static constexpr const wchar_t* kUser = L"tester";
  static constexpr const wchar_t* kPassword = L"geheim secret";

  FtpServer();
  FtpServer(const FtpServer&) = delete;
  FtpServer& operator=(const FtpServer&) = delete;
  ~FtpServer();

  std::uint16_t port() const { return listener_.port(); }
  // The native path of a file on the server.
  std::string home(std::string_view name = {}) const;

  // The server's own log, "COMMAND -> reply" a line, once every session is over.
  std::vector<std::string> Dialogue();
  // How often the server let somebody in.
  int LogIns();

 private:
  void WriteConfiguration() const;
  void Serve();
  void StartSession(int control);

  TempFolder folder_;
  Listener listener_;
  StopSignal stop_;
  std::mutex mutex_;
  std::vector<pid_t> sessions_;
  std::thread thread_;
};

}  // namespace vk::tq::testing
