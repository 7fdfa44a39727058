/// Where the files of the product lie.
#pragma once

#include "foundation/util.h"
#include "platform/path.h"
#include "platform/types.h"

namespace vk::tq {

/// The product's folder below a special folder.
inline constexpr wchar_t kProductFolder[] = L"\\ORV-INC\\Velkorandia\\Tessaloquin";

/// A path below the product data folder, for example of L"\\config\\Client.ini". The folder is
/// asked for at each use.
inline CString ProductPath(const wchar_t* tail) {
  return CUtil::GetSpecialFolderPath(kFolderCommonAppData) + kProductFolder + tail;
}

}  // namespace vk::tq
