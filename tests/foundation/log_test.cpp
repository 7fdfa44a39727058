#include "foundation/log.h"

#include <stdexcept>

#include "platform/error.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

// Logs, changes the last error, and throws.
struct Troublemaker : LogSink, EventSink {
  void Write(const LogRecord&) override { Trouble(); }
  void Write(unsigned long, std::wstring_view, bool) override { Trouble(); }
  void Trouble() {
    ++calls;
    Log4cxxMgr::LogOutDetail(5, 0, L"Troublemaker", __LINE__, L"again");
    CEventLogMgr::EventLogOut(kEventError, L"again");
    SetLastError(99);
    throw std::runtime_error("trouble");
  }
  int calls = 0;
};

TEST(LogTest, ASinkNeverDisturbsTheCallerAndGetsItsLevels) {
  const auto sink = std::make_shared<Troublemaker>();
  InstallLogSink(sink);
  InstallEventSink(sink);
  SetLastError(12);
  Log4cxxMgr::LogOutDetail(5, 0, L"F", __LINE__, L"text");
  CEventLogMgr::EventLogOut(kEventError, L"text");
  EXPECT_EQ(12U, GetLastError());
  EXPECT_EQ(2, sink->calls);
  InstallLogSink(sink, 4);
  Log4cxxMgr::LogOutDetail(3, 0, L"F", __LINE__, L"below the level");
  EXPECT_EQ(2, sink->calls);
  InstallLogSink(nullptr);
  InstallEventSink(nullptr);
}

// The default, whose file is settled at the first line of a process.
TEST(LogTest, LinesGoToTheProgramLog) {
  if (!HasOwnProcess()) return;
  const TempFolder temp;
  const ScopedEnvironment file("TQ_LOG_FILE", temp.native("log.txt").c_str());
  Log4cxxMgr::LogOutDetail(5, 2, L"C::F", 1, 7, L"行");
  EXPECT_THAT(ReadNative(temp.native("log.txt")),
              ::testing::MatchesRegex("[^\n]* 5 2 C::F\\(1\\) 行 \\[7\\]\n"));
}

}  // namespace
}  // namespace vk::tq::testing
