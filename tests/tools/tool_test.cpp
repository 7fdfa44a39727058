#include "tools/tool_test.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <utility>

namespace vk::tq::testing {
namespace {

const std::string kCommand = "exec " TQCTL " ";

[[noreturn]] void Become(const std::string& line) {
  execl("/bin/sh", "sh", "-c", (kCommand + line).c_str(), nullptr);
  _exit(127);
}

int ExitOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status); }

int WaitFor(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return ExitOf(status);
}

}  // namespace

RunningTool::RunningTool(const std::string& line) {
  int input[2];
  int output[2];
  EXPECT_EQ(pipe2(input, O_CLOEXEC) + pipe2(output, O_CLOEXEC), 0);
  child_ = fork();
  if (child_ == 0) {
    dup2(input[0], STDIN_FILENO);
    dup2(output[1], STDOUT_FILENO);
    Become(line);
  }
  close(input[0]);
  close(output[1]);
  input_ = input[1];
  output_ = output[0];
}

RunningTool::~RunningTool() {
  close(input_);
  close(output_);
  if (child_ <= 0) return;
  Send(SIGKILL);
  Wait();
}

std::string RunningTool::ReadLine() {
  constexpr int kPatience = 20000;
  std::string line;
  pollfd ready = {output_, POLLIN, 0};
  for (char c = 0; poll(&ready, 1, kPatience) == 1 && read(output_, &c, 1) == 1;) {
    if (c == '\n') break;
    line += c;
  }
  return line;
}

void RunningTool::PressEnter() { EXPECT_EQ(write(input_, "\n", 1), 1); }

void RunningTool::Send(int signal) { kill(child_, signal); }

int RunningTool::Wait() { return WaitFor(std::exchange(child_, 0)); }

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
  return ParseJson(result.out);
}

void ToolTest::Fails(const std::string& line, const std::string& says, int status) const {
  EXPECT_THAT(RunJson(line, status)["error"]["message"].text, ::testing::HasSubstr(says)) << line;
}

ToolResult ToolTest::RunOnTerminal(const std::string& line, const std::string& typed) const {
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    setenv("TERM", "xterm", 1);
    Become(line);
  }
  ToolResult result;
  std::string left = typed;
  char buffer[4096];
  for (ssize_t got = 0; (got = read(terminal, buffer, sizeof buffer)) > 0;) {
    result.out.append(buffer, static_cast<std::size_t>(got));
    if (!result.out.ends_with(": ")) continue;
    EXPECT_EQ(write(terminal, left.data(), left.size()), static_cast<ssize_t>(left.size()));
    left.clear();
  }
  close(terminal);
  result.status = WaitFor(child);
  return result;
}

}  // namespace vk::tq::testing
