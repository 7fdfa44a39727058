#include <cwchar>
#include <exception>
#include <regex>

#include "foundation/bounded_search.h"
#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/system_info.h"
#include "platform/text.h"

namespace vk::tq {

int CUtil::ExtractPatternString(const CString& source, const CString& pattern, CString& result,
                                int& error) {
  CString message;
  return ExtractPatternString(source, pattern, result, error, message);
}

int CUtil::ExtractPatternString(const CString& source, const CString& pattern, CString& result,
                                int& error, CString& message) {
  const CString expression = pattern.substr(0, pattern.find(L'\0'));
  result = source;
  error = 0;
  message.clear();
  if (expression.empty()) {
    error = ERR_REGEX_EMPTY;
    return 0;
  }
  try {
    result = FindFirstMatch(source, expression);
    return 1;
  } catch (const std::regex_error& failure) {
    error = static_cast<int>(failure.code());
    message = DecodeText(kCodePageUtf8, failure.what()).value_or(CString());
  }
  Log4cxxMgr::LogOutDetail(
      5, 0, L"CUtil::ExtractPatternString", __LINE__,
      Format(
          L"文字列から正規表現パターンに一致した文字列を抽出する際にエラーが発生しました。(%d: %s)",
          error, message));
  return 0;
}

int CUtil::SepareteImaglogID(wchar_t* text, wchar_t* id) {
  if (text == nullptr || id == nullptr) return 0;
  wchar_t delimiter[64];
  if (GetImageLogIDDelimiter(delimiter) == 0) {
    Log4cxxMgr::LogOutDetail(2, 101414, L"CUtil::SepareteImaglogID", __LINE__,
                             L"イメログID取得処理無効で実施。");
    return 0;
  }
  constexpr std::ptrdiff_t kIdLength = 36;
  wchar_t* const found = std::wcsstr(text, delimiter);
  if (found == nullptr || found - text < kIdLength) return 0;
  wchar_t* const start = found - kIdLength;
  std::wmemcpy(id, start, kIdLength);
  id[kIdLength] = L'\0';
  const wchar_t* const rest = found + std::wcslen(delimiter);
  std::wmemmove(start, rest, std::wcslen(rest) + 1);
  return 1;
}

int CUtil::GetImageLogIDDelimiter(wchar_t* delimiter) {
  if (delimiter == nullptr) return 0;
  constexpr std::size_t kSize = 64;
  const bool is_x64 = CurrentMachine().ProcessorArchitecture() == kArchitectureX64;
  const CString value = ReadRegistryString(
      is_x64 ? L"SOFTWARE\\Wow6432Node\\ORV-INC\\Velkorandia\\Tessaloquin\\Option"
             : L"SOFTWARE\\ORV-INC\\Velkorandia\\Tessaloquin\\Option",
      L"ImageLogIDDelimiter", kSize);
  std::wcscpy(delimiter, value.empty() ? L"#SI#" : value.c_str());
  return !value.empty();
}

}  // namespace vk::tq
