#include <unistd.h>

#include <optional>

#include "foundation/util.h"
#include "platform/error.h"
#include "platform/system_info.h"
#include "support/test_clock.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class UtilTimeTest : public ProductTest {
 protected:
  TestClock clock_;
  ScopedClock use_clock_{clock_};
};

TEST_F(UtilTimeTest, ARegistrationLastsUpToItsLimit) {
  constexpr std::uint64_t kDay = 86'400'000;
  constexpr std::uint64_t kMinute = 60'000;
  const std::pair<int, std::uint64_t> cases[] = {{0, 0},
                                                 {1, kDay},
                                                 {31, 30 * kDay},
                                                 {9999, 30 * kDay},
                                                 {10000, kMinute},
                                                 {19999, kMinute},
                                                 {715'820'000, 71582 * kMinute}};
  for (const auto& [days, limit] : cases) {
    // The counter may have wrapped in the meantime.
    for (const std::uint64_t start : {std::uint64_t{1000}, std::uint64_t{0xFFFFFF00}}) {
      clock_.ticks = static_cast<std::uint32_t>(start + limit);
      EXPECT_EQ(0, CUtil::isExpiredDays(days, start)) << days;
      ++clock_.ticks;
      EXPECT_EQ(1, CUtil::isExpiredDays(days, start)) << days;
    }
  }
  // A limit beyond the counter is never reached, but no reading of it was ever like the last one.
  clock_.ticks = 0xFFFFFFFF;
  for (const int days : {-1, 715'830'000, -2'147'483'647 - 1}) {
    EXPECT_EQ(0, CUtil::isExpiredDays(days, 0)) << days;
    EXPECT_EQ(1, CUtil::isExpiredDays(days, std::uint64_t{1} << 40)) << days;
  }
}

TEST_F(UtilTimeTest, ARegistrationEndsWithTheLogonOrItsTime) {
  clock_.ticks = 4'000'000'000;
  const std::tuple<const wchar_t*, const wchar_t*, const wchar_t*, int, int> cases[] = {
      {L"", L"", L"x", 999, 0},
      {L"", L"20240101000000", L"4000000000", 5, 1},
      {L"20240101000000", L"20240101000001", L"4000000000", 0, 1}};
  for (const auto& [first, second, tick, days, expired] : cases) {
    EXPECT_EQ(expired, CUtil::isUserRegistExpired(first, second, tick, days)) << ToUtf8(first);
  }
  // The same logon: the counter decides, and what is no counter has expired. Without a limit only
  // the greatest reading has. A sign is taken back modulo 2^32.
  const std::tuple<int, int, std::vector<const wchar_t*>> same_logon[] = {
      {5, 1, {L"3567999999", L"12x", L"4000000000 ", L"+-5", L"99999999999999999999999999", L""}},
      {5, 0, {L"4000000000", L" +4000000000", L"3568000000"}},
      {0, 0, {L"x"}},
      {-1, 1, {L"4294967295", L"-1", L"4294967296"}},
      {-1, 0, {L"4294967294", L"-2", L""}}};
  for (const auto& [days, expired, ticks] : same_logon) {
    for (const wchar_t* tick : ticks) {
      EXPECT_EQ(expired, CUtil::isUserRegistExpired(L"AbＣ", L"aBｃ", tick, days)) << ToUtf8(tick);
    }
  }
}

class LogonMachine : public Machine {
 public:
  bool LogonTime(LocalTime& time, LogonStep& step) override {
    if (failure) {
      step = *failure;
      SetLastError(1312);
      return false;
    }
    time = {2024, 3, 1, 4, 5, 6};
    return true;
  }

  std::optional<LogonStep> failure;
};

TEST_F(UtilTimeTest, TheLogonTimeHasFourteenDigits) {
  LogonMachine machine;
  const ScopedMachine use_machine(machine);
  EXPECT_EQ(L"20240301040506", CUtil::GetLogonDateTimeFromLSA());
  EXPECT_THAT(log_.lines(), IsEmpty());
  machine.failure = LogonStep::kSessionData;
  EXPECT_EQ(L"", CUtil::GetLogonDateTimeFromLSA());
  const std::wstring text = L"ログオンセッションのデータの取得に失敗しました。";
  const LogLine line{2, 0, L"CUtil::GetLogonDateTimeFromLSA", text, {}, 1312};
  EXPECT_THAT(log_.lines(), ElementsAre(line));
}

TEST_F(UtilTimeTest, EveryProcessOfASessionHasTheSameLogonTime) {
  const auto tell = [&](const std::string& file) {
    WriteNative(native(file), ToUtf8(CUtil::GetLogonDateTimeFromLSA()));
    return 0;
  };
  ChildProcess leader([&] {
    setsid();
    tell("leader");
    usleep(1'100'000);
    return ChildProcess([&] { return tell("member"); }).Wait();
  });
  ASSERT_EQ(0, leader.Wait());
  const std::string logon = ReadNative(native("leader"));
  EXPECT_EQ(logon, ReadNative(native("member")));
  EXPECT_EQ(14u, logon.size());
}

}  // namespace
}  // namespace vk::tq::testing
