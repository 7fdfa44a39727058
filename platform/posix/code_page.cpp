#include "platform/posix/code_page.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>

#include "platform/error.h"
#include "platform/posix/number.h"
#include "platform/posix/utf8.h"
#include "platform/secure_memory.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

// Code pages whose names are not "CP" and the number. Of several names of one number, iconv is
// asked for the first.
struct NamedCodePage {
  unsigned number;
  const char* name;
};
constexpr NamedCodePage kNamedCodePages[] = {
    {932, "CP932"},
    {932, "SHIFT_JIS"},
    {932, "SJIS"},
    {932, "WINDOWS-31J"},
    {936, "CP936"},
    {936, "GBK"},
    {936, "GB2312"},
    {949, "UHC"},
    {950, "BIG5"},
    {1201, "UTF-16BE"},
    {20127, "ASCII"},
    {20866, "KOI8-R"},
    {21866, "KOI8-U"},
    {28591, "ISO-8859-1"},
    {28592, "ISO-8859-2"},
    {28593, "ISO-8859-3"},
    {28594, "ISO-8859-4"},
    {28595, "ISO-8859-5"},
    {28596, "ISO-8859-6"},
    {28597, "ISO-8859-7"},
    {28598, "ISO-8859-8"},
    {28599, "ISO-8859-9"},
    {28603, "ISO-8859-13"},
    {28605, "ISO-8859-15"},
    {50220, "ISO-2022-JP"},
    {51932, "EUC-JP"},
    {20932, "EUC-JP"},
    {51949, "EUC-KR"},
    {54936, "GB18030"},
    {65000, "UTF-7"},
    {kCodePageUtf8, "UTF-8"},
    // What the locales "C" and "POSIX" name: they say nothing about the encoding of texts.
    {kCodePageUtf8, "ANSI_X3.4-1968"},
};

// The ANSI code pages. In each the first 128 bytes are ASCII, wherever they stand outside a double
// byte, so that texts of ASCII alone need no table.
constexpr bool IsAnsiCodePage(unsigned code_page) {
  return code_page == 874 || code_page == 932 || code_page == 936 || code_page == 949 ||
         code_page == 950 || (code_page >= 1250 && code_page <= 1258);
}

constexpr bool IsDoubleByte(unsigned code_page) {
  return IsAnsiCodePage(code_page) && code_page >= 932 && code_page <= 950;
}

constexpr bool IsLeadByte(unsigned code_page, unsigned char byte) {
  if (code_page == kCodePage932) {
    return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
  }
  return byte >= 0x81 && byte <= 0xFE;
}

// Single bytes of code page 932 that iconv does not know.
struct SingleByte {
  unsigned char byte;
  wchar_t character;
};
constexpr SingleByte kSingleBytes932[] = {
    {0x80, 0x80}, {0xA0, 0xA0}, {0xFD, 0xF8F1}, {0xFE, 0xF8F2}, {0xFF, 0xF8F3}};

class Converter {
 public:
  Converter(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (is_open()) iconv_close(handle_);
  }

  // NOLINTNEXTLINE(performance-no-int-to-ptr): POSIX defines the value so
  bool is_open() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

  // Appends what the input gives, as far as it can be converted, and removes it from the input.
  // 0 at the end of the input, else EILSEQ or EINVAL for what follows.
  template <class From, class To>
  int Append(std::basic_string_view<From>& input, std::basic_string<To>& output) {
    auto* from = const_cast<char*>(reinterpret_cast<const char*>(input.data()));
    std::size_t left = input.size() * sizeof(From);
    const int result = Run(&from, &left, output);
    input.remove_prefix(input.size() - left / sizeof(From));
    return result;
  }

  // Appends what brings a code page with shifts back to its first state.
  void Finish(std::string& output) { Run(nullptr, nullptr, output); }

 private:
  template <class To>
  int Run(char** from, std::size_t* left, std::basic_string<To>& output) {
    std::array<To, 1024> block;
    for (;;) {
      char* to = reinterpret_cast<char*>(block.data());
      std::size_t room = sizeof block;
      const bool is_done = iconv(handle_, from, left, &to, &room) != static_cast<std::size_t>(-1);
      const int error = is_done ? 0 : errno;
      const std::size_t used = block.size() - room / sizeof(To);
      output.append(block.data(), used);
      SecureZero(block.data(), used * sizeof(To));
      if (error != E2BIG) return error;
    }
  }

  iconv_t handle_;
};

std::string IconvName(unsigned code_page) {
  const auto named = std::ranges::find(kNamedCodePages, code_page, &NamedCodePage::number);
  return named != std::end(kNamedCodePages) ? named->name : "CP" + std::to_string(code_page);
}

constexpr bool IsAscii(char32_t c) { return c < 0x80; }

std::optional<wchar_t> SingleByteCharacter(unsigned code_page, char byte) {
  const auto found =
      std::ranges::find(kSingleBytes932, static_cast<unsigned char>(byte), &SingleByte::byte);
  if (code_page != kCodePage932 || found == std::end(kSingleBytes932)) return std::nullopt;
  return found->character;
}

std::optional<char> ByteOfSingleCharacter(unsigned code_page, wchar_t character) {
  const auto found = std::ranges::find(kSingleBytes932, character, &SingleByte::character);
  if (code_page != kCodePage932 || found == std::end(kSingleBytes932)) return std::nullopt;
  return static_cast<char>(found->byte);
}

// How many bytes that are no character one U+FFFD stands for. An ASCII byte behind a lead byte is
// kept: it is more likely a character than the second half of a damaged one.
std::size_t UndecodableLength(unsigned code_page, std::string_view bytes) {
  const bool is_pair = IsDoubleByte(code_page) && bytes.size() >= 2 &&
                       IsLeadByte(code_page, static_cast<unsigned char>(bytes[0])) &&
                       !IsAscii(static_cast<unsigned char>(bytes[1]));
  return is_pair ? 2 : 1;
}

// Pairs of surrogates as the characters that they stand for.
std::wstring CodePoints(std::wstring_view text) {
  std::wstring code_points;
  code_points.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    code_points += static_cast<wchar_t>(ReadCodePoint(text, i));
  }
  return code_points;
}

}  // namespace

std::optional<unsigned> CodePageOfCodeSet(std::string_view code_set) {
  for (const auto& page : kNamedCodePages) {
    if (code_set == page.name) return page.number;
  }
  if (!code_set.starts_with("CP")) return std::nullopt;
  return WholeNumber<unsigned>(code_set.substr(2));
}

std::optional<std::string> EncodeByTable(unsigned code_page, std::wstring_view text) {
  if (IsAnsiCodePage(code_page) && std::ranges::all_of(text, IsAscii)) {
    return std::string(text.begin(), text.end());
  }
  Converter converter(IconvName(code_page).c_str(), "WCHAR_T");
  if (!converter.is_open()) {
    SetLastError(kErrorInvalidParameter);
    return std::nullopt;
  }
  std::wstring code_points = CodePoints(text);
  const WipeOnExit wipe(code_points);
  std::wstring_view input = code_points;
  std::string bytes;
  bytes.reserve(input.size() * 2);
  while (converter.Append(input, bytes) != 0) {
    if (const auto byte = ByteOfSingleCharacter(code_page, input.front())) {
      bytes += *byte;
    } else {
      std::wstring_view question_mark = L"?";
      converter.Append(question_mark, bytes);
    }
    input.remove_prefix(1);
  }
  converter.Finish(bytes);
  return bytes;
}

std::optional<std::wstring> DecodeByTable(unsigned code_page, std::string_view bytes) {
  std::wstring text;
  if (IsAnsiCodePage(code_page)) {
    const auto* const ascii_end = std::ranges::find_if_not(
        bytes, [](char byte) { return IsAscii(static_cast<unsigned char>(byte)); });
    text.reserve(bytes.size());
    text.assign(bytes.begin(), ascii_end);
    bytes.remove_prefix(text.size());
    if (bytes.empty()) return text;
  }
  Converter converter("WCHAR_T", IconvName(code_page).c_str());
  if (!converter.is_open()) {
    SetLastError(kErrorInvalidParameter);
    return std::nullopt;
  }
  while (const int error = converter.Append(bytes, text)) {
    if (const auto character = SingleByteCharacter(code_page, bytes.front())) {
      text += *character;
      bytes.remove_prefix(1);
    } else {
      text += static_cast<wchar_t>(kReplacementCharacter);
      bytes.remove_prefix(error == EINVAL ? bytes.size() : UndecodableLength(code_page, bytes));
    }
  }
  return text;
}

}  // namespace vk::tq
