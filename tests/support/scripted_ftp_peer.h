// An FTP server that does what a test tells it to, for what a real one does not do on demand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/loopback.h"

namespace vk::tq::testing {

// Serves one control connection after the other. Without a script it behaves: it lets everybody in,
// keeps what is stored and gives it back.
class ScriptedFtpPeer {
 public:
  // A control connection, as an answer sees it.
  class Session {
   public:
    Session(ScriptedFtpPeer& peer, Socket control) : peer_(peer), control_(std::move(control)) {}

    void Reply(std::string_view text);  // CR LF is added
    // False when the client is gone.
    bool ReplyRaw(std::string_view bytes);
    // Takes no more notice of the client, but keeps the connections, until the test is over.
    void Stall() const { peer_.stop_.Wait(); }

    std::uint16_t OpenPassive();
    // The data connection; each is used once.
    void SendData(std::string_view bytes);
    std::string TakeData();
    void TakeSomeData(std::size_t size);
    void CutData();               // the client sees a reset
    void CutControl();            // the same, when the answer gives false
    void AwaitDataReset() const;  // by the client
    void CloseData() { data_ = Socket(); }

   private:
    friend class ScriptedFtpPeer;
    void Run();
    std::optional<std::string> TakeLine();
    bool Connected();
    static void ResetAtClose(const Socket& socket);
    std::optional<std::string> TakePiece(int fd, std::size_t size) const;

    ScriptedFtpPeer& peer_;
    Socket control_;
    std::string unread_;
    std::optional<Listener> passive_;
    Socket data_;
  };

  // Answers a command; false closes the control connection.
  using Answer = std::function<bool(Session& session, const std::string& argument)>;

  explicit ScriptedFtpPeer(bool is_ipv6 = false);
  ScriptedFtpPeer(const ScriptedFtpPeer&) = delete;
  ScriptedFtpPeer& operator=(const ScriptedFtpPeer&) = delete;
  ~ScriptedFtpPeer();

  std::uint16_t port() const { return listener_.port(); }

  // Replaces the answer to a command; the verb "" stands for the greeting. To be called before the
  // client connects.
  void On(const std::string& verb, Answer answer) { answers_[verb] = std::move(answer); }
  void On(const std::string& verb, const std::string& reply);

  // Every command line that came, in order.
  std::vector<std::string> commands() const;
  // How often a command came.
  int count(std::string_view verb) const;
  int connections() const;
  std::string& file(const std::string& name) { return files_[name]; }

 private:
  void AddDefaults();

  bool is_ipv6_;
  Listener listener_;
  StopSignal stop_;
  std::map<std::string, Answer> answers_;
  std::map<std::string, std::string> files_;
  mutable std::mutex mutex_;
  std::vector<std::string> commands_;
  int connections_ = 0;
  std::thread thread_;
};

}  // namespace vk::tq::testing
