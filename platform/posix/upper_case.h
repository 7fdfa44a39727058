// Upper case of one character, for the comparisons of this folder.
#pragma once

namespace vk::tq {

// For characters beyond ASCII.
wchar_t ToUpperByTable(wchar_t c) noexcept;

inline wchar_t ToUpperCharacter(wchar_t c) noexcept {
  if (static_cast<unsigned>(c) >= 0x80) return ToUpperByTable(c);
  return c >= L'a' && c <= L'z' ? c - (L'a' - L'A') : c;
}

}  // namespace vk::tq
