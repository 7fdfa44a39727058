#include "tqctl/text.h"

#include <clocale>
#include <cwchar>

#include "foundation/util.h"
#include "platform/path.h"
#include "tqctl/failure.h"
#include "tqctl/terminal.h"

namespace tqctl {
namespace {

constexpr wchar_t kReplacement = L'\uFFFD';

// Decodes one character and moves past it; nothing when the bytes are none.
std::optional<wchar_t> TakeCharacter(std::string_view& bytes, std::mbstate_t& state) {
  wchar_t character = 0;
  const std::size_t size = std::mbrtowc(&character, bytes.data(), bytes.size(), &state);
  const bool is_good = size <= bytes.size();
  if (!is_good) state = {};
  bytes.remove_prefix(is_good && size > 0 ? size : 1);
  return is_good ? std::optional(character) : std::nullopt;
}

void AppendUtf8(std::string& bytes, char32_t c) {
  if (c > 0x10FFFF || (c & 0xFFFFF800) == 0xD800) c = kReplacement;
  if (c < 0x80) {
    bytes += static_cast<char>(c);
    return;
  }
  const int more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
  constexpr int kLead[] = {0, 0xC0, 0xE0, 0xF0};
  bytes += static_cast<char>(kLead[more] | static_cast<int>(c >> (6 * more)));
  for (int i = more - 1; i >= 0; --i) {
    bytes += static_cast<char>(0x80 | static_cast<int>((c >> (6 * i)) & 0x3F));
  }
}

}  // namespace

void UseLocale() {
  std::setlocale(LC_CTYPE, "");
  if (LocaleEncoding() == "ANSI_X3.4-1968") std::setlocale(LC_CTYPE, "C.UTF-8");
}

std::optional<std::wstring> Decoded(std::string_view bytes) {
  std::wstring text;
  text.reserve(bytes.size());  // a password that grew would leave copies behind
  std::mbstate_t state = {};
  while (!bytes.empty()) {
    const auto character = TakeCharacter(bytes, state);
    if (!character) return std::nullopt;
    text += *character;
  }
  return text;
}

std::wstring WideToShow(std::string_view bytes) {
  std::wstring text;
  std::mbstate_t state = {};
  while (!bytes.empty()) text += TakeCharacter(bytes, state).value_or(kReplacement);
  return text;
}

std::wstring Wide(std::string_view argument) {
  auto text = Decoded(argument);
  if (text) return *std::move(text);
  throw UsageError(L"\"" + WideToShow(argument) + L"\" is no text in the locale's encoding, " +
                   WideToShow(LocaleEncoding()) + L".");
}

std::string Narrow(std::wstring_view text) {
  std::string bytes;
  std::mbstate_t state = {};
  for (const wchar_t c : text) {
    char buffer[16];
    const std::size_t size = std::wcrtomb(buffer, c, &state);
    if (size == static_cast<std::size_t>(-1)) state = {};
    bytes.append(size == static_cast<std::size_t>(-1) ? "?" : std::string(buffer, size));
  }
  return bytes;
}

std::string Utf8(std::wstring_view text) {
  std::string bytes;
  for (const wchar_t c : text) AppendUtf8(bytes, static_cast<char32_t>(c));
  return bytes;
}

std::wstring Printable(std::wstring_view text) {
  std::wstring printable;
  for (const wchar_t c : text) {
    const bool is_control = c < 0x20 || (c >= 0x7F && c < 0xA0);
    if (c == L'\n' || c == L'\t') {
      printable += c == L'\n' ? L"\\n" : L"\\t";
    } else if (is_control) {
      constexpr wchar_t kDigits[] = L"0123456789abcdef";
      const auto code = static_cast<unsigned>(c);
      printable += {L'\\', L'x', kDigits[(code >> 4) & 15], kDigits[code & 15]};
    } else {
      printable += c;
    }
  }
  return printable;
}

std::wstring NativePath(const std::wstring& path) {
  return vk::tq::CUtil::ConvertToUnicode(65001, vk::tq::PathToNative(path).c_str());
}

std::wstring QuotedPath(const std::wstring& path) { return L"\"" + NativePath(path) + L"\""; }

std::size_t Columns(std::wstring_view text) {
  std::size_t columns = 0;
  for (const wchar_t c : text) columns += ColumnsOf(c);
  return columns;
}

}  // namespace tqctl
