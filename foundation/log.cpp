#include "foundation/log.h"

#include <limits>
#include <mutex>
#include <shared_mutex>

#include "platform/error.h"
#include "platform/log_output.h"
#include "platform/text.h"

namespace vk::tq {

LogSink::~LogSink() = default;
EventSink::~EventSink() = default;

namespace {

// The sinks in force; null stands for the default. A sink is held while it writes, so that it can
// be replaced at any time.
struct Sinks {
  std::shared_mutex mutex;
  std::shared_ptr<LogSink> log;
  std::shared_ptr<EventSink> event;
};

Sinks& CurrentSinks() {
  // Never destroyed: a log call may come from a destructor that runs after main.
  static Sinks* sinks = std::make_unique<Sinks>().release();
  return *sinks;
}

template <class Sink>
std::shared_ptr<Sink> Hold(const std::shared_ptr<Sink>& sink) {
  const std::shared_lock lock(CurrentSinks().mutex);
  return sink;
}

// Before the first line the level is not known: everything reaches Write, which settles it.
constexpr int kLevelNotKnown = std::numeric_limits<int>::min();

int DefaultLevel() { return HasProgramLog() ? ProgramLogLevel() : std::numeric_limits<int>::max(); }

// A sink that logs would call itself without end.
thread_local bool is_writing = false;

template <class Work>
bool CallSink(const Work& work) noexcept {
  if (is_writing) return false;
  const LastErrorKeeper keep;
  is_writing = true;
  bool is_done = true;
  try {
    work();
  } catch (...) {
    is_done = false;
  }
  is_writing = false;
  return is_done;
}

int WriteEvent(unsigned long event_id, std::wstring_view message, bool is_shared) noexcept {
  return CallSink([&] {
    if (const auto sink = Hold(CurrentSinks().event)) {
      sink->Write(event_id, message, is_shared);
    } else {
      WriteSystemEvent(event_id, message);
    }
  });
}

}  // namespace

void WriteProgramLog(const LogRecord& record) noexcept {
  if (!HasProgramLog() || record.level < ProgramLogLevel()) return;
  const LastErrorKeeper keep;
  try {
    std::wstring line =
        Format(L"%d %s(%d) %s", record.number, record.function, record.line, record.message);
    if (record.second) line += Format(L" [%s]", *record.second);
    if (record.code) line += Format(L" [%d]", *record.code);
    AppendProgramLog(record.level, line);
  } catch (...) {
    // A log that fails must not disturb what it reports.
  }
}

std::atomic<int> Log4cxxMgr::lowest_level_ = kLevelNotKnown;

void InstallLogSink(std::shared_ptr<LogSink> sink, int lowest_level) {
  const int level = sink == nullptr ? DefaultLevel() : lowest_level;
  const std::unique_lock lock(CurrentSinks().mutex);
  CurrentSinks().log.swap(sink);
  Log4cxxMgr::lowest_level_ = level;
}

void InstallEventSink(std::shared_ptr<EventSink> sink) {
  const std::unique_lock lock(CurrentSinks().mutex);
  CurrentSinks().event.swap(sink);
}

void Log4cxxMgr::Write(const LogRecord& record) noexcept {
  CallSink([&] {
    if (lowest_level_ == kLevelNotKnown) {
      int expected = kLevelNotKnown;
      lowest_level_.compare_exchange_strong(expected, DefaultLevel());
      if (!IsKept(record.level)) return;
    }
    if (const auto sink = Hold(CurrentSinks().log)) {
      sink->Write(record);
    } else {
      WriteProgramLog(record);
    }
  });
}

int CEventLogMgr::EventLogOut(unsigned long event_id, std::wstring_view message) noexcept {
  return WriteEvent(event_id, message, false);
}

int CEventLogMgr::EventLogOutShared(unsigned long event_id, std::wstring_view message) noexcept {
  return WriteEvent(event_id, message, true);
}

}  // namespace vk::tq
