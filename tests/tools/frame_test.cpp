// What all commands of tqctl have in common.
#include <sstream>

#include "tools/tool_test.h"

namespace vk::tq::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::Not;

class FrameTest : public ToolTest {
 protected:
  std::vector<std::string> Complete(const std::string& words) const {
    std::istringstream lines(Run("__complete " + words).out);
    std::vector<std::string> candidates;
    for (std::string line; std::getline(lines, line);) candidates.push_back(line);
    return candidates;
  }

  // Every command of the program.
  std::vector<std::string> Commands() const {
    std::vector<std::string> commands;
    for (const std::string& noun : Complete("''")) {
      const std::vector<std::string> leaves = Complete(noun + " ''");
      if (leaves.empty()) commands.push_back(noun);
      for (const std::string& leaf : leaves) commands.push_back(noun + " " + leaf);
    }
    return commands;
  }
};

// What the manual page says about a command; empty when it has no item for it.
std::string ManualOf(const std::string& page, const std::string& command) {
  const std::size_t begin = page.find("\n.It Cm " + command);
  if (begin == std::string::npos) return {};
  return page.substr(begin, page.find("\n.It Cm ", begin + 1) - begin);
}

TEST_F(FrameTest, SlowEveryCommandHasHelpAndAManual) {
  const std::string page = ReadNative(TQCTL_FILES "/tqctl.1");
  const auto commands = Commands();
  EXPECT_THAT(commands, IsSupersetOf({"job list", "lock hold"}));
  for (const std::string& name : commands) {
    const std::string manual = ManualOf(page, name);
    EXPECT_NE(manual, "") << name;
    std::vector<std::string> options = Complete(name + " --");
    const ToolResult help = Run(name + " --help");
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
  EXPECT_THAT(Complete("job delete /tm"), ::testing::IsEmpty());
  EXPECT_THAT(Complete("--j"), ::testing::ElementsAre("--json"));
  WriteNative(native("script"), "source " TQCTL_FILES "/completion.bash; COMP_WORDS=(" TQCTL
                                " job s); COMP_CWORD=2; _tqctl; echo ${COMPREPLY[*]} >reply");
  ASSERT_EQ(std::system("bash script"), 0);
  EXPECT_EQ(ReadNative("reply"), "show set\n");
}

TEST_F(FrameTest, WrongUsageIsToldFromFailure) {
  EXPECT_THAT(Run("--help").out, HasSubstr("Usage: tqctl"));
  EXPECT_EQ(Run("--version").out, "1.0.0\n");
  for (const std::string word : {"", "nonsense", "job", "job nonsense", "--nonsense"}) {
    const ToolResult result = Run(word);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error,
                AllOf(HasSubstr("--help"), HasSubstr(word.substr(word.rfind(' ') + 1))));
    EXPECT_EQ(RunJson(word, 2).at("error").size(), 2U);
  }
}

// The tool's own sink does not keep the lines from the program log.
TEST_F(FrameTest, TheLibrarysLinesReachTheTerminalAndTheProgramLog) {
  const ScopedEnvironment log_file("TQ_LOG_FILE", native("log").c_str());
  const std::string line = "CManageFileAccess::WriteManageFileInformation";
  EXPECT_THAT(Run("job new none/J").error, Not(HasSubstr(line)));
  EXPECT_THAT(ReadNative("log"), HasSubstr(line));
  EXPECT_THAT(RunOnTerminal("-v job new none/J").out, HasSubstr(line));
}

TEST_F(FrameTest, OutputThatIsNotTakenIsAFailure) {
  for (const std::string line : {"lock probe", "lock probe --json", "--help"}) {
    const ToolResult result = Run(line + " >/dev/full");
    EXPECT_EQ(result.status, 1) << line;
    EXPECT_THAT(result.error, HasSubstr("Standard output"));
  }
}

}  // namespace
}  // namespace vk::tq::testing
