#include "platform/posix/login_session.h"

#include <algorithm>

#include "platform/posix/number.h"
#include "platform/posix/system_file.h"

namespace vk::tq {
namespace {

// Cuts off and gives what stands in front of the next of these separators.
std::string_view CutPiece(std::string_view& text, std::string_view separators) {
  const std::size_t end = std::min(text.find_first_of(separators), text.size());
  const std::string_view piece = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return piece;
}

// What stands between the two, when it is a plain name.
std::string_view Between(std::string_view text, std::string_view before, std::string_view behind) {
  if (text.size() <= before.size() + behind.size() || !text.starts_with(before) ||
      !text.ends_with(behind)) {
    return {};
  }
  text.remove_prefix(before.size());
  text.remove_suffix(behind.size());
  const bool is_plain = std::ranges::all_of(text, [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  });
  return is_plain ? text : std::string_view();
}

// The value of a line "name=value" or "name value".
std::string_view ValueOf(std::string_view text, std::string_view name) {
  while (!text.empty()) {
    std::string_view line = CutPiece(text, "\n");
    if (CutPiece(line, "= ") == name) return line;
  }
  return {};
}

std::optional<std::int64_t> Number(std::string_view text) {
  const auto number = WholeNumber<std::int64_t>(text);
  return number && *number >= 0 ? number : std::nullopt;
}

// The start that a record holds.
std::optional<std::int64_t> StartIn(const std::optional<std::string>& record) {
  const auto microseconds = Number(record ? ValueOf(*record, "REALTIME") : "");
  if (!microseconds) return std::nullopt;
  return *microseconds / 1'000'000;
}

// The start of the user's graphical session, else that of the user's first one.
std::optional<std::int64_t> LoginOfUser(const std::string& records, std::string_view user) {
  const auto record = ReadSystemFile(records + "/users/" + std::string(user));
  const std::string_view session = Between(record ? ValueOf(*record, "DISPLAY") : "", "", "");
  std::optional<std::int64_t> start;
  if (!session.empty())
    start = StartIn(ReadSystemFile(records + "/sessions/" + std::string(session)));
  return start ? start : StartIn(record);
}

}  // namespace

std::optional<std::int64_t> RecordedLogin(std::string_view control_groups,
                                          const std::string& records) {
  // The outermost group counts: what lies further inside, users name themselves.
  while (!control_groups.empty()) {
    const std::string_view group = CutPiece(control_groups, "/\n");
    if (const auto session = Between(group, "session-", ".scope"); !session.empty()) {
      return StartIn(ReadSystemFile(records + "/sessions/" + std::string(session)));
    }
    if (const auto user = Between(group, "user@", ".service"); !user.empty()) {
      return LoginOfUser(records, user);
    }
  }
  return std::nullopt;
}

std::optional<std::int64_t> ProcessStart(std::string_view process, std::string_view kernel,
                                         std::int64_t ticks_per_second) {
  // The program's name, in parentheses, may itself hold blanks and parentheses.
  const std::size_t name_end = process.rfind(") ");
  const auto boot = Number(ValueOf(kernel, "btime"));
  if (name_end == process.npos || !boot) return std::nullopt;
  process.remove_prefix(name_end + 2);
  constexpr int kFirstField = 3;
  constexpr int kStartField = 22;
  for (int field = kFirstField; field < kStartField; ++field) CutPiece(process, " ");
  const auto ticks = Number(CutPiece(process, " "));
  if (!ticks) return std::nullopt;
  return *boot + *ticks / ticks_per_second;
}

}  // namespace vk::tq
