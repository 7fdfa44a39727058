#include "tools/tool_test.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

namespace vk::tq::testing {
namespace {

// Becomes the tool.
[[noreturn]] void Become(const std::vector<std::string>& arguments) {
  std::vector<char*> argv = {const_cast<char*>("tqctl")};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  execv(TQCTL, argv.data());
  _exit(127);
}

int WaitFor(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void Redirect(const std::string& native, int flags, int to) {
  dup2(open(native.c_str(), flags, 0600), to);
}

}  // namespace

RunningTool::RunningTool(const std::vector<std::string>& arguments) {
  int input[2];
  int output[2];
  EXPECT_EQ(pipe2(input, O_CLOEXEC) + pipe2(output, O_CLOEXEC), 0);
  child_ = fork();
  if (child_ == 0) {
    dup2(input[0], STDIN_FILENO);
    dup2(output[1], STDOUT_FILENO);
    Become(arguments);
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

ToolResult ToolTest::Run(const std::vector<std::string>& arguments,
                         const std::string& input) const {
  const TempFolder folder;
  WriteNative(folder.native("in"), input);
  const pid_t child = fork();
  if (child == 0) {
    Redirect(folder.native("in"), O_RDONLY, STDIN_FILENO);
    Redirect(folder.native("out"), O_WRONLY | O_CREAT, STDOUT_FILENO);
    Redirect(folder.native("error"), O_WRONLY | O_CREAT, STDERR_FILENO);
    Become(arguments);
  }
  const int status = WaitFor(child);
  return {status, ReadNative(folder.native("out")), ReadNative(folder.native("error"))};
}

Json ToolTest::RunJson(std::vector<std::string> arguments, int status) const {
  arguments.push_back("--json");
  const ToolResult result = Run(arguments);
  EXPECT_EQ(result.status, status) << result.out << result.error;
  return result.json();
}

ToolResult ToolTest::RunOnTerminal(const std::vector<std::string>& arguments,
                                   const std::string& typed) const {
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    setenv("TERM", "xterm", 1);
    Become(arguments);
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
