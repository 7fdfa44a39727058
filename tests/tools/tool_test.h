// Runs the real tool, as its users do, in a product folder of the test's own.
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <string>

#include "support/json.h"
#include "support/test_support.h"

namespace vk::tq::testing {

struct ToolResult {
  int status = 0;
  std::string out;
  std::string error;
};

// A program on a terminal of its own, hung up on when the object goes. What is typed there is
// echoed, as people see it.
class Terminal {
 public:
  // The function becomes the program. The answer is typed when the program asks for a password.
  explicit Terminal(const std::function<void()>& become, std::string answer = "");
  // The tool, whose command line this is.
  explicit Terminal(const std::string& line, std::string answer = "");
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal();

  // Takes more of what is shown; false at its end, and when nothing comes in time.
  bool Read();
  // All that was shown, and its next line.
  const std::string& shown() const { return shown_; }
  std::string ReadLine();
  // Whether something new was shown since the last typing, with that at its end.
  bool Shows(const std::string& prompt) const;
  void Type(const std::string& text);
  void Send(int signal);
  // The exit status, or minus the signal that ended it.
  int Wait();

 private:
  pid_t child_;
  int terminal_ = -1;
  std::string answer_;
  std::string shown_;
  std::size_t typed_at_ = 0;
  std::size_t read_to_ = 0;
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
  // On a terminal; all that it shows is in `out`.
  ToolResult RunOnTerminal(const std::string& line, const std::string& answer = "") const;
};

}  // namespace vk::tq::testing
