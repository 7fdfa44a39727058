/// Time, as the library sees it: the time of day, the tick counter, and pauses.
#pragma once

#include <cstdint>

namespace vk::tq {

/// A source of time. Tests install one of their own in place of the machine's.
class Clock {
 public:
  Clock() = default;
  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;
  virtual ~Clock();
  /// Seconds since 1970-01-01 UTC.
  virtual std::int64_t Now() = 0;
  /// Milliseconds since the machine was started; wraps at 32 bits.
  virtual std::uint32_t TickCount() = 0;
  virtual void Sleep(std::uint32_t milliseconds) = 0;
};

/// The clock in force: the machine's, unless a ScopedClock is alive.
Clock& CurrentClock() noexcept;

/// Puts another clock in force for a scope.
class ScopedClock {
 public:
  explicit ScopedClock(Clock& clock) noexcept;
  ScopedClock(const ScopedClock&) = delete;
  ScopedClock& operator=(const ScopedClock&) = delete;
  ~ScopedClock();

 private:
  Clock* old_;
};

}  // namespace vk::tq
