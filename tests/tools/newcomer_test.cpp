// Walks the road that README.md shows under "The tool": types its commands on real terminals and
// compares all that these show with what the README shows.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <regex>
#include <sstream>

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

constexpr const char* kPassword = "geheim secret";

// A shell on a terminal of its own. What is typed there is echoed, as people see it.
class Terminal {
 public:
  Terminal(const std::string& folder, const std::string& home) {
    child_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (child_ != 0) {
      fcntl(terminal_, F_SETFD, FD_CLOEXEC);  // or the next shell would keep this one from its end
      return;
    }
    const std::pair<const char*, const char*> variables[] = {
        {"HOME", home.c_str()}, {"LC_ALL", "C.UTF-8"}, {"PS1", "$ "},
        {"TERM", "dumb"},       {"TZ", "UTC"},         {"HISTFILE", ""},
    };
    for (const auto& [name, value] : variables) setenv(name, value, 1);
    for (const char* name : {"TQ_COMMON_APPDATA", "TQ_APPDATA", "TQ_VOLUMES", "TQ_REGISTRY"}) {
      unsetenv(name);
    }
    if (chdir(folder.c_str()) == 0) {
      execl("/bin/bash", "bash", "--norc", "--noprofile", "--noediting", "-i", nullptr);
    }
    _exit(127);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() {
    close(terminal_);  // hangs up on the shell and on what runs in it
    waitpid(child_, nullptr, 0);
  }

  // Types a text when the terminal shows a prompt; fails the test when it does not come.
  void Type(const std::string& text, const std::string& prompt) {
    WaitFor(prompt);
    Write(text);
  }

  void WaitFor(const std::string& prompt) {
    WaitUntil(prompt, [&] { return IsNew() && shown_.ends_with(prompt); });
  }

  void WaitUntil(const std::string& what, const std::function<bool()>& is_shown) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!is_shown()) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "no \"" << what << "\" in\n"
                                                            << shown_;
      if (IsNew() && shown_.ends_with("Password of tester: ")) Write(std::string(kPassword) + "\n");
      pollfd wait{terminal_, POLLIN, 0};
      if (poll(&wait, 1, 100) != 1) continue;
      char buffer[4096];
      const ssize_t got = read(terminal_, buffer, sizeof buffer);
      ASSERT_GT(got, 0) << shown_;
      for (const char c : std::string_view(buffer, static_cast<std::size_t>(got))) {
        if (c != '\r') shown_ += c;
      }
    }
  }

  const std::string& shown() const { return shown_; }

 private:
  void Write(const std::string& text) {
    EXPECT_EQ(write(terminal_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    shown_at_typing_ = shown_.size();
  }
  // Whether something was shown since the last typing: a prompt from before is none.
  bool IsNew() const { return shown_.size() > shown_at_typing_; }

  int terminal_ = -1;
  pid_t child_ = -1;
  std::string shown_;
  std::size_t shown_at_typing_ = 0;
};

// The terminal sessions of the section, in order.
std::vector<std::string> Sessions() {
  const std::string readme = ReadNative(TQ_SOURCE "/README.md");
  const std::size_t begin = readme.find("\n## The tool\n");
  const std::string section = readme.substr(begin, readme.find("\n## ", begin + 1) - begin);
  std::vector<std::string> sessions;
  const std::string fence = "```console\n";
  for (std::size_t at = section.find(fence); at != section.npos;) {
    at += fence.size();
    const std::size_t end = section.find("```\n", at);
    sessions.push_back(section.substr(at, end - at));
    at = section.find(fence, end);
  }
  return sessions;
}

// Without what differs from one run to the next: folders, ports, ages, and the blanks that keep
// columns aligned.
std::string Masked(std::string text, const std::string& home) {
  for (std::size_t at = 0; (at = text.find(home)) != text.npos;) {
    text.replace(at, home.size(), "/home/you");
  }
  text = std::regex_replace(text, std::regex("/tmp/tq[.]\\w+"), "/tmp/tq.x");
  text = std::regex_replace(text, std::regex("[0-9]{5}"), "0");
  text = std::regex_replace(text, std::regex("[0-9]+ s\n"), "0 s\n");
  text = std::regex_replace(text, std::regex("\\^C\n"), "^C");
  text = std::regex_replace(text, std::regex(" +\n"), "\n");
  return std::regex_replace(text, std::regex(" +"), " ");
}

TEST(Newcomer, TheRoadInTheReadmeLeadsToItsEnd) {
  const std::vector<std::string> sessions = Sessions();
  ASSERT_EQ(sessions.size(), 3u);
  const TempFolder folder;
  const std::string home = folder.native("home");
  std::filesystem::create_directories(home);
  std::filesystem::create_directories(folder.native("build"));
  std::filesystem::create_directory_symlink(TQ_BUILD, folder.native("build/release"));
  std::filesystem::create_directory_symlink(TQ_SOURCE "/examples", folder.native("examples"));

  Terminal servers(folder.native(), home);
  const std::string start = sessions[0].substr(2, sessions[0].find('\n') - 1);
  servers.Type(start, "$ ");
  servers.WaitUntil("ports", [&] {
    return servers.shown().find("SHARED_PRINTER_PORT=") != std::string::npos &&
           servers.shown().ends_with("\n");
  });
  if (HasFatalFailure()) return;
  const std::size_t export_at = servers.shown().rfind("export ");
  const std::string ports = servers.shown().substr(export_at);

  Terminal terminal(folder.native(), home);
  std::istringstream lines(sessions[1]);
  for (std::string line; std::getline(lines, line);) {
    const std::string prompt = line.substr(0, 2);
    if (prompt != "$ " && prompt != "> ") continue;
    const bool is_copied = line.starts_with("$ export TQ_SERVICE_PORTS=");
    terminal.Type(is_copied ? ports : line.substr(2) + "\n", prompt);
    if (HasFatalFailure()) return;
  }
  terminal.WaitFor("\n$ ");
  servers.Type("\x03", "bytes\n");
  servers.WaitFor("$ ");

  EXPECT_EQ(Masked(terminal.shown(), home), Masked(sessions[1] + "$ ", home)) << terminal.shown();
  EXPECT_EQ(Masked(servers.shown(), home), Masked(sessions[0] + sessions[2] + "$ ", home))
      << servers.shown();
}

}  // namespace
}  // namespace vk::tq::testing
