/// Texts: code pages, case, white space, numbers, path splitting and printf-style formatting.
///
/// Nothing here depends on the C locale of the program, except the ANSI code page when
/// TQ_ANSI_CODEPAGE is not set.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

namespace vk::tq {

/// The active ANSI code page: TQ_ANSI_CODEPAGE, else the code set of the locale, else UTF-8.
inline constexpr unsigned kCodePageAnsi = 0;
/// Code page 932, what "Shift_JIS" means everywhere in the library.
inline constexpr unsigned kCodePage932 = 932;
inline constexpr unsigned kCodePageUtf16Le = 1200;
inline constexpr unsigned kCodePageUtf8 = 65001;

/// Wide text to bytes. A character that the code page lacks becomes '?' (in UTF-8, a lone surrogate
/// or a value that is no character becomes U+FFFD). Nothing when there is no such code page; the
/// last error is then 87.
std::optional<std::string> EncodeText(unsigned code_page, std::wstring_view text);

/// Bytes to wide text. Bytes that are no character become U+FFFD. Nothing when there is no such
/// code page (87). In UTF-8, the maximal prefix of an ill-formed sequence counts as one character,
/// as The Unicode Standard advises.
std::optional<std::wstring> DecodeText(unsigned code_page, std::string_view bytes);

/// The number of the ANSI code page in force, for example 932 or 65001. Read anew at each call.
unsigned AnsiCodePage();

/// Turns wide text into UTF-8 piece by piece. The text must outlive the encoder.
class Utf8Encoder {
 public:
  enum class End { kLastCharacter, kFirstNul };

  explicit Utf8Encoder(std::wstring_view text, End end = End::kLastCharacter);

  /// The number of bytes in all.
  std::size_t length() const { return length_; }
  /// Fills the buffer with the next bytes and gives their number, which is below the buffer's size
  /// only at the end of the text. A character that the end of the buffer cuts goes on with the next
  /// call.
  std::size_t Encode(std::span<unsigned char> buffer);

 private:
  std::wstring_view text_;
  std::size_t index_ = 0;
  std::size_t length_;
  std::array<unsigned char, 4> cut_off_{};  // what is left of a character
  std::size_t cut_off_size_ = 0;
};

/// Turns UTF-8 into wide text piece by piece: a character that is cut by the end of a piece comes
/// out whole with the next one.
class Utf8Decoder {
 public:
  /// Appends what the bytes complete.
  void Decode(std::string_view bytes, std::wstring& text);
  /// Tells that no more bytes follow: an incomplete character at the end becomes U+FFFD.
  void Finish(std::wstring& text);

 private:
  std::array<char, 4> pending_{};
  std::size_t pending_size_ = 0;
};

/// Upper case, character by character and in every script, full-width letters included.
std::wstring ToUpper(std::wstring_view text);

bool EqualsNoCase(std::wstring_view left, std::wstring_view right);

/// A hash value that texts have in common when they are equal without regard to case.
std::size_t HashNoCase(std::wstring_view text);

/// Without the white space at both ends; full-width blanks count as white space, as in iswspace.
std::wstring_view TrimView(std::wstring_view text);
inline std::wstring Trim(std::wstring_view text) { return std::wstring(TrimView(text)); }

/// Replaces every occurrence, from left to right, of a text that is not empty.
void ReplaceAll(std::wstring& text, std::wstring_view from, std::wstring_view to);

/// A text as one line of a file can hold it: each CR LF, CR and LF is a blank, and a NUL ends it.
std::wstring OnOneLine(std::wstring_view text);

/// The leading decimal number of a text: optional white space, a sign, digits. It stops at the
/// first other character, gives 0 for a text without digits, and saturates at the limits of 32
/// bits. This is _wtoi, and _wtol as well.
std::int32_t ParseInt(std::wstring_view text);

/// The four pieces of a path, as views into it.
struct PathPieces {
  std::wstring_view drive;      ///< "C:" or empty
  std::wstring_view directory;  ///< with its last separator, or empty
  std::wstring_view name;       ///< without the extension
  std::wstring_view extension;  ///< from its point on, or empty
};

/// Splits a path at its drive, its last separator (backslash or slash) and the last point behind
/// that.
PathPieces SplitPath(std::wstring_view path);

/// The extension as the shell sees it, from its point on: the last point behind the last backslash
/// and the last blank. Empty when there is none. A slash does not count as a separator here, and a
/// name with a blank behind its point has no extension.
std::wstring_view FindExtension(std::wstring_view path);

/// One argument of Format.
using FormatArgument =
    std::variant<int, unsigned, long long, unsigned long long, const void*, std::wstring_view>;

template <class T>
FormatArgument MakeFormatArgument(const T& value) {
  if constexpr (std::is_convertible_v<const T&, std::wstring_view>) {
    return std::wstring_view(value);
  } else if constexpr (std::is_pointer_v<T>) {
    return static_cast<const void*>(value);
  } else if constexpr (std::is_signed_v<T>) {
    if constexpr (sizeof(T) <= sizeof(int)) return static_cast<int>(value);
    return static_cast<long long>(value);
  } else {
    if constexpr (sizeof(T) <= sizeof(unsigned)) return static_cast<unsigned>(value);
    return static_cast<unsigned long long>(value);
  }
}

std::wstring FormatArguments(std::wstring_view format,
                             std::initializer_list<FormatArgument> arguments);

/// printf for wide text: %s takes wide text, and the sizes of numbers are those of the arguments.
/// Arguments behind those that the format asks for are ignored. Throws std::exception when there
/// are too few, or one has another type.
template <class... Arguments>
std::wstring Format(std::wstring_view format, const Arguments&... arguments) {
  return FormatArguments(format, {MakeFormatArgument(arguments)...});
}

}  // namespace vk::tq
