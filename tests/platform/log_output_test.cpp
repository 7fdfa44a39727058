#include "platform/log_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <thread>

#include "platform/error.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;

// The file is settled at the first line of a process, so each test logs in processes of its own, to
// which no other test has handed down its log.
class LogOutputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!HasOwnProcess()) GTEST_SKIP() << "run in a process of its own";
  }
  void Log(const std::function<void()>& work) const {
    ChildProcess child([&] {
      work();
      return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(0, child.Wait());
  }
  TempFolder temp_;
  std::string native_ = temp_.native("program.log");
  ScopedEnvironment file_{"TQ_LOG_FILE", native_.c_str()};
};

// The file is the one of that name, whatever has become of an older one and of the program's folder.
TEST_F(LogOutputTest, ALineTellsTimeProcessThreadAndLevel) {
  Log([&] {
    AppendProgramLog(2, L"old");
    fs::rename(native_, temp_.native("program.log.1"));
    fs::current_path("/");
    // In text that steers no terminal.
    AppendProgramLog(
        5, L"日本\r\n\t" + std::wstring(L"\0\x1B\x7F\x80\x85\x9F\u2028\u2029", 8) + L"\xA0。|");
  });
  EXPECT_THAT(
      ReadNative(native_),
      ::testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z "
                              "[0-9]+:[0-9]+ 5 日本\\\\r\\\\n\t\\?{8}\xC2\xA0。\\|\n"));
}

TEST_F(LogOutputTest, LongLinesOfManyWritersDoNotMix) {
  const auto write = [](wchar_t c) {
    for (int i = 0; i < 50; ++i) AppendProgramLog(2, std::wstring(20'000, c));
    return 0;
  };
  ChildProcess one([&] { return write(L'a'); });
  ChildProcess two([&] {
    const std::jthread other([&] { write(L'b'); });
    return write(L'c');
  });
  EXPECT_EQ(0, one.Wait() + two.Wait());
  std::istringstream text(ReadNative(native_));
  int count = 0;
  for (std::string line; std::getline(text, line); ++count) {
    EXPECT_EQ(20'000, std::count(line.begin(), line.end(), line.back()));
  }
  EXPECT_EQ(150, count);
}

TEST_F(LogOutputTest, WhatSomebodyPlantedIsLeftAlone) {
  const std::string victim = temp_.native("victim");
  WriteNative(victim, "");
  const std::function<void()> plants[] = {
      [&] { fs::create_symlink(victim, native_); }, [&] { fs::create_hard_link(victim, native_); },
      [&] { ASSERT_EQ(0, mkfifo(native_.c_str(), 0600)); }, [&] { fs::create_directory(native_); }};
  for (const auto& plant : plants) {
    plant();
    Log([] {
      SetLastError(77);
      AppendProgramLog(5, L"text");
      EXPECT_EQ(77U, GetLastError());
    });
    fs::remove(native_);
  }
  EXPECT_EQ("", ReadNative(victim));
}

// libc copies each entry to the standard error output on demand, and drops those whose priority is
// masked.
TEST_F(LogOutputTest, EventsReachTheSystemWithTheirPriority) {
  const auto entries = [&](int priorities) {
    Log([&] {
      const int out = open(native_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      dup2(out, STDERR_FILENO);
      openlog("tq", LOG_PERROR, LOG_USER);
      setlogmask(priorities);
      WriteSystemEvent(0xC0004000, L"日本 %s\nerror");
      WriteSystemEvent(0x80003000, L"warning");
    });
    return ReadNative(native_);
  };
  EXPECT_EQ("tq: C0004000 日本 %s\\nerror\n", entries(LOG_MASK(LOG_ERR)));
  EXPECT_EQ("tq: 80003000 warning\n", entries(LOG_MASK(LOG_WARNING)));
}

}  // namespace
}  // namespace vk::tq::testing
