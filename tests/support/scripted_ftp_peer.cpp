#include "support/scripted_ftp_peer.h"

#include <algorithm>

namespace vk::tq::testing {

ScriptedFtpPeer::ScriptedFtpPeer(bool is_ipv6)
    : is_ipv6_(is_ipv6),
      server_([this](Peer& control, int) { Session(*this, control).Run(); }, 0, is_ipv6) {
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
    return session.Reply("229 Extended (|||" + std::to_string(session.OpenPassive()) + "|)");
  });
  On("STOR", [this](Session& session, const std::string& name) {
    session.Reply("150 go on");
    files_[name] = session.TakeData();
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
  const std::vector<std::string> all = commands();
  return static_cast<int>(std::ranges::count_if(
      all, [&](const std::string& line) { return line.substr(0, line.find(' ')) == verb; }));
}

const ScriptedFtpPeer::Answer* ScriptedFtpPeer::AnswerTo(const std::string& verb) const {
  const std::lock_guard lock(mutex_);
  const auto answer = answers_.find(verb);
  return answer == answers_.end() ? nullptr : &answer->second;
}

void ScriptedFtpPeer::Session::Run() {
  if (!(*peer_.AnswerTo(""))(*this, "")) return;
  while (const std::optional<std::string> line = TakeLine()) {
    {
      const std::lock_guard lock(peer_.mutex_);
      peer_.commands_.push_back(*line);
    }
    const std::size_t blank = std::min(line->find(' '), line->size());
    const Answer* const answer = peer_.AnswerTo(line->substr(0, blank));
    if (answer == nullptr) {
      Reply("502 never heard of it");
    } else if (!(*answer)(*this, line->substr(std::min(blank + 1, line->size())))) {
      return;
    }
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
  return passive_.emplace(peer_.is_ipv6_).port();
}

bool ScriptedFtpPeer::Session::Connected() {
  if (data_ || !passive_) return data_.has_value();
  if (FileDescriptor socket = passive_->Accept(control_.stop())) {
    data_.emplace(std::move(socket), control_.stop());
  }
  return data_.has_value();
}

std::string ScriptedFtpPeer::Session::TakeData() {
  const std::string all = Connected() ? data_->Read(std::string::npos) : "";
  CloseData();
  return all;
}

std::optional<std::string> ScriptedFtpPeer::Session::TakeWholeData() {
  if (!Connected()) return {};
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
