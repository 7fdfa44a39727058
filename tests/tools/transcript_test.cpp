// Types the commands of the transcripts beside this file on real terminals, and compares all that
// these show with what stands there. The README's road with the tool is such a transcript too.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>

#include "servers/dns_server.h"
#include "servers/ftp_server.h"
#include "servers/shared_printer_server.h"

namespace vk::tq::testing {
namespace {

// An interactive shell in its user's home folder, on a terminal that is hung up on when the object
// goes. A failed command's status is shown in brackets.
class Terminal {
 public:
  explicit Terminal(const std::string& home) {
    shell_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (shell_ == 0) {
      const std::pair<const char*, const char*> variables[] = {
          {"HOME", home.c_str()},
          {"LC_ALL", "C.UTF-8"},
          {"TERM", "dumb"},
          {"TZ", "UTC"},
          {"HISTFILE", ""},
          {"PS1", "$ "},
          {"PROMPT_COMMAND", "case $? in 0) ;; *) echo \"[$?]\" ;; esac"},
      };
      for (const auto& [name, value] : variables) setenv(name, value, 1);
      if (chdir(home.c_str()) == 0) {
        execl("/bin/bash", "bash", "--norc", "--noprofile", "--noediting", "-i", nullptr);
      }
      _exit(127);
    }
    fcntl(terminal_, F_SETFD, FD_CLOEXEC);  // or the next shell would keep this one from its end
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() {
    close(terminal_);
    waitpid(shell_, nullptr, 0);
  }

  const std::string& shown() const { return shown_; }

  void Type(const std::string& text) {
    typed_at_ = shown_.size();
    if (write(terminal_, text.data(), text.size()) < 0) throw std::runtime_error("cannot type");
  }

  // Until what is shown since the last typing ends so and holds a text. A program that asks for a
  // password meanwhile is given the one of the FTP server.
  void WaitFor(const std::string& end, const std::string& text = "") {
    while (shown_.size() <= typed_at_ || !shown_.ends_with(end) ||
           shown_.find(text, typed_at_) == std::string::npos) {
      pollfd ready = {terminal_, POLLIN, 0};
      char buffer[4096];
      const ssize_t got = poll(&ready, 1, 60000) == 1 ? read(terminal_, buffer, sizeof buffer) : 0;
      if (got <= 0) throw std::runtime_error("no \"" + end + "\" is shown: " + shown_);
      std::remove_copy(buffer, buffer + got, std::back_inserter(shown_), '\r');
      const std::string last = shown_.substr(shown_.rfind('\n') + 1);
      if (last.starts_with("Password of") && last.ends_with(": ")) Type("geheim secret\n");
    }
  }

 private:
  pid_t shell_;
  int terminal_ = -1;
  std::string shown_;
  std::size_t typed_at_ = 0;
};

class Transcript : public ProductTest {
 protected:
  Transcript() {
    std::filesystem::create_directories(native("build"));
    std::filesystem::create_directory_symlink(TQ_BUILD, native("build/release"));
    for (const std::string folder : {"examples", "tools"}) {
      std::filesystem::create_directory_symlink(TQ_SOURCE "/" + folder, native(folder));
    }
  }

  // Without what differs from one run to the next: folders, ports, times, what a progress bar left,
  // and the blanks that keep columns aligned.
  std::string Masked(std::string text) const {
    for (const auto& [pattern, mask] : {std::pair(temp_.native(), "/home/you"),
                                        {"\\btq[.]\\w{6}\\b", "tq.x"},
                                        {"\\b[0-9]{5}\\b", "0"},
                                        {"[0-9]{4}-[0-9-]{5} [0-9:]{8}", "(time)"},
                                        {"\\b[0-9]+ s\n", "0 s\n"},
                                        {".*\033\\[K", ""},
                                        {"\033", "^["},
                                        {"\\^C\n", "^C"},
                                        {" +\n", "\n"},
                                        {" +", " "}}) {
      text = std::regex_replace(text, std::regex(pattern), mask);
    }
    return text;
  }

  void Compare(const Terminal& terminal, const std::string& session) const {
    EXPECT_EQ(Masked(terminal.shown()), Masked(session + "$ ")) << terminal.shown();
  }

  // Types what follows the prompts of a session. Blank lines, and those that begin with #, are for
  // readers.
  void Follow(const std::string& transcript) const {
    Terminal terminal(temp_.native());
    std::istringstream lines(transcript);
    std::string session;
    for (std::string line; std::getline(lines, line);) {
      if (line.empty() || line[0] == '#') continue;
      session += line + "\n";
      const std::string prompt = line.substr(0, 2);
      if (prompt != "$ " && prompt != "> ") continue;
      terminal.WaitFor(terminal.shown().empty() ? prompt : "\n" + prompt);
      terminal.Type(line.substr(2) + "\n");
    }
    terminal.WaitFor("\n$ ");
    Compare(terminal, session);
  }

  void FollowFile(const std::string& name) const {
    Follow(ReadNative(TQ_SOURCE "/tests/tools/" + name));
  }
};

TEST_F(Transcript, Commands) { FollowFile("commands.txt"); }
TEST_F(Transcript, Crypt) { FollowFile("crypt.txt"); }
TEST_F(Transcript, Jobs) { FollowFile("jobs.txt"); }
TEST_F(Transcript, Settings) { FollowFile("settings.txt"); }
TEST_F(Transcript, Users) { FollowFile("users.txt"); }

TEST_F(Transcript, Servers) {
  const servers::FtpServer ftp;
  const servers::DnsServer dns({"2.0.192.in-addr.arpa."},
                               {"1.2.0.192.in-addr.arpa. PTR printer.example."});
  const servers::SharedPrinterServer shared(
      [&](const servers::SharedPrinterServer::Request& request) {
        WriteNative(native("taken/" + request.command), request.name + " " + request.contents);
        return request.name != "refused";
      });
  const std::string at = "ftp=" + std::to_string(ftp.port()) + " dns=" + std::to_string(dns.port());
  const ScopedEnvironment ports("TQ_SERVICE_PORTS", at.c_str());
  const ScopedEnvironment port("SHARED_PRINTER_PORT", std::to_string(shared.port()).c_str());
  const ScopedEnvironment home("FTP_HOME", ftp.home().c_str());
  FollowFile("servers.txt");
}

// The sessions that README.md shows under "The tool": the servers' terminal, the user's, and the
// end of the first.
TEST_F(Transcript, Readme) {
  std::string readme = ReadNative(TQ_SOURCE "/README.md");
  readme.erase(0, readme.find("\n## The tool\n"));
  const std::regex fenced("```console\n([^]*?)```\n");
  std::string sessions[3];
  for (std::sregex_iterator at(readme.begin(), readme.end(), fenced);
       std::string & session : sessions) {
    ASSERT_NE(at, std::sregex_iterator());
    session = (*at++)[1];
  }
  Terminal servers(temp_.native());
  servers.WaitFor("$ ");
  servers.Type(sessions[0].substr(2, sessions[0].find('\n') - 1));
  servers.WaitFor("\n", "\nexport ");
  const std::string ports = servers.shown().substr(servers.shown().rfind("\nexport ") + 1);
  Follow("$ " + ports + sessions[1].substr(sessions[1].find('\n') + 1));
  servers.WaitFor("bytes\n");
  servers.Type("\x03");
  servers.WaitFor("$ ");
  Compare(servers, sessions[0] + sessions[2]);
}

}  // namespace
}  // namespace vk::tq::testing
