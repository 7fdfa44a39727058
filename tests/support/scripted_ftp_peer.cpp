#include "support/scripted_ftp_peer.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>

namespace vk::tq::testing {

ScriptedFtpPeer::ScriptedFtpPeer(bool is_ipv6) : is_ipv6_(is_ipv6), listener_(is_ipv6) {
  AddDefaults();
  thread_ = std::thread([this] {
    while (Socket control = listener_.Accept(stop_)) {
      {
        const std::lock_guard lock(mutex_);
        ++connections_;
      }
      Session(*this, std::move(control)).Run();
    }
  });
}

ScriptedFtpPeer::~ScriptedFtpPeer() {
  stop_.Raise();
  thread_.join();
}

void ScriptedFtpPeer::On(const std::string& verb, const std::string& reply) {
  On(verb, [reply](Session& session, const std::string&) {
    session.Reply(reply);
    return true;
  });
}

void ScriptedFtpPeer::AddDefaults() {
  On("", "220 ready");
  On("USER", "331 password?");
  On("PASS", "230 welcome");
  On("PWD", "257 \"/\"");
  On("TYPE", "200 as you like");
  On("CWD", "250 there");
  On("RNFR", "350 to what?");
  On("RNTO", "250 renamed");
  On("DELE", "250 deleted");
  On("QUIT", [](Session& session, const std::string&) {
    session.Reply("221 bye");
    return false;
  });
  On("PASV", [](Session& session, const std::string&) {
    const std::uint16_t port = session.OpenPassive();
    session.Reply("227 Entering Passive Mode (127,0,0,1," + std::to_string(port / 256) + "," +
                  std::to_string(port % 256) + ").");
    return true;
  });
  On("EPSV", [](Session& session, const std::string&) {
    session.Reply("229 Extended (|||" + std::to_string(session.OpenPassive()) + "|)");
    return true;
  });
  On("STOR", [this](Session& session, const std::string& name) {
    session.Reply("150 go on");
    files_[name] = session.TakeData();
    session.Reply("226 stored");
    return true;
  });
  On("RETR", [this](Session& session, const std::string& name) {
    session.Reply("150 here it comes");
    session.SendData(files_[name]);
    session.CloseData();
    session.Reply("226 that was it");
    return true;
  });
  On("SIZE", [this](Session& session, const std::string& name) {
    session.Reply("213 " + std::to_string(files_[name].size()));
    return true;
  });
}

std::vector<std::string> ScriptedFtpPeer::commands() const {
  const std::lock_guard lock(mutex_);
  return commands_;
}

int ScriptedFtpPeer::count(std::string_view verb) const {
  const std::vector<std::string> all = commands();
  return static_cast<int>(std::ranges::count_if(
      all, [&](const std::string& line) { return line.substr(0, line.find(' ')) == verb; }));
}

int ScriptedFtpPeer::connections() const {
  const std::lock_guard lock(mutex_);
  return connections_;
}

void ScriptedFtpPeer::Session::Run() {
  if (!peer_.answers_[""](*this, "")) return;
  while (const std::optional<std::string> line = TakeLine()) {
    {
      const std::lock_guard lock(peer_.mutex_);
      peer_.commands_.push_back(*line);
    }
    const std::size_t blank = std::min(line->find(' '), line->size());
    const auto answer = peer_.answers_.find(line->substr(0, blank));
    if (answer == peer_.answers_.end()) {
      Reply("502 never heard of it");
    } else if (!answer->second(*this, line->substr(std::min(blank + 1, line->size())))) {
      return;
    }
  }
}

std::optional<std::string> ScriptedFtpPeer::Session::TakePiece(int fd, std::size_t size) const {
  if (!peer_.stop_.Wait(fd, POLLIN)) return {};
  std::string piece(size, '\0');
  const ssize_t got = recv(fd, piece.data(), piece.size(), 0);
  if (got <= 0) return {};
  piece.resize(static_cast<std::size_t>(got));
  return piece;
}

std::optional<std::string> ScriptedFtpPeer::Session::TakeLine() {
  for (;;) {
    const std::size_t end = unread_.find("\r\n");
    if (end != std::string::npos) {
      std::string line = unread_.substr(0, end);
      unread_.erase(0, end + 2);
      return line;
    }
    const std::optional<std::string> piece = TakePiece(control_.get(), 4096);
    if (!piece) return {};
    unread_ += *piece;
  }
}

void ScriptedFtpPeer::Session::Reply(std::string_view text) {
  ReplyRaw(std::string(text) + "\r\n");
}

bool ScriptedFtpPeer::Session::ReplyRaw(std::string_view bytes) {
  return send(control_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0;
}

std::uint16_t ScriptedFtpPeer::Session::OpenPassive() {
  CloseData();
  return passive_.emplace(peer_.is_ipv6_).port();
}

bool ScriptedFtpPeer::Session::Connected() {
  if (!data_ && passive_) data_ = passive_->Accept(peer_.stop_);
  return static_cast<bool>(data_);
}

void ScriptedFtpPeer::Session::SendData(std::string_view bytes) {
  if (!Connected()) return;
  while (!bytes.empty() && peer_.stop_.Wait(data_.get(), POLLOUT)) {
    const ssize_t sent = send(data_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

std::string ScriptedFtpPeer::Session::TakeData() {
  std::string all;
  if (!Connected()) return all;
  while (const std::optional<std::string> piece = TakePiece(data_.get(), 64 * 1024)) all += *piece;
  CloseData();
  return all;
}

void ScriptedFtpPeer::Session::TakeSomeData(std::size_t size) {
  if (Connected()) TakePiece(data_.get(), size);
}

void ScriptedFtpPeer::Session::ResetAtClose(const Socket& socket) {
  const linger at_once{1, 0};
  setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

void ScriptedFtpPeer::Session::CutData() {
  if (!Connected()) return;
  ResetAtClose(data_);
  CloseData();
}

void ScriptedFtpPeer::Session::CutControl() { ResetAtClose(control_); }

void ScriptedFtpPeer::Session::AwaitDataReset() const { peer_.stop_.Wait(data_.get(), 0); }

}  // namespace vk::tq::testing
