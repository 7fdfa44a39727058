// The code pages that libc's iconv converts, under their numbers.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vk::tq {

// The number of a code set that a locale names, for example "UTF-8" or "EUC-JP"; nothing when it is
// not known here.
std::optional<unsigned> CodePageOfCodeSet(std::string_view code_set);

// EncodeText and DecodeText for every code page but those of Unicode.
std::optional<std::string> EncodeByTable(unsigned code_page, std::wstring_view text);
std::optional<std::wstring> DecodeByTable(unsigned code_page, std::string_view bytes);

}  // namespace vk::tq
