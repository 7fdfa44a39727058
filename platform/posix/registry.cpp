#include "platform/path.h"
#include "platform/profile.h"
#include "platform/system_info.h"

namespace vk::tq {

std::wstring ReadRegistryString(std::wstring_view key, std::wstring_view value, std::size_t size) {
  const std::string hive =
      EnvironmentOverride("TQ_REGISTRY").value_or("/etc/velkorandia/registry.ini");
  return Profile(PathFromNative(hive)).GetString(key, value, L"", size);
}

}  // namespace vk::tq
