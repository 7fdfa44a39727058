#include "foundation/util.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <new>
#include <utility>

#include "foundation/access_list.h"
#include "foundation/log.h"
#include "foundation/os_type.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/profile.h"
#include "platform/text.h"

namespace vk::tq {

CString CUtil::GetSpecialFolderPath(int folder) {
  return SpecialFolder(folder).value_or(L"C:\\Documents and Settings\\All Users\\Application Data");
}

CString CUtil::GetExePath() {
  const CString program = ProgramPath();
  const PathPieces pieces = SplitPath(program);
  return CString(pieces.drive) + CString(pieces.directory);
}

CString CUtil::GetIniString(const CString& section, const CString& key, const CString& file) {
  return Profile(file).GetString(section, key, L"", 260);
}

int CUtil::GetIniInt(const CString& section, const CString& key, const CString& file,
                     int default_value) {
  return Profile(file).GetInt(section, key, default_value);
}

CString CUtil::ConvertToUnicode(int code_page, const char* text) {
  if (text == nullptr) return {};
  return DecodeText(static_cast<unsigned>(code_page), text).value_or(CString());
}

void CUtil::GetCsvItem(const CString& item, CString& line) {
  CString field = item;
  if (field.find_first_of(L"\n\",") != CString::npos) {
    ReplaceAll(field, L"\"", L"\"\"");
    field = L'"' + field + L'"';
  }
  if (!line.empty()) line += L',';
  line += field;
}

int CUtil::AscStringCheck(const wchar_t* text, int length) {
  if (text == nullptr || length < 1) return 0;
  return std::all_of(text, text + length, [](wchar_t c) { return c >= 33 && c <= 126; });
}

CString CUtil::ConvertToDBParamString(const CString& text) {
  // The ampersand comes first: those of the other entities are not escaped again.
  static constexpr std::array<std::array<const wchar_t*, 2>, 5> kEntities = {{
      {L"&", L"&amp;"},
      {L"<", L"&lt;"},
      {L">", L"&gt;"},
      {L"\"", L"&quot;"},
      {L"%", L"&#37;"},
  }};
  CString escaped = text;
  for (const auto& [character, entity] : kEntities) ReplaceAll(escaped, character, entity);
  return escaped;
}

unsigned long CUtil::GetOSType() {
  SystemVersion version;
  GetSystemVersion(version);
  return OsTypeOf(version);
}

int CUtil::IsWin2000() { return GetOSType() == 4; }

int CUtil::IsXp() { return GetOSType() == 5; }

int CUtil::IsVista() { return GetOSType() == 7; }

int CUtil::GetExtPos(const CString& path) {
  constexpr std::size_t kRoom = 255;
  const PathPieces pieces = SplitPath(path);
  if (pieces.extension.empty() || pieces.directory.size() > kRoom || pieces.name.size() > kRoom ||
      pieces.extension.size() > kRoom) {
    return -1;
  }
  return static_cast<int>(path.size() - pieces.extension.size());
}

void CUtil::GetFileName(CString& path) {
  const std::size_t separator = path.rfind(L'\\');
  if (separator != CString::npos) path.erase(0, separator + 1);
  const int point = GetExtPos(path);
  if (point >= 0) path.erase(static_cast<std::size_t>(point));
}

int CUtil::SetFileAccess(const CString& path, const wchar_t* account, int mode) {
  SecurityStep step = SecurityStep::kAllocate;
  try {
    AccountId id;
    AccessList list;
    step = LookUpAccount(account == nullptr ? L"" : account, id);
    if (step == SecurityStep::kNone) step = ReadAccessList(path, list);
    if (step == SecurityStep::kNone) {
      step = WriteAccessList(path, GrantFullAccess(list, id, mode));
    }
  } catch (const std::bad_alloc&) {
    step = SecurityStep::kAllocate;
    SetLastError(kErrorNotEnoughMemory);
  }
  if (step == SecurityStep::kNone) return 1;
  Log4cxxMgr::LogOutDetail(2, 0, L"CUtil::SetFileAccess", __LINE__,
                           static_cast<int>(GetLastError()), SecurityStepText(step));
  return 0;
}

int GetFileList2(const CString& directory, const CString& pattern, CStringArray& files) {
  files.RemoveAll();
  if (directory.empty()) return 1;
  auto found = FindFiles(directory, pattern.empty() ? CString(L"*") : pattern);
  if (!found) {
    if (GetLastError() != kErrorFileNotFound) {
      Log4cxxMgr::LogOutDetail(5, 140542, L"GetFileList2", __LINE__,
                               static_cast<int>(GetLastError()),
                               L"ファイルの一覧取得に失敗しました。");
    }
    return 0;
  }
  for (FoundFile& file : *found) {
    if (!file.is_directory) files.Add(std::move(file.name));
  }
  return 1;
}

int IsMatchStatusMain(int status, ...) {
  va_list list;
  va_start(list, status);
  bool is_match = false;
  for (int value = va_arg(list, int); value != -1 && !is_match; value = va_arg(list, int)) {
    is_match = value == status;
  }
  va_end(list);
  return is_match;
}

}  // namespace vk::tq
