#include "platform/log_output.h"

#include <sys/stat.h>

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;

// The file is settled at the first line of a process.
class LogOutputTest : public ::testing::Test {
 protected:
  TempFolder temp_;
  std::string native_ = temp_.native("program.log");
  ScopedEnvironment file_{"TQ_LOG_FILE", native_.c_str()};
};

// The file is the one of that name, whatever has become of an older one and of the program's folder.
TEST_F(LogOutputTest, ALineTellsTimeProcessThreadAndLevel) {
  if (!HasOwnProcess()) return;
  AppendProgramLog(2, L"old");
  fs::rename(native_, temp_.native("program.log.1"));
  fs::current_path("/");
  // In text that steers no terminal.
  const std::wstring controls(L"\0\x1B\x7F\x80\x85\x9F\u2028\u2029", 8);
  AppendProgramLog(5, L"日本\r\n\t" + controls + L"\xA0。|");
  AppendProgramLog(5, L"x");
  EXPECT_THAT(
      ReadNative(native_),
      ::testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z "
                              "[0-9]+:[0-9]+ 5 日本\\\\r\\\\n\t\\?{8}\xC2\xA0。\\|\n.* 5 x\n"));
}

TEST_F(LogOutputTest, WhatSomebodyPlantedIsLeftAlone) {
  if (!HasOwnProcess()) return;
  const std::string victim = temp_.native("victim");
  WriteNative(victim, "");
  const std::function<void()> plants[] = {
      [&] { fs::create_symlink(victim, native_); }, [&] { fs::create_hard_link(victim, native_); },
      [&] { ASSERT_EQ(0, mkfifo(native_.c_str(), 0600)); }, [&] { fs::create_directory(native_); }};
  for (const auto& plant : plants) {
    plant();
    AppendProgramLog(5, L"text");
    fs::remove(native_);
  }
  EXPECT_EQ("", ReadNative(victim));
}

}  // namespace
}  // namespace vk::tq::testing
