#include "platform/clock.h"

#include <time.h>

#include <atomic>
#include <cerrno>

namespace vk::tq {

Clock::~Clock() = default;

namespace {

class MachineClock final : public Clock {
 public:
  std::int64_t Now() override { return Read(CLOCK_REALTIME).tv_sec; }

  std::uint32_t TickCount() override {
    const timespec now = Read(CLOCK_BOOTTIME);
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * 1000 +
                                      static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000);
  }

  void Sleep(std::uint32_t milliseconds) override {
    timespec left{milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
  }

 private:
  static timespec Read(clockid_t id) {
    timespec now{};
    clock_gettime(id, &now);
    return now;
  }
};

MachineClock machine_clock;
std::atomic<Clock*> current_clock = &machine_clock;

}  // namespace

Clock& CurrentClock() noexcept { return *current_clock.load(); }

ScopedClock::ScopedClock(Clock& clock) noexcept : old_(current_clock.exchange(&clock)) {}

ScopedClock::~ScopedClock() { current_clock.store(old_); }

}  // namespace vk::tq
