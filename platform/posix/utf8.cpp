#include "platform/posix/utf8.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "platform/posix/native.h"
#include "platform/secure_memory.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

using Byte = unsigned char;
using State = Utf8Character::State;

// Texts are converted by blocks of this many characters, which stay in the nearest cache. A block
// on the stack is wiped, since the text may be a secret.
constexpr std::size_t kBlock = 1024;

constexpr bool IsHighSurrogate(char32_t c) { return (c & 0xFFFFFC00) == 0xD800; }
constexpr bool IsLowSurrogate(char32_t c) { return (c & 0xFFFFFC00) == 0xDC00; }
constexpr bool IsSurrogate(char32_t c) { return (c & 0xFFFFF800) == 0xD800; }

// 1 when a value lies above a limit, both below 2^31; without a branch.
constexpr std::uint32_t IsAbove(std::uint32_t limit, std::uint32_t value) {
  return (limit - value) >> 31;
}

// The characters of three bytes below the surrogates, which Japanese text mostly consists of, are
// converted by groups where the order of the bytes in memory allows it. A test and a conversion
// without branches let the compiler use vector instructions.
constexpr std::ptrdiff_t kGroup = 32;
using Group = std::array<std::uint32_t, kGroup>;
constexpr bool kHasGroups = std::endian::native == std::endian::little;

// The second byte of a character has a narrower range behind some first bytes, which shuts out
// overlong forms, surrogates and values beyond U+10FFFF.
struct Lead {
  std::size_t length;
  char32_t bits;
  Byte low = 0x80;
  Byte high = 0xBF;
};

constexpr Lead LeadOf(Byte byte) {
  if (byte >= 0xC2 && byte <= 0xDF) return {2, byte & 0x1Fu};
  if (byte == 0xE0) return {3, 0, 0xA0};
  if (byte == 0xED) return {3, 0xD, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return {3, byte & 0x0Fu};
  if (byte == 0xF0) return {4, 0, 0x90};
  if (byte >= 0xF1 && byte <= 0xF3) return {4, byte & 0x07u};
  if (byte == 0xF4) return {4, 4, 0x80, 0x8F};
  return {1, kReplacementCharacter};
}

Utf8Character Read(const Byte* begin, const Byte* end) {
  if (*begin < 0x80) return {State::kValid, *begin, 1};
  const Lead lead = LeadOf(*begin);
  if (lead.length == 1) return {};
  char32_t value = lead.bits;
  Byte low = lead.low;
  Byte high = lead.high;
  for (std::size_t i = 1; i < lead.length; ++i) {
    if (begin + i == end) return {State::kCutOff, kReplacementCharacter, i};
    const Byte byte = begin[i];
    if (byte < low || byte > high) return {State::kIllFormed, kReplacementCharacter, i};
    value = value << 6 | (byte & 0x3Fu);
    low = 0x80;
    high = 0xBF;
  }
  return {State::kValid, value, lead.length};
}

// Widens ASCII until the first other byte or the end of either side.
void WidenAscii(const Byte*& from, const Byte* from_end, wchar_t*& to, const wchar_t* to_end) {
  constexpr std::ptrdiff_t kStep = 16;
  const std::ptrdiff_t room = std::min(from_end - from, static_cast<std::ptrdiff_t>(to_end - to));
  const Byte* const last = from + room;
  while (last - from >= kStep) {
    std::array<std::uint64_t, 2> words;
    std::memcpy(words.data(), from, sizeof words);
    if (((words[0] | words[1]) & 0x8080808080808080u) != 0) break;
    for (std::ptrdiff_t i = 0; i < kStep; ++i) to[i] = static_cast<wchar_t>(from[i]);
    from += kStep;
    to += kStep;
  }
  while (from != last && *from < 0x80) *to++ = static_cast<wchar_t>(*from++);
}

// Reads groups of characters of three bytes as long as there are some.
void ReadThrees(const Byte*& from, const Byte* from_end, wchar_t*& to, const wchar_t* to_end) {
  while (kHasGroups && from_end - from > 3 * kGroup && to_end - to >= kGroup &&
         ((from[3] & from[3 * kGroup / 2] & from[3 * kGroup - 3]) & 0xF0) == 0xE0) {
    Group group;
    // The fourth byte of each is the first of the next.
    for (std::size_t i = 0; i < kGroup; ++i) std::memcpy(&group[i], from + 3 * i, sizeof group[i]);
    std::uint32_t others = 0;
    for (std::uint32_t& bytes : group) {
      const std::uint32_t c = (bytes & 0xF) << 12 | (bytes >> 2 & 0xFC0) | (bytes >> 16 & 0x3F);
      others |= ((bytes & 0xC0C0F0) ^ 0x8080E0) | IsAbove(c, 0x800) | IsAbove(0xD7FF, c);
      bytes = c;
    }
    if (others != 0) break;
    for (const std::uint32_t c : group) *to++ = static_cast<wchar_t>(c);
    from += 3 * kGroup;
  }
}

// Fills a block of wide text; stops early at a character that the end cuts off.
wchar_t* DecodeBlock(const Byte*& from, const Byte* from_end, wchar_t* to, const wchar_t* to_end) {
  while (from != from_end && to != to_end) {
    if (*from < 0x80) {
      WidenAscii(from, from_end, to, to_end);
      continue;
    }
    ReadThrees(from, from_end, to, to_end);
    const wchar_t* const next_try = to + std::min<std::ptrdiff_t>(to_end - to, kGroup);
    while (from != from_end && to != next_try && *from >= 0x80) {
      const Utf8Character character = Read(from, from_end);
      if (character.state == State::kCutOff) return to;
      *to++ = static_cast<wchar_t>(character.value);
      from += character.length;
    }
  }
  return to;
}

Byte* Write(char32_t c, Byte* to) {
  const auto tail = [](char32_t bits) { return static_cast<Byte>(0x80 | (bits & 0x3F)); };
  if (c < 0x80) {
    *to++ = static_cast<Byte>(c);
  } else if (c < 0x800) {
    *to++ = static_cast<Byte>(0xC0 | c >> 6);
    *to++ = tail(c);
  } else if (c < 0x10000) {
    *to++ = static_cast<Byte>(0xE0 | c >> 12);
    *to++ = tail(c >> 6);
    *to++ = tail(c);
  } else {
    *to++ = static_cast<Byte>(0xF0 | c >> 18);
    *to++ = tail(c >> 12);
    *to++ = tail(c >> 6);
    *to++ = tail(c);
  }
  return to;
}

std::size_t LengthOf(char32_t c) { return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4; }

// Whether a block is ASCII without a NUL.
bool IsAscii(std::wstring_view block) {
  std::uint32_t others = 0;
  for (const wchar_t unit : block) {
    const auto c = static_cast<std::uint32_t>(unit);
    others |= c | (c - 1);
  }
  return others < 0x80;
}

// What the characters of a block are; without a branch for each, and short enough for the compiler
// to make good use of vector instructions.
struct Block {
  std::uint32_t more = 0;       // bytes beyond one for each character, when there are no others
  std::uint32_t has_nul = 0;    // not zero when there is one
  std::uint32_t has_other = 0;  // not zero when there is one above U+D7FF

  explicit Block(std::wstring_view text) {
    for (const wchar_t unit : text) {
      const auto c = static_cast<std::int32_t>(unit);
      more += static_cast<std::uint32_t>(c > 0x7F) + static_cast<std::uint32_t>(c > 0x7FF);
      has_nul |= static_cast<std::uint32_t>(c == 0);
      has_other |= static_cast<std::uint32_t>(c > 0xD7FF) | static_cast<std::uint32_t>(c < 0);
    }
  }
};

// The number of bytes that a block has in UTF-8 beyond one for each character; nothing when it
// holds a surrogate or what lies beyond Unicode.
std::optional<std::size_t> CountMoreBytes(std::wstring_view block) {
  std::uint32_t more = 0;
  std::uint32_t others = 0;
  for (const wchar_t unit : block) {
    const auto c = static_cast<std::uint32_t>(unit);
    more += IsAbove(0x7F, c) + IsAbove(0x7FF, c) + IsAbove(0xFFFF, c);
    others |= (IsAbove(0xD7FF, c) - IsAbove(0xDFFF, c)) | IsAbove(0x10FFFF, c) | c >> 31;
  }
  if (others != 0) return {};
  return more;
}

// The number of bytes of a text's UTF-8 form. The text is cut at its first NUL if that ends it.
std::size_t CountUtf8(std::wstring_view& text, bool ends_at_nul) {
  std::size_t size = 0;
  for (std::size_t index = 0; index < text.size();) {
    const std::wstring_view block = text.substr(index, kBlock);
    const std::size_t end = index + block.size();
    if (block.front() < 0x80 && IsAscii(block)) {
      size += block.size();
      index = end;
      continue;
    }
    const Block seen(block);
    if (ends_at_nul && seen.has_nul != 0) {
      text = text.substr(0, index + block.find(L'\0'));
      ends_at_nul = false;
      continue;
    }
    if (const std::optional<std::size_t> more =
            seen.has_other == 0 ? seen.more : CountMoreBytes(block)) {
      size += block.size() + *more;
      index = end;
    }
    while (index < end) size += LengthOf(ReadCodePoint(text, index));
  }
  return size;
}

// Narrows ASCII until the first other character.
Byte* NarrowAscii(const wchar_t*& from, const wchar_t* from_end, Byte* to) {
  constexpr std::ptrdiff_t kStep = 64;
  while (from_end - from >= kStep) {
    std::uint32_t all = 0;
    for (std::ptrdiff_t i = 0; i < kStep; ++i) all |= static_cast<std::uint32_t>(from[i]);
    if (all >= 0x80) break;
    for (std::ptrdiff_t i = 0; i < kStep; ++i) to[i] = static_cast<Byte>(from[i]);
    from += kStep;
    to += kStep;
  }
  while (from != from_end && static_cast<std::uint32_t>(*from) < 0x80) {
    *to++ = static_cast<Byte>(*from++);
  }
  return to;
}

constexpr bool IsThreeBytes(std::uint32_t c) { return c >= 0x800 && c < 0xD800; }

// Writes groups of characters of three bytes as long as there are some, then single ones.
Byte* WriteThrees(const wchar_t*& from, const wchar_t* from_end, Byte* to, const Byte* end) {
  while (kHasGroups && from_end - from >= kGroup && end - to > 3 * kGroup &&
         std::min({from[1], from[kGroup / 2], from[kGroup - 1]}) >= 0x800) {
    Group group;
    std::uint32_t others = 0;
    for (std::size_t i = 0; i < kGroup; ++i) {
      const auto c = static_cast<std::uint32_t>(from[i]);
      others |= IsAbove(c, 0x800) | IsAbove(0xD7FF, c) | c >> 31;
      group[i] = 0x8080E0 | c >> 12 | (c & 0xFC0) << 2 | (c & 0x3F) << 16;
    }
    if (others != 0) break;
    // The fourth byte of each is overwritten by the next.
    for (std::size_t i = 0; i < kGroup; ++i) std::memcpy(to + 3 * i, &group[i], sizeof group[i]);
    from += kGroup;
    to += 3 * kGroup;
  }
  const wchar_t* const last = from + std::min({from_end - from, (end - to) / 3, kGroup});
  while (from != last && IsThreeBytes(static_cast<std::uint32_t>(*from))) {
    to = Write(static_cast<char32_t>(*from++), to);
  }
  return to;
}

// Encodes as long as the longest character has room.
Byte* EncodeRun(std::wstring_view text, std::size_t& index, Byte* to, const Byte* end) {
  const wchar_t* from = text.data() + index;
  const wchar_t* const from_end = text.data() + text.size();
  while (from != from_end && end - to >= 4) {
    const auto c = static_cast<std::uint32_t>(*from);
    if (c < 0x80) {
      to = NarrowAscii(from, from + std::min(from_end - from, end - to), to);
    } else if (IsThreeBytes(c)) {
      to = WriteThrees(from, from_end, to, end);
    } else {
      index = static_cast<std::size_t>(from - text.data());
      to = Write(ReadCodePoint(text, index), to);
      from = text.data() + index;
    }
  }
  index = static_cast<std::size_t>(from - text.data());
  return to;
}

}  // namespace

Utf8Character ReadUtf8(std::string_view bytes) noexcept {
  const auto* const begin = reinterpret_cast<const Byte*>(bytes.data());
  return Read(begin, begin + bytes.size());
}

char32_t ReadCodePoint(std::wstring_view text, std::size_t& index) noexcept {
  const auto c = static_cast<char32_t>(text[index++]);
  if (IsHighSurrogate(c) && index < text.size()) {
    const auto next = static_cast<char32_t>(text[index]);
    if (IsLowSurrogate(next)) {
      ++index;
      return 0x10000 + ((c & 0x3FF) << 10) + (next & 0x3FF);
    }
  }
  return IsSurrogate(c) || c > 0x10FFFF ? kReplacementCharacter : c;
}

void AppendUtf8Character(char32_t character, std::string& bytes) {
  std::array<Byte, 4> buffer{};
  const Byte* const end = Write(character, buffer.data());
  for (const Byte* byte = buffer.data(); byte != end; ++byte) bytes += static_cast<char>(*byte);
}

void AppendToUtf8(std::wstring_view text, std::string& bytes) {
  Utf8Encoder encoder(text);
  const std::size_t old_size = bytes.size();
  bytes.resize(old_size + encoder.length());
  encoder.Encode({reinterpret_cast<Byte*>(bytes.data()) + old_size, encoder.length()});
}

std::size_t AppendFromUtf8(std::string_view bytes, std::wstring& text) {
  const auto begins_character = [](char byte) { return (static_cast<Byte>(byte) & 0xC0) != 0x80; };
  text.reserve(text.size() +
               static_cast<std::size_t>(std::ranges::count_if(bytes, begins_character)));

  const auto* from = reinterpret_cast<const Byte*>(bytes.data());
  const Byte* const end = from + bytes.size();
  std::array<wchar_t, kBlock> block;
  std::size_t most = 0;
  while (from != end) {
    const wchar_t* const to = DecodeBlock(from, end, block.data(), block.data() + block.size());
    const auto used = static_cast<std::size_t>(to - block.data());
    if (used == 0) break;
    text.append(block.data(), used);
    most = std::max(most, used);
  }
  SecureZero(block.data(), most * sizeof(wchar_t));
  return static_cast<std::size_t>(end - from);
}

Utf8Encoder::Utf8Encoder(std::wstring_view text, End end)
    : text_(text), length_(CountUtf8(text_, end == End::kFirstNul)) {}

std::size_t Utf8Encoder::Encode(std::span<unsigned char> buffer) {
  Byte* to = buffer.data();
  Byte* const end = to + buffer.size();
  for (;;) {
    const auto room = static_cast<std::size_t>(end - to);
    const std::size_t carried = std::min(cut_off_size_, room);
    to = std::copy_n(cut_off_.begin(), carried, to);
    std::copy(cut_off_.begin() + carried, cut_off_.end(), cut_off_.begin());
    cut_off_size_ -= carried;
    if (to == end || index_ == text_.size()) return static_cast<std::size_t>(to - buffer.data());

    to = EncodeRun(text_, index_, to, end);
    if (to != end && index_ != text_.size()) {
      Byte* const cut_off = cut_off_.data();
      cut_off_size_ =
          static_cast<std::size_t>(Write(ReadCodePoint(text_, index_), cut_off) - cut_off);
    }
  }
}

void Utf8Decoder::Decode(std::string_view bytes, std::wstring& text) {
  while (pending_size_ > 0 && !bytes.empty()) {
    pending_[pending_size_++] = bytes.front();
    const Utf8Character character = ReadUtf8({pending_.data(), pending_size_});
    if (character.state == State::kCutOff) {
      bytes.remove_prefix(1);
      continue;
    }
    // The last byte either completed the character or belongs to the next one.
    text += static_cast<wchar_t>(character.value);
    if (character.is_valid()) bytes.remove_prefix(1);
    pending_size_ = 0;
  }
  const std::size_t cut_off = AppendFromUtf8(bytes, text);
  pending_size_ += bytes.copy(pending_.data() + pending_size_, cut_off, bytes.size() - cut_off);
}

void Utf8Decoder::Finish(std::wstring& text) {
  if (pending_size_ > 0) text += static_cast<wchar_t>(kReplacementCharacter);
  pending_size_ = 0;
}

}  // namespace vk::tq
