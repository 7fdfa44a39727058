/// The two INI files that CClientSetting works on.
#pragma once

#include <cstddef>

#include "foundation/product_folder.h"

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

}  // namespace vk::tq::client_keys
