#include "support/scripted_ftp_peer.h"

#include <algorithm>

namespace vk::tq::testing {

ScriptedFtpPeer::ScriptedFtpPeer(bool is_ipv6)
    : is_ipv6_(is_ipv6),
      server_([this](Peer& control, int) { Session(*this, control).Run(); }, is_ipv6) {
  static constexpr std::pair<const char*, const char*> kReplies[] = {
      {"", "220 ready"},        {"USER", "331 password?"}, {"PASS", "230 welcome"},
      {"PWD", "257 \"/\""},     {"CWD", "250 there"},      {"TYPE", "200 as you like"},
      {"RNFR", "350 to what?"}, {"RNTO", "250 renamed"},   {"DELE", "250 deleted"},
  };
  for (const auto& [verb, reply] : kReplies) On(verb, reply);
  On("QUIT", [](Session& session, const std::string&) {
    session.Reply("221 bye");
    return false;
  });
  On("PASV", [](Session& session, const std::string&) {
    const std::uint16_t port = session.OpenPassive();
    return session.Reply("227 Entering Passive Mode (127,0,0,1," + std::to_string(port / 256) +
                         "," + std::to_string(port % 256) + ").");
  });
  On("EPSV", [](Session& session, const std::string&) {
    return session.Reply("229 here (|||" + std::to_string(session.OpenPassive()) + "|)");
  });
  On("STOR", [this](Session& session, const std::string& name) {
    session.Reply("150 go on");
    files_[name] = session.TakeWholeData().value_or("");
    return session.Reply("226 stored");
  });
  On("RETR",
     [this](Session& session, const std::string& name) { return session.Give(files_[name]); });
  On("SIZE", [this](Session& session, const std::string& name) {
    return session.Reply("213 " + std::to_string(files_[name].size()));
  });
}

std::vector<std::string> ScriptedFtpPeer::commands() const {
  const std::lock_guard lock(mutex_);
  return commands_;
}

int ScriptedFtpPeer::count(std::string_view verb) const {
  const auto is_verb = [&](const std::string& line) { return line.starts_with(verb); };
  return static_cast<int>(std::ranges::count_if(commands(), is_verb));
}

bool ScriptedFtpPeer::Answered(Session& session, const std::string& line) {
  const std::size_t blank = std::min(line.find(' '), line.size());
  std::unique_lock lock(mutex_);
  const std::shared_ptr<Answer> answer = answers_[line.substr(0, blank)];
  lock.unlock();
  return answer != nullptr ? (*answer)(session, line.substr(std::min(blank + 1, line.size())))
                           : session.Reply("502 never heard of it");
}

void ScriptedFtpPeer::Session::Run() {
  bool goes_on = peer_.Answered(*this, "");
  while (const auto line = goes_on ? TakeLine() : std::nullopt) {
    std::unique_lock lock(peer_.mutex_);
    peer_.commands_.push_back(*line);
    lock.unlock();
    goes_on = peer_.Answered(*this, *line);
  }
}

std::optional<std::string> ScriptedFtpPeer::Session::TakeLine() {
  std::string line;
  while (!line.ends_with("\r\n")) {
    const std::string next = control_.Take(1);
    if (next.empty()) return {};
    line += next;
  }
  line.resize(line.size() - 2);
  return line;
}

std::uint16_t ScriptedFtpPeer::Session::OpenPassive() {
  CloseData();
  return passive_.emplace(false, peer_.is_ipv6_).port();
}

Peer* ScriptedFtpPeer::Session::data() {
  FileDescriptor socket;
  if (!data_ && passive_) socket = passive_->Accept(control_.stop());
  if (socket) data_.emplace(std::move(socket), control_.stop());
  return data_ ? &*data_ : nullptr;
}

std::optional<std::string> ScriptedFtpPeer::Session::TakeWholeData() {
  if (data() == nullptr) return {};
  std::optional<std::string> all = data_->Read(std::string::npos);
  if (data_->IsReset()) all.reset();
  CloseData();
  return all;
}

bool ScriptedFtpPeer::Session::Give(std::string_view bytes) {
  Reply("150 here it comes");
  SendData(bytes);
  CloseData();
  return Reply("226 that was it");
}

}  // namespace vk::tq::testing
