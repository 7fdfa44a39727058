// What all commands of tqctl have in common.
#include <filesystem>
#include <sstream>

#include "tools/tool_test.h"

namespace vk::tq::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;

class FrameTest : public ToolTest {
 protected:
  std::vector<std::string> Complete(std::vector<std::string> words) const {
    words.insert(words.begin(), "__complete");
    std::istringstream lines(Run(words).out);
    std::vector<std::string> candidates;
    for (std::string line; std::getline(lines, line);) candidates.push_back(line);
    return candidates;
  }

  // Every command of the program, as the words that name it.
  std::vector<std::vector<std::string>> Commands() const {
    std::vector<std::vector<std::string>> commands;
    for (const std::string& noun : Complete({""})) {
      const std::vector<std::string> leaves = Complete({noun, ""});
      if (leaves.empty()) commands.push_back({noun});
      for (const std::string& leaf : leaves) commands.push_back({noun, leaf});
    }
    return commands;
  }
};

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

// What the manual page says about a command; empty when it has no item for it.
std::string ManualOf(const std::string& page, const std::string& command) {
  const std::size_t begin = page.find("\n.It Cm " + command);
  if (begin == std::string::npos) return {};
  return page.substr(begin, page.find("\n.It Cm ", begin + 1) - begin);
}

TEST_F(FrameTest, SlowEveryCommandHasHelpAndAManual) {
  const std::string page = ReadNative(TQCTL_FILES "/tqctl.1");
  const auto commands = Commands();
  EXPECT_THAT(commands, IsSupersetOf({std::vector<std::string>{"job", "list"}, {"lock", "hold"}}));
  for (std::vector<std::string> words : commands) {
    const std::string name = Joined(words);
    const std::string manual = ManualOf(page, name);
    EXPECT_NE(manual, "") << name;
    words.push_back("--");
    std::vector<std::string> options = Complete(words);
    words.back() = "--help";
    const ToolResult help = Run(words);
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("tqctl " + name));
    for (const char* everywhere : {"--help", "--json", "--verbose"}) {
      EXPECT_EQ(std::erase(options, everywhere), 1U) << name;
    }
    for (const std::string& option : options) {
      EXPECT_THAT(help.out, HasSubstr(option)) << name;
      EXPECT_THAT(manual, HasSubstr("Fl " + option.substr(1))) << name;
    }
  }
}

TEST_F(FrameTest, TheShellCompletesCommandsOptionsAndPaths) {
  EXPECT_THAT(Complete({"j"}), ::testing::ElementsAre("job"));
  EXPECT_THAT(Complete({"job", "delete", "/tm"}), IsEmpty());
  EXPECT_THAT(Complete({"--j"}), ::testing::ElementsAre("--json"));
  const std::string script = "source " TQCTL_FILES "/completion.bash; COMP_WORDS=(" TQCTL
                             " job \"$1\"); COMP_CWORD=2; "
                             "_tqctl; echo ${COMPREPLY[*]} >" +
                             native("reply");
  ASSERT_EQ(std::system(("bash -c '" + script + "' bash s").c_str()), 0);
  EXPECT_EQ(ReadNative(native("reply")), "show set\n");
}

TEST_F(FrameTest, WrongUsageIsToldFromFailure) {
  EXPECT_THAT(Run({"--help"}).out, HasSubstr("Usage: tqctl"));
  EXPECT_EQ(Run({"--version"}).out, "1.0.0\n");
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{}, {"nonsense"}, {"job"}, {"job", "nonsense"}, {"--nonsense"}}) {
    const ToolResult result = Run(words);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error,
                AllOf(HasSubstr("--help"), HasSubstr(words.empty() ? "" : words.back())));
    EXPECT_EQ(RunJson(words, 2)["error"].names.size(), 2U);
  }
}

// The tool's own sink does not keep the lines from the program log.
TEST_F(FrameTest, TheLibrarysLinesReachTheTerminalAndTheProgramLog) {
  const ScopedEnvironment log_file("TQ_LOG_FILE", native("log").c_str());
  const std::vector<std::string> words = {"job", "new", native("none/J")};
  const std::string line = "CManageFileAccess::WriteManageFileInformation";
  EXPECT_THAT(Run(words).error, Not(HasSubstr(line)));
  EXPECT_THAT(ReadNative(native("log")), HasSubstr(line));
  EXPECT_THAT(RunOnTerminal({"-v", "job", "new", native("none/J")}).out, HasSubstr(line));
}

TEST_F(FrameTest, OutputThatIsNotTakenIsAFailure) {
  for (const char* command : {" lock probe", " lock probe --json", " --help"}) {
    const std::string line = TQCTL + std::string(command) + " >/dev/full 2>" + native("error");
    EXPECT_EQ(std::system(line.c_str()), 0x100) << command;
    EXPECT_THAT(ReadNative(native("error")), HasSubstr("Standard output"));
  }
}

}  // namespace
}  // namespace vk::tq::testing
