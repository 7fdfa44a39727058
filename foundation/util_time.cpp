#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>

#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/system_info.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

constexpr std::uint32_t kLargest = 0xFFFFFFFF;

// How long a registration lasts, in milliseconds.
std::uint32_t LimitOf(int days) {
  constexpr int kFirstMinutes = 10000;
  constexpr int kMostDays = 30;
  constexpr std::int64_t kDay = 86'400'000;
  constexpr std::int64_t kMinute = 60'000;
  const std::int64_t limit =
      days < kFirstMinutes ? std::min(days, kMostDays) * kDay : days / kFirstMinutes * kMinute;
  return limit < 0 || limit > kLargest ? kLargest : static_cast<std::uint32_t>(limit);
}

// What wcstoul makes of a text in base 10, as long as it uses all of it and stays in range.
std::optional<std::uint32_t> ParseTick(std::wstring_view text) {
  if (text.empty()) return 0;
  const std::wstring_view trimmed = TrimView(text);
  if (trimmed.empty() || trimmed.back() != text.back()) return std::nullopt;
  const bool is_negative = trimmed.front() == L'-';
  const std::wstring_view digits = trimmed.substr(is_negative || trimmed.front() == L'+');
  if (digits.empty()) return std::nullopt;
  std::uint64_t number = 0;
  for (const wchar_t digit : digits) {
    if (digit < L'0' || digit > L'9') return std::nullopt;
    number = number * 10 + static_cast<std::uint64_t>(digit - L'0');
    if (number > kLargest) return std::nullopt;
  }
  const auto tick = static_cast<std::uint32_t>(number);
  return is_negative ? 0 - tick : tick;
}

const wchar_t* LogonStepText(LogonStep step) {
  switch (step) {
    case LogonStep::kToken:
      return L"トークンのハンドルの取得に失敗しました。";
    case LogonStep::kTokenInformation:
      return L"トークンの情報の取得に失敗しました。";
    case LogonStep::kSessionData:
      break;
  }
  return L"ログオンセッションのデータの取得に失敗しました。";
}

}  // namespace

int CUtil::isExpiredDays(int days, std::uint64_t tick) {
  constexpr std::uint64_t kWrap = std::uint64_t{1} << 32;
  std::uint64_t now = CurrentClock().TickCount();
  if (tick > now) now += kWrap;
  return now - tick > LimitOf(days);
}

int CUtil::isUserRegistExpired(const CString& first, const CString& second, const CString& tick,
                               int days) {
  constexpr int kNeverExpires = 999;
  if (days == kNeverExpires) return 0;
  if (second.empty() || first.empty() || !EqualsNoCase(first, second)) return 1;
  if (days == 0) return 0;
  const std::optional<std::uint32_t> number = ParseTick(tick);
  if (!number || *number == kLargest) return 1;
  return isExpiredDays(days, *number);
}

CString CUtil::GetLogonDateTimeFromLSA() {
  LocalTime time;
  LogonStep failed{};
  if (!CurrentMachine().LogonTime(time, failed)) {
    Log4cxxMgr::LogOutDetail(2, 0, L"CUtil::GetLogonDateTimeFromLSA", __LINE__,
                             static_cast<int>(GetLastError()), LogonStepText(failed));
    return {};
  }
  return Format(L"%04d%02d%02d%02d%02d%02d", time.year, time.month, time.day, time.hour,
                time.minute, time.second);
}

}  // namespace vk::tq
