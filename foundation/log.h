/// The program log and the system event log, as the library calls them.
///
/// A call writes one line. Levels: 0 trace, 1 detail, 2 progress and values, 3 a setting replaced
/// by its default or a step of a transfer, 4 a required setting missing or an exception at a public
/// operation, 5 failure of an operation, 6 no such row. Number 0 means no number. Any thread may
/// call, without a lock. A log call never throws, and the last error of the thread is the same
/// before and after it.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/export.h"

namespace vk::tq {

/// Event ids.
inline constexpr unsigned long kEventError = 0xC0004000;
inline constexpr unsigned long kEventWarning = 0x80003000;

/// One line of the program log, as a sink sees it. The views are valid during the call only.
struct LogRecord {
  int level = 0;
  int number = 0;
  std::wstring_view function;  ///< "Class::Method", or the name of a free function
  int line = 0;                ///< source line of the call
  std::wstring_view message;
  std::optional<std::wstring_view> second;  ///< second text, mostly a file path
  std::optional<int> code;                  ///< mostly the last error
};

/// Takes the lines in place of the default, which appends them to the file that TQ_LOG_FILE names.
/// What a sink throws is dropped. It is called by any thread, also by several at once.
class TQ_EXPORT LogSink {
 public:
  LogSink() = default;
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;
  virtual ~LogSink();
  /// Takes one line whose level is the lowest that the sink wants, or above.
  virtual void Write(const LogRecord& record) = 0;
};

/// Appends a line to the file that TQ_LOG_FILE names, if its level is high enough for that. For a
/// sink that wants the program log to go on.
TQ_EXPORT void WriteProgramLog(const LogRecord& record) noexcept;

/// Takes the events in place of the default, the system log.
class TQ_EXPORT EventSink {
 public:
  EventSink() = default;
  EventSink(const EventSink&) = delete;
  EventSink& operator=(const EventSink&) = delete;
  virtual ~EventSink();
  /// `is_shared` tells EventLogOutShared from EventLogOut.
  virtual void Write(unsigned long event_id, std::wstring_view message, bool is_shared) = 0;
};

/// Installs a sink and the lowest level that it wants; null brings the default back.
TQ_EXPORT void InstallLogSink(std::shared_ptr<LogSink> sink, int lowest_level = 0);
/// Installs a sink for all events; null brings the default back.
TQ_EXPORT void InstallEventSink(std::shared_ptr<EventSink> sink);

/// The program log, for those who support the suite.
class TQ_EXPORT Log4cxxMgr {
 public:
  /// Writes a line. Number, function and line tell where in the source it comes from.
  static void LogOutDetail(int level, int number, std::wstring_view function, int line,
                           std::wstring_view message) noexcept {
    if (IsKept(level)) Write({level, number, function, line, message, {}, {}});
  }

  /// With a second text, mostly a file path.
  static void LogOutDetail(int level, int number, std::wstring_view function, int line,
                           std::wstring_view message, std::wstring_view second) noexcept {
    if (IsKept(level)) Write({level, number, function, line, message, second, {}});
  }

  /// With a code, mostly the last error.
  static void LogOutDetail(int level, int number, std::wstring_view function, int line, int code,
                           std::wstring_view message) noexcept {
    if (IsKept(level)) Write({level, number, function, line, message, {}, code});
  }

  /// Whether a line of this level goes anywhere. A caller asks it before it formats a costly line.
  static bool IsKept(int level) noexcept {
    return level >= lowest_level_.load(std::memory_order_relaxed);
  }

 private:
  friend void InstallLogSink(std::shared_ptr<LogSink> sink, int lowest_level);
  static void Write(const LogRecord& record) noexcept;

  static std::atomic<int> lowest_level_;
};

/// The system's event log, for those who look after the PC.
class TQ_EXPORT CEventLogMgr {
 public:
  /// Hands an event on. 1 when that was done; no caller depends on it.
  static int EventLogOut(unsigned long event_id, std::wstring_view message) noexcept;
  /// The same event for the system; a sink can tell the two apart.
  static int EventLogOutShared(unsigned long event_id, std::wstring_view message) noexcept;
};

}  // namespace vk::tq
