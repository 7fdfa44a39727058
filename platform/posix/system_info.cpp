#include "platform/system_info.h"

namespace vk::tq {

// Kernels count in a way of their own: by their numbers a current system would pass for an old one of Windows.
bool GetSystemVersion(SystemVersion& version) {
  version = {.platform = 3, .major = 10, .minor = 0, .product_type = 1};
  return true;
}

}  // namespace vk::tq
