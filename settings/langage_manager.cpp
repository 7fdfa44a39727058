#include "settings/langage_manager.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/text.h"

namespace vk::tq {

int CLangageManager::is_loaded_ = 0;

CLangageManager::CLangageManager() { SetLangList(); }

CString CLangageManager::GetAppPath() { return CUtil::GetExePath(); }

CString CLangageManager::GetLangFileName() {
  const wchar_t* const word = language_ == 0 ? L"jp" : language_ == 1 ? L"en" : L"";
  return CString(L"lang_") + word + L".dat";
}

void CLangageManager::SetLangList() {
  constexpr wchar_t kFunction[] = L"CLangageManager::SetLangList";
  const CString path = Format(L"%s%s\\%s", GetAppPath(), L"lang", GetLangFileName());
  is_loaded_ = 0;
  if (!GetFileStatus(path)) {
    Log4cxxMgr::LogOutDetail(5, 130212, kFunction, __LINE__,
                             Format(L"ファイルが存在しません。<%s>", path));
  } else if (GetHashTbl(path.c_str()) == 0) {
    Log4cxxMgr::LogOutDetail(5, 130211, kFunction, __LINE__, L"データ取得に失敗しました。");
  } else {
    is_loaded_ = 1;
  }
}

int CLangageManager::GetHashTbl(const wchar_t* path) {
  try {
    const auto bytes = ReadFile(InternalPath(path ? path : L""));
    std::string_view rest;
    if (bytes) rest = {reinterpret_cast<const char*>(bytes->data()), bytes->size()};
    while (!rest.empty()) {
      std::string_view line = rest.substr(0, rest.find('\n'));
      rest.remove_prefix(std::min(line.size() + 1, rest.size()));
      if (line.ends_with('\r')) line.remove_suffix(1);
      AddEntry(line);
    }
    return 1;
  } catch (...) {
    Log4cxxMgr::LogOutDetail(3, 130213, L"CLangageManager::GetHashTbl", __LINE__,
                             L"言語ファイルの読込で例外が発生しました。");
    return 0;
  }
}

// Key and value of each line are converted by themselves, so that bad bytes spoil nothing else. The
// byte of "=" is part of no other character.
void CLangageManager::AddEntry(std::string_view line) {
  line = line.substr(0, line.find('\0'));
  const std::size_t separator = line.find('=');
  if (separator == std::string_view::npos || separator == 0) return;
  const auto wide = [](std::string_view bytes) {
    return CUtil::ConvertToUnicode(kCodePageUtf8, std::string(bytes).c_str());
  };
  Messages().try_emplace(wide(line.substr(0, separator)), wide(line.substr(separator + 1)));
}

CLangageManager::MessageTable& CLangageManager::Messages() {
  // Never destroyed: a text may be asked for by a destructor that runs after main.
  static MessageTable* const messages = std::make_unique<MessageTable>().release();
  return *messages;
}

CString CLangageManager::GetLangResource(const wchar_t* key) {
  return is_loaded_ == 1 ? GetDispMessage(key) : CString();
}

CString CLangageManager::GetLangResource(int key) {
  return GetLangResource(std::to_wstring(key).c_str());
}

CString CLangageManager::GetLangResourceDecodeNewLine(const wchar_t* key) {
  CString text = GetLangResource(key);
  ReplaceAll(text, L"<\\n>", L"\r\n");
  return text;
}

CString CLangageManager::GetLangResourceDecodeNewLine(int key) {
  return GetLangResourceDecodeNewLine(std::to_wstring(key).c_str());
}

CString CLangageManager::GetDispMessage(const wchar_t* key) {
  if (key == nullptr) return {};
  const auto found = Messages().find(std::wstring_view(key));
  return found != Messages().end() ? found->second : CString();
}

}  // namespace vk::tq
