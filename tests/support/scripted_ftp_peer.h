#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/loopback.h"

namespace vk::tq::testing {

// An FTP server for what a real one does not do on demand. Without a script it behaves: it lets
// everybody in, keeps what is stored and gives it back.
class ScriptedFtpPeer {
 public:
  // A control connection, as an answer sees it.
  class Session {
   public:
    Session(ScriptedFtpPeer& peer, Peer& control) : peer_(peer), control_(control) {}

    // CR LF is added. False when the client is gone.
    bool Reply(std::string_view text) { return ReplyRaw(std::string(text) + "\r\n"); }
    bool ReplyRaw(std::string_view bytes) { return control_.Write(bytes); }
    // Takes no more notice of the client until it is gone.
    void AwaitEnd() const { control_.Read(std::string::npos); }

    std::uint16_t OpenPassive();
    // The data connection, when the client makes it; each is used once.
    Peer* data();
    void SendData(std::string_view bytes) {
      if (data() != nullptr) data_->Write(bytes);
    }
    // Nothing when the client breaks it off.
    std::optional<std::string> TakeWholeData();
    void CloseData() { data_.reset(); }
    // A whole download with its replies.
    bool Give(std::string_view bytes);

   private:
    friend class ScriptedFtpPeer;
    void Run();
    std::optional<std::string> TakeLine();

    ScriptedFtpPeer& peer_;
    Peer& control_;
    std::optional<Listener> passive_;
    std::optional<Peer> data_;
  };

  // Answers a command; false closes the control connection.
  using Answer = std::function<bool(Session& session, const std::string& argument)>;

  explicit ScriptedFtpPeer(bool is_ipv6 = false);

  std::uint16_t port() const { return server_.port(); }

  // Replaces the answer to a command from the next one on; the verb "" stands for the greeting.
  void On(const std::string& verb, Answer answer) {
    const std::lock_guard lock(mutex_);
    answers_[verb] = std::make_shared<Answer>(std::move(answer));
  }
  void On(const std::string& verb, const std::string& reply) {
    On(verb, [reply](Session& session, const std::string&) { return session.Reply(reply); });
  }

  // Every command line that came, in order.
  std::vector<std::string> commands() const;
  int count(std::string_view verb) const;
  int connections() const { return server_.connections(); }
  std::string& file(const std::string& name) { return files_[name]; }

 private:
  bool Answered(Session& session, const std::string& line);

  std::map<std::string, std::shared_ptr<Answer>> answers_;
  std::map<std::string, std::string> files_;
  mutable std::mutex mutex_;
  std::vector<std::string> commands_;
  bool is_ipv6_;
  LoopbackServer server_;
};

}  // namespace vk::tq::testing
