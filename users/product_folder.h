/// Where the files of the product lie.
#pragma once

namespace vk::tq {

/// The product's folder below a special folder.
inline constexpr wchar_t kProductFolder[] = L"\\ORV-INC\\Velkorandia\\Tessaloquin";

}  // namespace vk::tq
