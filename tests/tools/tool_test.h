// Runs the real tool, as its users do, in a product folder of the test's own.
#pragma once

#include <gmock/gmock.h>

#include <string>

#include "support/json.h"
#include "support/test_support.h"

namespace vk::tq::testing {

struct ToolResult {
  int status = 0;
  std::string out;
  std::string error;
};

// A tool that runs on while the test does, and is killed when the object goes.
class RunningTool {
 public:
  explicit RunningTool(const std::string& line);
  RunningTool(const RunningTool&) = delete;
  RunningTool& operator=(const RunningTool&) = delete;
  ~RunningTool();

  // The next line of standard output; empty when none comes in time.
  std::string ReadLine();
  // Types a line end.
  void PressEnter();
  void Send(int signal);
  // The exit status, or minus the signal that ended it.
  int Wait();

 private:
  pid_t child_;
  int input_ = -1;
  int output_ = -1;
};

// The working directory is the test's own folder. A command line is what follows "tqctl" in a shell.
class ToolTest : public ProductTest {
 protected:
  ToolTest();

  // On pipes, with the text as standard input.
  ToolResult Run(const std::string& line, const std::string& input = "") const;
  // The same with --json; fails the test when the status is another one.
  Json RunJson(const std::string& line, int status = 0) const;
  // The same for a failure, which must say so.
  void Fails(const std::string& line, const std::string& says, int status = 1) const;
  // On a terminal, on which the text is typed when it is asked for; all that it shows is in `out`.
  ToolResult RunOnTerminal(const std::string& line, const std::string& typed = "") const;
};

}  // namespace vk::tq::testing
