// UTF-8 (RFC 3629) and wide text, character by character and in bulk.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vk::tq {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;

// One character of a UTF-8 text, or the longest piece that begins like one.
struct Utf8Character {
  enum class State { kValid, kIllFormed, kCutOff };

  bool is_valid() const { return state == State::kValid; }

  State state = State::kIllFormed;
  char32_t value = kReplacementCharacter;
  std::size_t length = 1;
};

// Reads the character that a text, which is not empty, begins with.
Utf8Character ReadUtf8(std::string_view bytes) noexcept;

// The code point at an index, which is moved behind it. A pair of surrogates counts as the
// character that it stands for; a lone one, and a value beyond Unicode, as U+FFFD.
char32_t ReadCodePoint(std::wstring_view text, std::size_t& index) noexcept;

void AppendUtf8Character(char32_t character, std::string& bytes);

// Appends a whole text.
void AppendToUtf8(std::wstring_view text, std::string& bytes);

// Appends a whole text; gives the number of bytes at its end that only begin a character, and
// leaves them out.
std::size_t AppendFromUtf8(std::string_view bytes, std::wstring& text);

}  // namespace vk::tq
