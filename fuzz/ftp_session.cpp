// A whole FTP session. Input: lines of "VERB reply", each of which replaces the answer to a command,
// as many of one verb as it comes, and behind an empty line the data of listings and files. In a
// reply, %p stands for the port of a data connection that is open, %n for a line end within it.
#include "platform/ftp_session.h"

#include <map>
#include <vector>

#include "fuzz/support.h"
#include "support/scripted_ftp_peer.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

using Peer = testing::ScriptedFtpPeer;

std::string Reply(Peer::Session& session, std::string text) {
  while (text.find("%n") != text.npos) text.replace(text.find("%n"), 2, "\r\n");
  const std::size_t at = text.find("%p");
  if (at == text.npos) return text;
  const unsigned port = session.OpenPassive();
  const bool is_pair = text.starts_with("227");
  return text.replace(at, 2,
                      is_pair ? std::to_string(port / 256) + "," + std::to_string(port % 256)
                              : std::to_string(port));
}

// Answers a verb with its replies in turn, the last one for ever.
void Script(Peer& peer, const std::string& verb, std::vector<std::string> replies,
            const std::string& data) {
  const bool sends = verb == "LIST" || verb == "RETR";
  peer.On(verb, [=, next = std::size_t{0}](Peer::Session& session, const std::string&) mutable {
    const std::string& reply = replies[next];
    next = std::min(next + 1, replies.size() - 1);
    session.Reply(Reply(session, reply));
    if (sends && reply.starts_with("1")) {
      session.SendData(data);
      session.CloseData();
      session.Reply(Reply(session, replies[next]));
    }
    return true;
  });
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  const Sandbox& sandbox = TheSandbox();
  std::map<std::string, std::vector<std::string>> replies;
  for (std::string_view line = input.Line(); !line.empty(); line = input.Line()) {
    const std::size_t blank = std::min(line.find(' '), line.size());
    replies[std::string(line.substr(0, blank))].emplace_back(
        line.substr(std::min(blank + 1, line.size())));
  }
  const std::string data(input.Rest());
  Peer peer;
  for (const auto& [verb, texts] : replies) Script(peer, verb, texts, data);
  peer.file("name") = data;

  const FtpHandle internet = OpenFtp(L"");
  for (const unsigned which : {2U, 5U, 6U, 7U, 8U}) {
    SetFtpTimeout(internet, static_cast<FtpTimeout>(which), 30);
  }
  const FtpHandle connection = ConnectFtp(internet, L"127.0.0.1", peer.port(), L"user", L"secret");
  if (connection != kNoFtpHandle) {
    const std::string local = sandbox.Native("local");
    sandbox.Write(local, "before");
    SetFtpDirectory(connection, L"folder");
    FtpFileSize(connection, L"name");
    std::uint64_t size = 0;
    FindFtpFile(connection, L"name", size);
    const bool is_fetched = GetFtpFile(connection, L"name", PathFromNative(local));
    Require(sandbox.Read(local) == (is_fetched ? data : "before"),
            "a file comes whole or not at all");
    PutFtpFile(connection, PathFromNative(local), L"other");
    RenameFtpFile(connection, L"other", L"third");
    DeleteFtpFile(connection, L"third");
  }
  CloseFtpHandle(internet);
}
