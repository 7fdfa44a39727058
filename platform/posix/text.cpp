#include "platform/text.h"

#include <fmt/args.h>
#include <fmt/printf.h>
#include <fmt/xchar.h>
#include <langinfo.h>
#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>

#include "platform/error.h"
#include "platform/path.h"
#include "platform/posix/code_page.h"
#include "platform/posix/number.h"
#include "platform/posix/upper_case.h"
#include "platform/posix/utf8.h"

namespace vk::tq {
namespace {

constexpr unsigned kCodePageUtf16Be = 1201;

// A locale object, apart from the locale of the program.
class Locale {
 public:
  explicit Locale(const char* name) : handle_(newlocale(LC_CTYPE_MASK, name, nullptr)) {}
  Locale(const Locale&) = delete;
  Locale& operator=(const Locale&) = delete;
  ~Locale() {
    if (handle_ != nullptr) freelocale(handle_);
  }
  locale_t get() const { return handle_; }

 private:
  locale_t handle_;
};

// The one that is kept is never freed: other static objects may still compare texts when the program
// ends. Where there is none for want of memory, the next call tries again.
locale_t UnicodeLocale() noexcept {
  static std::atomic<locale_t> kept = nullptr;
  if (const locale_t known = kept.load(std::memory_order_acquire)) return known;
  locale_t made = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const bool is_final = made != nullptr || errno == ENOENT;
  if (made == nullptr) made = newlocale(LC_CTYPE_MASK, "C", nullptr);  // libc has it ready
  locale_t other = nullptr;
  if (!is_final || kept.compare_exchange_strong(other, made)) return made;
  freelocale(made);
  return other;
}

// The property White_Space of Unicode.
constexpr bool IsWhiteSpace(wchar_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
         c == 0x3000;
}

std::string EncodeUtf16Le(std::wstring_view text) {
  std::string bytes;
  bytes.reserve(2 * text.size());
  const auto append = [&](char32_t unit) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  };
  for (std::size_t i = 0; i < text.size();) {
    const char32_t c = ReadCodePoint(text, i);
    if (c < 0x10000) {
      append(c);
    } else {
      append(0xD7C0 + (c >> 10));
      append(0xDC00 | (c & 0x3FF));
    }
  }
  return bytes;
}

std::wstring DecodeUtf16Le(std::string_view bytes) {
  std::wstring units;
  units.reserve(bytes.size() / 2 + 1);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    const auto low = static_cast<unsigned char>(bytes[i]);
    const auto high = static_cast<unsigned char>(bytes[i + 1]);
    units += static_cast<wchar_t>(low | high << 8);
  }
  if (bytes.size() % 2 != 0) units += static_cast<wchar_t>(kReplacementCharacter);
  // A code point takes no more room than its units: the text is made in their place.
  std::size_t size = 0;
  for (std::size_t i = 0; i < units.size();) {
    units[size++] = static_cast<wchar_t>(ReadCodePoint(units, i));
  }
  units.resize(size);
  return units;
}

// The code page of the locale that the environment names. Opening a locale takes longer than most
// texts, so the thread remembers the last one.
unsigned LocaleCodePage() {
  std::string name = "C";
  for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    if (const auto value = EnvironmentOverride(variable)) {
      name = *value;
      break;
    }
  }
  thread_local std::string known_name;
  thread_local unsigned known_code_page = kCodePageUtf8;
  if (name != known_name) {
    const Locale locale(name.c_str());
    const char* const code_set =
        locale.get() != nullptr ? nl_langinfo_l(CODESET, locale.get()) : "UTF-8";
    known_code_page = CodePageOfCodeSet(code_set).value_or(kCodePageUtf8);
    known_name = name;
  }
  return known_code_page;
}

// The upper case of an ASCII letter, and any other character as it is, without a branch.
std::uint32_t ToUpperAscii(wchar_t c) {
  const auto code = static_cast<std::uint32_t>(c);
  return code - (code - L'a' < 26 ? L'a' - L'A' : 0);
}

}  // namespace

wchar_t ToUpperByTable(wchar_t c) noexcept {
  return static_cast<wchar_t>(towupper_l(static_cast<wint_t>(c), UnicodeLocale()));
}

unsigned AnsiCodePage() {
  if (const auto value = EnvironmentOverride("TQ_ANSI_CODEPAGE")) {
    const auto number = WholeNumber<unsigned>(*value);
    const bool is_ansi = number && *number != kCodePageAnsi && *number != kCodePageUtf16Le &&
                         *number != kCodePageUtf16Be;
    if (is_ansi) return *number;
  }
  return LocaleCodePage();
}

std::optional<std::string> EncodeText(unsigned code_page, std::wstring_view text) {
  if (code_page == kCodePageAnsi) code_page = AnsiCodePage();
  if (code_page == kCodePageUtf16Le) return EncodeUtf16Le(text);
  if (code_page != kCodePageUtf8) return EncodeByTable(code_page, text);
  std::string bytes;
  AppendToUtf8(text, bytes);
  return bytes;
}

std::optional<std::wstring> DecodeText(unsigned code_page, std::string_view bytes) {
  if (code_page == kCodePageAnsi) code_page = AnsiCodePage();
  if (code_page == kCodePageUtf16Le) return DecodeUtf16Le(bytes);
  if (code_page != kCodePageUtf8) return DecodeByTable(code_page, bytes);
  std::wstring text;
  if (AppendFromUtf8(bytes, text) > 0) text += static_cast<wchar_t>(kReplacementCharacter);
  return text;
}

std::wstring ToUpper(std::wstring_view text) {
  std::wstring upper(text);
  std::ranges::transform(upper, upper.begin(), ToUpperCharacter);
  return upper;
}

bool EqualsNoCase(std::wstring_view left, std::wstring_view right) {
  if (left.size() != right.size()) return false;
  // Without a branch in it, the loop is done in a few wide steps.
  std::uint32_t all = 0;
  std::uint32_t difference = 0;
  for (std::size_t i = 0; i < left.size(); ++i) {
    all |= static_cast<std::uint32_t>(left[i] | right[i]);
    difference |= ToUpperAscii(left[i]) ^ ToUpperAscii(right[i]);
  }
  if (difference == 0) return true;
  return all >= 0x80 && std::ranges::equal(left, right, {}, ToUpperCharacter, ToUpperCharacter);
}

// FNV-1a over whole characters; its upper half is the better one.
std::size_t HashNoCase(std::wstring_view text) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const wchar_t c : text) {
    hash = (hash ^ static_cast<std::uint32_t>(ToUpperCharacter(c))) * 0x100000001B3;
  }
  return static_cast<std::size_t>(hash ^ hash >> 32);
}

std::wstring_view TrimView(std::wstring_view text) {
  const auto* const begin = std::ranges::find_if_not(text, IsWhiteSpace);
  text.remove_prefix(static_cast<std::size_t>(begin - text.begin()));
  while (!text.empty() && IsWhiteSpace(text.back())) text.remove_suffix(1);
  return text;
}

void ReplaceAll(std::wstring& text, std::wstring_view from, std::wstring_view to) {
  std::size_t hit = text.find(from);
  if (from.empty() || hit == text.npos) return;
  std::wstring replaced;
  replaced.reserve(text.size());
  std::size_t begin = 0;
  for (; hit != text.npos; hit = text.find(from, begin)) {
    replaced.append(text, begin, hit - begin).append(to);
    begin = hit + from.size();
  }
  text = replaced.append(text, begin);
}

std::wstring OnOneLine(std::wstring_view text) {
  std::wstring line(text.substr(0, text.find(L'\0')));
  for (const wchar_t* const line_break : {L"\r\n", L"\r", L"\n"})
    ReplaceAll(line, line_break, L" ");
  return line;
}

std::int32_t ParseInt(std::wstring_view text) {
  while (!text.empty() && IsWhiteSpace(text.front())) text.remove_prefix(1);
  const bool is_negative = text.starts_with(L'-');
  if (is_negative || text.starts_with(L'+')) text.remove_prefix(1);
  constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
  const std::int64_t limit = is_negative ? kMax + 1 : kMax;
  std::int64_t number = 0;
  for (const wchar_t c : text) {
    if (c < L'0' || c > L'9') break;
    number = std::min<std::int64_t>(10 * number + (c - L'0'), limit);
  }
  return static_cast<std::int32_t>(is_negative ? -number : number);
}

PathPieces SplitPath(std::wstring_view path) {
  PathPieces pieces;
  const std::size_t drive_size = path.size() >= 2 && path[1] == L':' ? 2 : 0;
  pieces.drive = path.substr(0, drive_size);
  path.remove_prefix(drive_size);
  const std::size_t name_begin = path.find_last_of(L"\\/") + 1;
  pieces.directory = path.substr(0, name_begin);
  path.remove_prefix(name_begin);
  const std::size_t name_size = std::min(path.rfind(L'.'), path.size());
  pieces.name = path.substr(0, name_size);
  pieces.extension = path.substr(name_size);
  return pieces;
}

std::wstring_view FindExtension(std::wstring_view path) {
  const std::size_t hit = path.find_last_of(L".\\ ");
  return hit != path.npos && path[hit] == L'.' ? path.substr(hit) : std::wstring_view();
}

std::wstring FormatArguments(std::wstring_view format,
                             std::initializer_list<FormatArgument> arguments) {
  fmt::dynamic_format_arg_store<fmt::wprintf_context> store;
  for (const FormatArgument& argument : arguments) {
    std::visit([&](const auto& value) { store.push_back(value); }, argument);
  }
  return fmt::vsprintf(fmt::wstring_view(format.data(), format.size()),
                       fmt::basic_format_args<fmt::wprintf_context>(store));
}

}  // namespace vk::tq
