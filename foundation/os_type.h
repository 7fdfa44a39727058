/// Which system a version number stands for.
#pragma once

#include <array>

#include "platform/system_info.h"

namespace vk::tq {

/// 0 Windows 95, 1 98, 2 Me, 3 NT 4.0, 4 2000, 5 XP, 6 Server 2003, 7 everything else.
constexpr unsigned long OsTypeOf(const SystemVersion& version) {
  constexpr std::uint32_t kAnyMinor = 0xFFFFFFFF;
  struct Row {
    std::uint32_t platform, major, minor;
    unsigned long type;
  };
  constexpr std::array<Row, 7> kRows = {{
      {1, 4, 0, 0},
      {1, 4, 10, 1},
      {1, 4, 90, 2},
      {2, 4, kAnyMinor, 3},
      {2, 5, 0, 4},
      {2, 5, 1, 5},
      {2, 5, 2, 6},
  }};
  for (const Row& row : kRows) {
    if (row.platform == version.platform && row.major == version.major &&
        (row.minor == kAnyMinor || row.minor == version.minor)) {
      return row.type;
    }
  }
  return 7;
}

}  // namespace vk::tq
