#include "storage/xml.h"

#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/log.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/text.h"
#include "platform/xml_document.h"

namespace vk::tq {
namespace {

// What an operation leaves in the log when it fails. The first %s of the message is the description
// of the error; what follows names what the operation was called for.
struct FailureLine {
  int number;
  const wchar_t* function;
  const wchar_t* message;
};

constexpr wchar_t kReadElement[] = L"XMLファイル読込み時に例外が発生しました。%s 要素名=%s";
constexpr wchar_t kCreateText[] = L"キャッシュするデータのXML文生成に失敗しました。%s";
constexpr wchar_t kWriteElement[] =
    L"XMLファイル書込み時に例外が発生しました。%s,ファイル名=%s,追加要素名=%s,追加要素値=%s";

constexpr FailureLine kSelectFirst = {130101, L"CXml::SelectXMLStringValue01", kReadElement};
constexpr FailureLine kSelectBelow = {
    130103, L"CXml::SelectXMLStringValue",
    L"XMLファイル読込み時に例外が発生しました。%s XMLノードパス=%s,要素名=%s"};
constexpr FailureLine kSelectAll = {130101, L"CXml::SelectXMLStringValue", kReadElement};
constexpr FailureLine kSelectMap = {130104, L"CXml::SelectXMLStringValue",
                                    L"XMLファイル読込み時に例外が発生しました。%s"};
constexpr FailureLine kSelectNames = {130101, L"CXml::SelectXMLStringValue03", kReadElement};
constexpr FailureLine kSelectRows = {130105, L"CXml::SelectXmlData",
                                     L"XMLデータ解析時に例外が発生しました。%s"};

constexpr FailureLine kCreateRecord = {130106, L"CXml::CreateXmlString01", kCreateText};
constexpr FailureLine kCreateRows = {130106, L"CXml::CreateXmlString", kCreateText};
constexpr FailureLine kCreateFile = {130106, L"CXml::CreateXmlString",
                                     L"XMLファイル書込み時に例外が発生しました。%s,ファイル名=%s"};
constexpr FailureLine kSaveIndented = {130108, L"CXml::SaveIndentXML",
                                       L"XMLデータのインデント処理時に例外が発生しました。%s"};
constexpr FailureLine kDescribe = {130109, L"CXml::WriteDescriptionXML",
                                   L"詳細情報を記述時に例外が発生しました。%s"};
constexpr FailureLine kInsertText = {130111, L"CXml::InsertXMLValueText", kWriteElement};
constexpr FailureLine kInsertTexts = {130112, L"CXml::InsertXMLValueText",
                                      L"XMLファイル書込み時に例外が発生しました。%s"};
constexpr FailureLine kInsertFile = {130111, L"CXml::InsertXMLValue", kWriteElement};
constexpr FailureLine kUpdateText = {130111, L"CXml::UpdateXMLValueText", kWriteElement};

// Fills the placeholders, unless there is no memory for that.
template <class... Texts>
void LogFailure(const FailureLine& line, const XmlError* error, const Texts&... texts) noexcept {
  try {
    const CString description = error != nullptr ? error->Description() : CString();
    Log4cxxMgr::LogOutDetail(3, line.number, line.function, __LINE__,
                             Format(line.message, description, texts...));
  } catch (...) {
    Log4cxxMgr::LogOutDetail(3, line.number, line.function, __LINE__, line.message);
  }
}

// Runs the work of an operation under a handler for every exception, which logs it. An error of the
// XML layer fills the placeholders of the message, with what the subjects hold by then; any other
// leaves them empty. Gives whether the work ran through.
template <class Work, class... Subjects>
bool RunLogged(const FailureLine& line, Work work, const Subjects&... subjects) {
  try {
    work();
    return true;
  } catch (const XmlError& error) {
    LogFailure(line, &error, std::wstring_view(subjects)...);
  } catch (...) {
    LogFailure(line, nullptr, ((void)subjects, L"")...);
  }
  return false;
}

// The same for a reading operation, which gets the document and also leaves the whole text.
template <class Work, class... Subjects>
int Read(const FailureLine& line, const CString& xml, Work work, const Subjects&... subjects) {
  const auto parse_and_work = [&] {
    XmlDocument document;
    document.Parse(xml);
    work(document);
  };
  if (RunLogged(line, parse_and_work, subjects...)) return 0;
  try {
    Log4cxxMgr::LogOutDetail(2, 130102, line.function, __LINE__, L"XMLデータ：" + xml);
  } catch (const std::bad_alloc&) {
    // The text alone is lost.
  }
  return 1;
}

// What an operation that must not lose the caller's text or file works on.
XmlDocument ParseStrictly(const CString& xml) {
  XmlDocument document;
  if (!document.Parse(xml)) throw XmlError::FromLastError();
  return document;
}

void AppendToRecords(const XmlDocument& document, const CString& record_path, const CString& name,
                     const CString& value) {
  for (XmlElement& record : document.Select(record_path)) record.Append(name, value);
}

// Hands on what each of the names finds in the records, in the order of the names.
template <class Visit>
void SelectEach(const XmlDocument& document, const CString& record_path, const CStringArray& names,
                const Visit& visit) {
  if (names.IsEmpty()) return;
  const std::vector<XmlElement> records = document.Select(record_path);
  for (const CString& name : names) visit(document.SelectBelow(records, name));
}

void AppendTexts(const std::vector<XmlElement>& elements, CStringArray& values) {
  for (const XmlElement& element : elements) values.Add(element.text());
}

}  // namespace

CXml::CXml(CString root_name, CString record_name)
    : m_strRootName(std::move(root_name)),
      m_strRecordName(std::move(record_name)),
      m_strRecordPath(m_strRootName + L"/" + m_strRecordName) {}

// ---- Reading ----

int CXml::SelectXMLStringValue01(CString xml, CString name, CString& value) {
  const WipeOnExit wipe(xml);
  return Read(
      kSelectFirst, xml,
      [&](const XmlDocument& document) {
        const std::vector<XmlElement> found = document.Select(m_strRecordPath + L"/" + name);
        if (!found.empty()) value = found.front().text();
      },
      name);
}

int CXml::SelectXMLStringValue(const CString& xml, const CString& parent_path, const CString& name,
                               CString& value) {
  return Read(
      kSelectBelow, xml,
      [&](const XmlDocument& document) {
        const std::vector<XmlElement> found = document.Select(parent_path + L"/" + name);
        if (!found.empty()) value = found.front().text();
      },
      parent_path, name);
}

int CXml::SelectXMLStringValue(const CString& xml, const CString& name, CStringArray& values) {
  return Read(
      kSelectAll, xml,
      [&](const XmlDocument& document) {
        AppendTexts(document.Select(m_strRecordPath + L"/" + name), values);
      },
      name);
}

int CXml::SelectXMLStringValue(const CString& xml, const CStringArray& names,
                               CMapStringToString& values) {
  return Read(kSelectMap, xml, [&](const XmlDocument& document) {
    SelectEach(document, m_strRecordPath, names, [&](const auto& found) {
      for (const XmlElement& element : found) values[element.name()] = element.text();
    });
  });
}

int CXml::SelectFirstXMLStringValue(const CString& xml, const CStringArray& names,
                                    CMapStringToString& values) {
  std::wstring_view name;
  return Read(
      kSelectFirst, xml,
      [&](const XmlDocument& document) {
        const std::vector<XmlElement> records = document.Select(m_strRecordPath);
        for (const CString& each : names) {
          name = each;
          const std::vector<XmlElement> found = document.SelectBelow(records, each);
          if (!found.empty()) values[each] = found.front().text();
        }
      },
      name);
}

int CXml::SelectXMLStringValue03(CString xml, const CStringArray& names, CStringArray& values) {
  const WipeOnExit wipe(xml);
  return Read(
      kSelectNames, xml,
      [&](const XmlDocument& document) {
        SelectEach(document, m_strRecordPath, names,
                   [&](const auto& found) { AppendTexts(found, values); });
      },
      L"");
}

int CXml::SelectXmlData(CString xml, RowArray* rows) {
  const WipeOnExit wipe(xml);
  return Read(kSelectRows, xml, [&](const XmlDocument& document) {
    if (rows == nullptr) throw XmlError(XmlError::kInvalidArgument);
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the rows own the columns
    for (const XmlElement& record : document.Select(m_strRecordPath)) {
      auto columns = std::make_unique<CMapStringToString>();
      for (const XmlElement& leaf : record.children()) (*columns)[leaf.name()] = leaf.text();
      rows->m_aRows.Add({columns.get()});
      static_cast<void>(columns.release());
    }
  });
}

CString CXml::GetRowData(RowArray* rows, int row, CString key) {
  // Thrown as they are: a handler of the callers takes a pointer to characters that may be changed.
  static wchar_t no_rows[] = L"行データが0件の為、データ取得に失敗しました。";
  static wchar_t no_such_row[] = L"指定された行番号がインデックスを超えています。";
  const auto fail = [](int number, wchar_t* message) {
    Log4cxxMgr::LogOutDetail(6, number, L"CXml::GetRowData", __LINE__, message);
    throw message;
  };
  if (rows == nullptr || rows->m_aRows.IsEmpty()) fail(130113, no_rows);
  if (row >= rows->m_aRows.GetSize()) fail(130114, no_such_row);
  const CMapStringToString* const columns = rows->m_aRows[row].m_pColumns;
  if (columns == nullptr) return {};
  const auto found = columns->find(key);
  return found == columns->end() ? CString() : found->second;
}

// ---- Writing ----

XmlElement CXml::AddNode(XmlDocument& document, XmlElement& parent, const CString& name,
                         const CString& value) {
  if (!document.root()) throw XmlError(XmlError::kInvalidArgument);
  return parent.Append(name, value);
}

void CXml::AddNodes(XmlDocument& document, XmlElement& parent, const CStringArray& names,
                    const CStringArray& values) {
  for (int i = 0; i < names.GetSize(); ++i) AddNode(document, parent, names[i], values[i]);
}

void CXml::WriteDescriptionXML(XmlDocument& document, XmlElement& parent, const CStringArray& names,
                               const CStringArray& values) {
  RunLogged(kDescribe, [&] { AddNodes(document, parent, names, values); });
}

CString CXml::CreateXmlString01(const CStringArray& names, const CStringArray& values) {
  CString text;
  RunLogged(kCreateRecord, [&] {
    XmlDocument document;
    XmlElement root = document.CreateRoot(m_strRootName);
    XmlElement record = AddNode(document, root, m_strRecordName, L"");
    AddNodes(document, record, names, values);
    text = document.ToText();
  });
  return text;
}

void CXml::AddRows(XmlDocument& document, const RowArray& rows) {
  XmlElement root = document.CreateRoot(m_strRootName);
  for (const RowData& row : rows.m_aRows) {
    XmlElement record = AddNode(document, root, m_strRecordName, L"");
    if (row.m_pColumns == nullptr) continue;
    for (const auto& [name, value] : *row.m_pColumns) AddNode(document, record, name, value);
  }
}

CString CXml::CreateXmlString(RowArray& rows) {
  CString text;
  RunLogged(kCreateRows, [&] {
    XmlDocument document;
    AddRows(document, rows);
    text = document.ToText();
  });
  return text;
}

int CXml::CreateXmlString(CString path, RowArray& rows, CString& xml) {
  bool is_saved = false;
  RunLogged(
      kCreateFile,
      [&] {
        XmlDocument document;
        AddRows(document, rows);
        CString text = document.ToText();
        is_saved = SaveIndentXML(path, document) == 1;
        if (is_saved) xml = std::move(text);
      },
      path);
  return is_saved ? 0 : 1;
}

int CXml::SaveIndentXML(CString path, XmlDocument& document) {
  const bool is_saved = RunLogged(kSaveIndented, [&] {
    // The NUL parts the new text from the rest of an old one, until that is cut off.
    SecureBytes bytes = document.ToIndentedShiftJis();
    const std::size_t size = bytes.size();
    bytes.push_back(0);
    InPlaceWriter file;
    if (!file.Open(path, bytes.size()) || !file.Write(bytes.data(), bytes.size()) ||
        !file.Commit(size)) {
      throw XmlError::FromLastError();
    }
  });
  return is_saved ? 1 : 0;
}

int CXml::InsertXMLValueText(CString& xml, const CString& name, const CString& value) {
  const auto insert = [&] {
    const XmlDocument document = ParseStrictly(xml);
    AppendToRecords(document, m_strRecordPath, name, value);
    xml = document.ToText();
  };
  return RunLogged(kInsertText, insert, L"", name, value) ? 0 : 1;
}

int CXml::InsertXMLValueText(CString& xml, const CStringArray& names, const CStringArray& values) {
  int result = 0;
  const auto insert = [&] {
    for (int i = 0; i < names.GetSize(); ++i) {
      if (InsertXMLValueText(xml, names[i], values[i]) != 0) result = 1;
    }
  };
  return RunLogged(kInsertTexts, insert) ? result : 1;
}

int CXml::InsertXMLValue(const CString& path, const CString& name, const CString& value) {
  bool is_saved = false;
  const auto insert = [&] {
    XmlDocument document;
    if (!document.Load(path)) throw XmlError::FromLastError();
    AppendToRecords(document, m_strRecordPath, name, value);
    is_saved = SaveIndentXML(path, document) == 1;
  };
  RunLogged(kInsertFile, insert, path, name, value);
  return is_saved ? 0 : 1;
}

int CXml::InsertXMLValue(const CString& path, const CStringArray& names,
                         const CStringArray& values) {
  int result = 0;
  for (int i = 0; i < names.GetSize(); ++i) {
    if (InsertXMLValue(path, names[i], values[i]) != 0) result = 1;
  }
  return result;
}

int CXml::UpdateXMLValueText(CString& xml, const CStringArray& names, const CStringArray& values) {
  bool has_record = false;
  std::wstring_view name;
  std::wstring_view value;
  const auto update = [&] {
    const XmlDocument document = ParseStrictly(xml);
    const std::vector<XmlElement> records = document.Select(m_strRecordPath);
    if (records.empty()) return;
    for (int i = 0; i < names.GetSize(); ++i) {
      name = names[i];
      value = i < values.GetSize() ? std::wstring_view(values[i]) : std::wstring_view();
      std::vector<XmlElement> found = records.front().Select(name);
      if (!found.empty()) found.front().SetText(values[i]);
    }
    xml = document.ToText();
    has_record = true;
  };
  return RunLogged(kUpdateText, update, L"", name, value) && has_record ? 0 : 1;
}

}  // namespace vk::tq
