#pragma once

#include <cstdint>
#include <vector>

#include "platform/clock.h"

namespace vk::tq::testing {

// Stands still: the test moves it, and pauses take no time and are recorded.
class TestClock : public Clock {
 public:
  std::int64_t Now() override { return now; }
  std::uint32_t TickCount() override { return ticks; }
  void Sleep(std::uint32_t milliseconds) override { pauses.push_back(milliseconds); }

  std::int64_t now = 1'700'000'000;
  std::uint32_t ticks = 0;
  std::vector<std::uint32_t> pauses;
};

}  // namespace vk::tq::testing
