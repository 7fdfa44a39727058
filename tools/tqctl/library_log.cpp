#include "tqctl/library_log.h"

#include "tqctl/output.h"

namespace tqctl {
namespace {

// Level 3 is a step that failed, 4 an exception, 5 an operation that failed.
bool IsFailure(int level) { return level >= 3 && level <= 5; }

// The text of a line with what it carries.
std::wstring TextOf(const vk::tq::LogRecord& record) {
  std::wstring text(record.message);
  if (record.second) text.append(L" [").append(*record.second).append(L"]");
  if (record.code) text.append(L" [").append(std::to_wstring(*record.code)).append(L"]");
  return text;
}

}  // namespace

void LibraryLog::Write(const vk::tq::LogRecord& record) {
  vk::tq::WriteProgramLog(record);
  const std::wstring text = TextOf(record);
  const std::lock_guard lock(mutex_);
  if (IsFailure(record.level)) last_failure_ = text;
  if (!is_shown_) return;
  const std::wstring place = std::to_wstring(record.level) + L" " + std::to_wstring(record.number) +
                             L" " + std::wstring(record.function) + L"(" +
                             std::to_wstring(record.line) + L") ";
  PrintError(IsFailure(record.level) ? Tone::kWarning : Tone::kFaint, place, text);
}

std::wstring LibraryLog::LastFailure() const {
  const std::lock_guard lock(mutex_);
  return last_failure_;
}

}  // namespace tqctl
