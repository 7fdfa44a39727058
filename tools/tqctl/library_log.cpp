#include "tqctl/library_log.h"

#include "tqctl/output.h"

namespace tqctl {
namespace {

// Level 5 is an operation that failed, 4 an exception; 3 is a step that failed when the line has an
// error value.
bool IsFailure(const vk::tq::LogRecord& record) {
  return record.level == 5 || record.level == 4 || (record.level == 3 && record.code);
}

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
  if (IsFailure(record)) {
    last_failure_ = text;
    last_code_ = record.code;
  }
  if (!is_shown_) return;
  const std::wstring place = std::to_wstring(record.level) + L" " + std::to_wstring(record.number) +
                             L" " + std::wstring(record.function) + L"(" +
                             std::to_wstring(record.line) + L") ";
  PrintError(IsFailure(record) ? Tone::kWarning : Tone::kFaint, place, text);
}

std::wstring LibraryLog::LastFailure() const {
  const std::lock_guard lock(mutex_);
  return last_failure_;
}

std::optional<int> LibraryLog::LastCode() const {
  const std::lock_guard lock(mutex_);
  return last_code_;
}

void LibraryLog::ForgetFailure() {
  const std::lock_guard lock(mutex_);
  last_failure_.clear();
  last_code_.reset();
}

}  // namespace tqctl
