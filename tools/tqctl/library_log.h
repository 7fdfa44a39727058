// The library's own log lines.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "foundation/log.h"

namespace tqctl {

// Keeps the text of the last line that tells of a failure, and shows every line on standard error
// when it is asked to. The program log gets its lines as well.
class LibraryLog : public vk::tq::LogSink {
 public:
  explicit LibraryLog(bool is_shown) : is_shown_(is_shown) {}

  void Write(const vk::tq::LogRecord& record) override;

  // Empty when nothing failed.
  std::wstring LastFailure() const;
  // The error value of that line, if it has one.
  std::optional<int> LastCode() const;
  // As if nothing had failed yet.
  void ForgetFailure();

 private:
  const bool is_shown_;
  mutable std::mutex mutex_;
  std::wstring last_failure_;
  std::optional<int> last_code_;
};

}  // namespace tqctl
