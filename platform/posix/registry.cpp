#include <utility>

#include "platform/path.h"
#include "platform/profile.h"
#include "platform/system_info.h"

namespace vk::tq {

std::wstring ReadRegistryString(std::wstring_view key, std::wstring_view value, std::size_t size) {
  const std::string hive =
      EnvironmentOverride("TQ_REGISTRY").value_or("/etc/velkorandia/registry.ini");
  // One more, to tell what does not fit.
  std::wstring text = Profile(PathFromNative(hive)).GetString(key, value, L"", size + 1);
  return text.size() < size ? std::move(text) : std::wstring();
}

}  // namespace vk::tq
