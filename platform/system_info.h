/// What the machine says about itself.
#pragma once

#include <cstdint>

namespace vk::tq {

/// The version of the operating system. The platform number is 1 for the Windows 9x line, 2 for the
/// Windows NT line and 3 for any other system. The product type is 1 for a workstation.
struct SystemVersion {
  std::uint32_t platform = 0;
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  std::uint32_t product_type = 0;
};

/// False, with the last error set, when the version cannot be had.
bool GetSystemVersion(SystemVersion& version);

}  // namespace vk::tq
