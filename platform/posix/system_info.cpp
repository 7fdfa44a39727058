#include "platform/system_info.h"

#include <sys/utsname.h>

#include <charconv>
#include <string_view>

#include "platform/posix/native.h"

namespace vk::tq {
namespace {

// Cuts the number off that a text begins with, and the point behind it.
std::uint32_t CutNumber(std::string_view& text) {
  std::uint32_t number = 0;
  const auto [end, ignored] = std::from_chars(text.data(), text.data() + text.size(), number);
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  if (text.starts_with('.')) text.remove_prefix(1);
  return number;
}

}  // namespace

bool GetSystemVersion(SystemVersion& version) {
  utsname names{};
  if (uname(&names) != 0) return FailWithErrno();
  std::string_view release = names.release;
  version.platform = 3;
  version.major = CutNumber(release);
  version.minor = CutNumber(release);
  version.product_type = 1;
  return true;
}

}  // namespace vk::tq
