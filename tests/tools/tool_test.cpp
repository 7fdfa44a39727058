#include "tools/tool_test.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <utility>

namespace vk::tq::testing {
namespace {

const std::string kCommand = "exec " TQCTL " ";

int ExitOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status); }

}  // namespace

Terminal::Terminal(const std::function<void()>& become, std::string answer)
    : answer_(std::move(answer)) {
  child_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
  if (child_ == 0) {
    become();
    _exit(127);
  }
  fcntl(terminal_, F_SETFD, FD_CLOEXEC);  // or the next program would keep this one from its end
}

Terminal::Terminal(const std::string& line, std::string answer)
    : Terminal(
          [&line] {
            setenv("TERM", "xterm", 1);
            execl("/bin/sh", "sh", "-c", (kCommand + line).c_str(), nullptr);
          },
          std::move(answer)) {}

Terminal::~Terminal() {
  close(terminal_);
  if (child_ > 0) Wait();
}

bool Terminal::Read() {
  pollfd ready = {terminal_, POLLIN, 0};
  char buffer[4096];
  const ssize_t got = poll(&ready, 1, 20000) == 1 ? read(terminal_, buffer, sizeof buffer) : 0;
  if (got <= 0) return false;
  std::remove_copy(buffer, buffer + got, std::back_inserter(shown_), '\r');
  const std::string last = shown_.substr(shown_.rfind('\n') + 1);
  if (last.starts_with("Password of") && Shows(": ")) Type(answer_);
  return true;
}

std::string Terminal::ReadLine() {
  while (shown_.find('\n', read_to_) == std::string::npos && Read()) {
  }
  const std::size_t begin = read_to_;
  read_to_ = shown_.find('\n', begin) + 1;
  return shown_.substr(begin, read_to_ - begin);
}

bool Terminal::Shows(const std::string& prompt) const {
  return shown_.size() > typed_at_ && shown_.ends_with(prompt);
}

void Terminal::Type(const std::string& text) {
  EXPECT_EQ(write(terminal_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  typed_at_ = shown_.size();
}

void Terminal::Send(int signal) { kill(child_, signal); }

int Terminal::Wait() {
  int status = 0;
  waitpid(std::exchange(child_, 0), &status, 0);
  return ExitOf(status);
}

ToolTest::ToolTest() {
  WriteKeyFile();
  std::filesystem::current_path(temp_.native());
}

ToolResult ToolTest::Run(const std::string& line, const std::string& input) const {
  const TempFolder folder;
  const std::string at = folder.native();
  WriteNative(at + "/in", input);
  const std::string pipes = "<" + at + "/in >" + at + "/out 2>" + at + "/error ";
  const int status = ExitOf(std::system((kCommand + pipes + line).c_str()));
  return {status, ReadNative(at + "/out"), ReadNative(at + "/error")};
}

Json ToolTest::RunJson(const std::string& line, int status) const {
  const ToolResult result = Run(line + " --json");
  EXPECT_EQ(result.status, status) << line << result.out << result.error;
  return Json::parse(result.out);
}

void ToolTest::Fails(const std::string& line, const std::string& says, int status) const {
  const std::string message = RunJson(line, status).at("error").at("message");
  EXPECT_THAT(message, ::testing::HasSubstr(says)) << line;
}

ToolResult ToolTest::RunOnTerminal(const std::string& line, const std::string& answer) const {
  Terminal terminal(line, answer);
  while (terminal.Read()) {
  }
  return {terminal.Wait(), terminal.shown(), ""};
}

}  // namespace vk::tq::testing
