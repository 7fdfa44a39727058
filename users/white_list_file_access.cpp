#include "users/white_list_file_access.h"

#include <array>
#include <string_view>

#include "foundation/log.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/secure_memory.h"
#include "platform/text.h"
#include "storage/crypto.h"

namespace vk::tq {
namespace {

constexpr std::wstring_view kOwnDriver = L"Velkorandia Tessa Loquin Driver";
constexpr std::wstring_view kLineEnd = L"\r\n";
constexpr const wchar_t* kRead = L"CWhiteListFileAccess::Read";

CString ListPath(const CString& directory) { return InternalPath(directory + L"\\WhiteList.dat"); }

// Takes the text up to the next line end off the front of a text, with the line end. False when
// there is no line end.
bool TakeLine(std::wstring_view& text, std::wstring_view& line) {
  const std::size_t end = text.find(kLineEnd);
  if (end == std::wstring_view::npos) return false;
  line = text.substr(0, end);
  text.remove_prefix(end + kLineEnd.size());
  return true;
}

}  // namespace

int CWhiteListFileAccess::Read(const CString& directory) {
  const CString path = ListPath(directory);
  if (!GetFileStatus(path)) {
    Log4cxxMgr::LogOutDetail(2, 110800010, kRead, __LINE__,
                             L"プリンタ除外ファイルが存在しません。");
    return 0;
  }
  try {
    CString text;
    const WipeOnExit wipe(text);
    if (CCrypto().CryptingStringReader(path, text) != 0) {
      Log4cxxMgr::LogOutDetail(5, 110800020, kRead, __LINE__,
                               L"プリンタ除外ファイルの復号化に失敗しました。");
      return 0;
    }
    m_bMatchAll = 0;
    std::wstring_view rest = text;
    std::wstring_view kind;
    while (TakeLine(rest, kind)) {
      std::wstring_view name;
      if (!TakeLine(rest, name)) {
        name = rest;
        rest = {};
      }
      Add(CString(kind), CString(name));
    }
    return 1;
  } catch (...) {
    Log4cxxMgr::LogOutDetail(5, 110800030, kRead, __LINE__, static_cast<int>(GetLastError()),
                             L"プリンタ除外ファイルの読み込み処理で予期せぬエラーが発生しました。");
    return 0;
  }
}

int CWhiteListFileAccess::Write(const CString& directory) const {
  try {
    CString text;
    const WipeOnExit wipe(text);
    for (int i = 0; i < m_arrKinds.GetSize(); ++i) {
      // A text ends at its first NUL, which would otherwise end the whole list.
      for (const CString* part : {&m_arrKinds[i], &m_arrNames[i]}) {
        text.append(*part, 0, part->find(L'\0')).append(kLineEnd);
      }
    }
    return CCrypto().CryptingStringWriter(text, ListPath(directory)) == 0 ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

void CWhiteListFileAccess::Add(const CString& kind, const CString& name) {
  const int size = m_arrNames.GetSize();
  try {
    m_arrKinds.Add(kind);
    m_arrNames.Add(name);
    Prepare(static_cast<std::size_t>(size));
  } catch (...) {
    m_arrKinds.SetSize(size);  // no half of an entry
    m_arrNames.SetSize(size);
    throw;
  }
}

void CWhiteListFileAccess::Prepare(std::size_t index) {
  const CString& name = m_arrNames.GetData()[index];
  const int kind = ParseInt(m_arrKinds.GetData()[index]);
  if (kind < 0 || kind > 3) return;
  const auto attribute = static_cast<unsigned char>(kind);
  if (kind != 0) {
    rules_.push_back({Match::kContained, attribute, index, 0, name.size()});
    return;
  }
  const std::wstring_view trimmed = TrimView(name);
  const std::size_t star = trimmed.find(L'*');
  if (trimmed.empty() || star == 0) return;
  const auto begin = static_cast<std::size_t>(trimmed.data() - name.data());
  if (star == std::wstring_view::npos) {
    rules_.push_back({Match::kWhole, attribute, index, begin, trimmed.size()});
  } else {
    rules_.push_back({Match::kPrefix, attribute, index, begin, star});
  }
}

bool CWhiteListFileAccess::Matches(const Rule& rule, std::wstring_view attribute) const {
  if (rule.size > attribute.size()) return false;
  const std::wstring_view name(m_arrNames.GetData()[rule.name].data() + rule.begin, rule.size);
  switch (rule.match) {
    case Match::kContained:
      return attribute.find(name) != std::wstring_view::npos;
    case Match::kWhole:
      return attribute.size() == name.size() && EqualsNoCase(attribute, name);
    case Match::kPrefix:
      return attribute.starts_with(name);
  }
  return false;
}

int CWhiteListFileAccess::IsWhitePrinter(const CString& first, const CString& second,
                                         const CString& third, const CString& driver_name) const {
  if (driver_name.find(kOwnDriver) != CString::npos) return 0;
  if (m_bMatchAll != 0) return 1;
  const std::array<std::wstring_view, 4> attributes{first, second, third, driver_name};
  for (const Rule& rule : rules_) {
    if (Matches(rule, attributes[rule.attribute])) return 1;
  }
  return 0;
}

}  // namespace vk::tq
