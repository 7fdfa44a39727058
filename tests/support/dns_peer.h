// A DNS server that answers as the test says.
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/loopback.h"
#include "support/test_support.h"

namespace vk::tq::testing {

// Answers questions over UDP and TCP on one port.
class DnsPeer {
 public:
  // Gives the messages that a question is answered with, in order; none leaves it unanswered.
  using Answer = std::function<std::vector<std::string>(const std::string& question, bool is_tcp)>;

  explicit DnsPeer(Answer answer);
  ~DnsPeer();

  std::uint16_t port() const { return tcp_->port(); }
  int questions() const { return questions_; }

 private:
  void ServeUdp();
  void ServeTcp(const Peer& client);

  Answer answer_;
  std::atomic<int> questions_ = 0;
  FileDescriptor udp_;
  std::optional<LoopbackServer> tcp_;  // on the same port
  StopSignal stop_;
  std::thread udp_thread_;
};

// A name as it is packed in a message: "a.b" is 1 a 1 b 0.
std::string PackName(std::string_view name);

// The name of the question that a message holds, as a reference to it.
inline constexpr std::string_view kAskedName("\xC0\x0C", 2);

inline constexpr int kCname = 5;
inline constexpr int kPtr = 12;

// A record of class IN. The name and the data are packed already.
std::string PackRecord(std::string_view name, int type, std::string_view data);

// An answer that repeats the question, with a response code and records.
struct Reply {
  int code = 0;
  bool is_truncated = false;
  std::vector<std::string> records = {};

  std::string To(const std::string& question) const;
};

}  // namespace vk::tq::testing
