// Walks the road that README.md shows under "The tool": types its commands on real terminals and
// compares all that these show with what the README shows.
#include <unistd.h>

#include <filesystem>
#include <regex>
#include <sstream>

#include "tools/tool_test.h"

namespace vk::tq::testing {
namespace {

// A shell in a folder, whose user has a home of his own.
Terminal StartShell(const std::string& folder, const std::string& home) {
  const auto become = [&] {
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
  };
  return Terminal(become, "geheim secret\n");
}

// Fails the test when the terminal does not come to show that.
void WaitFor(Terminal& terminal, const std::string& prompt) {
  while (!terminal.Shows(prompt)) ASSERT_TRUE(terminal.Read()) << prompt << terminal.shown();
}

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
  for (const auto& [pattern, mask] : {std::pair("/tmp/tq[.]\\w+", "/tmp/tq.x"),
                                      {"[0-9]{5}", "0"},
                                      {"[0-9]+ s\n", "0 s\n"},
                                      {"\\^C\n", "^C"},
                                      {" +\n", "\n"},
                                      {" +", " "}}) {
    text = std::regex_replace(text, std::regex(pattern), mask);
  }
  return text;
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

  Terminal servers = StartShell(folder.native(), home);
  WaitFor(servers, "$ ");
  servers.Type(sessions[0].substr(2, sessions[0].find('\n') - 1));
  const auto export_at = [&] { return servers.shown().rfind("export "); };
  while (export_at() == std::string::npos || !servers.Shows("\n")) ASSERT_TRUE(servers.Read());
  const std::string ports = servers.shown().substr(export_at());

  Terminal terminal = StartShell(folder.native(), home);
  std::istringstream lines(sessions[1]);
  for (std::string line; std::getline(lines, line);) {
    const std::string prompt = line.substr(0, 2);
    if (prompt != "$ " && prompt != "> ") continue;
    const bool is_copied = line.starts_with("$ export TQ_SERVICE_PORTS=");
    ASSERT_NO_FATAL_FAILURE(WaitFor(terminal, prompt));
    terminal.Type(is_copied ? ports : line.substr(2) + "\n");
  }
  WaitFor(terminal, "\n$ ");
  WaitFor(servers, "bytes\n");
  servers.Type("\x03");
  WaitFor(servers, "$ ");

  EXPECT_EQ(Masked(terminal.shown(), home), Masked(sessions[1] + "$ ", home)) << terminal.shown();
  EXPECT_EQ(Masked(servers.shown(), home), Masked(sessions[0] + sessions[2] + "$ ", home))
      << servers.shown();
}

}  // namespace
}  // namespace vk::tq::testing
