/// The two INI files that CClientSetting works on.
#pragma once

#include <cstddef>

#include "foundation/util.h"
#include "platform/path.h"
#include "platform/types.h"

namespace vk::tq::client_keys {

inline constexpr wchar_t kClientIni[] = L"\\config\\Client.ini";
inline constexpr wchar_t kPrintProcessorIni[] = L"\\PrintProcessor\\config.ini";

inline constexpr const wchar_t* kSettingSection = L"Setting";
inline constexpr const wchar_t* kThreadSection = L"Thread";

/// What stands in front of the default of a local directory.
inline constexpr const wchar_t* kDefaultFolder =
    L"C:\\Documents and Settings\\All Users\\Application Data\\ORV-INC\\Velkorandia\\Tessaloquin\\";

/// Characters, the terminator included.
inline constexpr std::size_t kValueBuffer = 1024;

/// A file below the product data folder. The folder is asked for at each use.
inline CString ProductFile(const wchar_t* tail) {
  return CUtil::GetSpecialFolderPath(kFolderCommonAppData) +
         L"\\ORV-INC\\Velkorandia\\Tessaloquin" + tail;
}

}  // namespace vk::tq::client_keys
