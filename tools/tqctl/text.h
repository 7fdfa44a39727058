// Texts. Inside the tool they are wide, as in the library. Arguments and what people read have the
// locale's encoding; JSON is UTF-8 always.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tqctl {

// Takes the encoding of the environment. The C locale names none, so UTF-8 stands for it there.
void UseLocale();

// The text that bytes of the locale's encoding stand for; nothing when they stand for none.
std::optional<std::wstring> Decoded(std::string_view bytes);

// The text of an argument; UsageError when its bytes are no text of the locale.
std::wstring Wide(std::string_view argument);

// The same for a text that is only shown: a byte that is no character becomes U+FFFD.
std::wstring WideToShow(std::string_view bytes);

// In the locale's encoding; what that lacks becomes "?".
std::string Narrow(std::wstring_view text);

// What is no character, such as half of a surrogate pair, becomes U+FFFD.
std::string Utf8(std::wstring_view text);

// With control characters written as escapes, so that a stored text cannot command a terminal.
std::wstring Printable(std::wstring_view text);

// A path of the library in the machine's own form, to be shown, and the same between quotes.
std::wstring NativePath(const std::wstring& path);
std::wstring QuotedPath(const std::wstring& path);

// The columns that a printable text takes on a terminal: wide characters two, combining ones none.
std::size_t Columns(std::wstring_view text);

}  // namespace tqctl
