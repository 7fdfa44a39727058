// Cipher and XML.
#include "faults/operation.h"
#include "storage/crypto.h"
#include "storage/xml.h"

namespace vk::tq::testing {
namespace {

using Pieces = std::vector<std::string>;

constexpr wchar_t kText[] = L"a text & <more> 山田";

void Nothing(Stage&) {}

// ---- Cipher ----

void HoldTexts(Stage& stage) {
  CCrypto crypto;
  ASSERT_EQ(crypto.CryptingStringWriter(L"old", stage.WorkPath(L"text")), 0);
  WriteNative(stage.native("work/plain"), std::string(0x100000 + 5, 'p'));
  ASSERT_EQ(crypto.CryptFileMake(stage.WorkPath(L"plain"), stage.WorkPath(L"cipher")), 0);
}

std::string DecipheredText(Stage& stage) {
  CString text;
  if (CCrypto().CryptingStringReader(stage.WorkPath(L"text"), text) != 0) return "none";
  return ToUtf8(text);
}

Pieces ViewText(Stage& stage) { return {DecipheredText(stage)}; }

// The destination is a new file.
Pieces ViewMade(Stage& stage) {
  const std::string made = stage.native("work/made");
  return {ExistsNative(made) ? ToHex(ReadNative(made)) : "none"};
}

// ---- XML ----

constexpr wchar_t kDocument[] =
    L"<Velkorandia><QTL><a>1</a><b>2</b></QTL><QTL><a>3</a></QTL></Velkorandia>";

CStringArray Names() {
  const Calm calm;
  CStringArray names;
  names.Add(L"a");
  names.Add(L"b");
  return names;
}

std::wstring Joined(const CStringArray& texts) {
  const Calm calm;
  std::wstring joined;
  for (const CString& text : texts) joined += text + L";";
  return joined;
}

std::wstring Joined(const CMapStringToString& texts) {
  const Calm calm;
  std::map<std::wstring, std::wstring> sorted(texts.begin(), texts.end());
  std::wstring joined;
  for (const auto& [name, text] : sorted) joined += name + L"=" + text + L";";
  return joined;
}

// A reading operation, which gives what it puts into its last argument.
template <class Values, auto kRead>
Report Select(Stage& stage) {
  CXml xml;
  const CString document = kDocument;
  const CStringArray names = Names();
  Values values;
  stage.Made();
  const bool is_done = kRead(xml, document, names, values) == 0;
  return Reports(is_done, Joined(values));
}

void HoldDocument(Stage& stage) { WriteNative(stage.native("work/plain.xml"), ToUtf8(kDocument)); }

// Behind a NUL stands what a writer did not come to cut off.
Pieces ViewDocument(Stage& stage) {
  const std::string bytes = ReadNative(stage.native("work/plain.xml"));
  return {bytes.substr(0, bytes.find('\0'))};
}

Report InsertIntoFile(Stage& stage) {
  const std::wstring path = stage.WorkPath(L"plain.xml");
  CXml xml;
  const CString name = L"added", value = kText;
  stage.Made();
  return Reports(xml.InsertXMLValue(path, name, value) == 0);
}

// The same document from scratch.
Report CreateFile(Stage& stage) {
  const std::wstring path = stage.WorkPath(L"plain.xml");
  CXml xml;
  RowArray rows;
  CString made;
  {
    const Calm calm;
    rows.m_aRows.Add({new CMapStringToString});
    (*rows.m_aRows[0].m_pColumns)[L"a"] = kText;
  }
  stage.Made();
  const bool is_done = xml.CreateXmlString(path, rows, made) == 0;
  return Reports(is_done, made);
}

template <auto kChange>
Report ChangeText(Stage& stage) {
  CXml xml;
  CString document = kDocument;
  const CStringArray names = Names();
  stage.Made();
  const bool is_done = kChange(xml, document, names) == 0;
  return Reports(is_done, document);
}

constexpr wchar_t kXmlLine[] = L"CXml::";
constexpr auto kInsert = [](CXml& xml, CString& text, const CStringArray& names) {
  return xml.InsertXMLValueText(text, names, names);
};
constexpr auto kUpdate = [](CXml& xml, CString& text, const CStringArray& names) {
  return xml.UpdateXMLValueText(text, names, names);
};
constexpr auto kCreate = [](CXml& xml, CString& text, const CStringArray& names) {
  text = xml.CreateXmlString01(names, names);
  return text.empty() ? 1 : 0;
};
constexpr auto kSelectMap = [](CXml& xml, const CString& text, const CStringArray& names,
                               CMapStringToString& values) {
  return xml.SelectXMLStringValue(text, names, values);
};
constexpr auto kSelectFirst = [](CXml& xml, const CString& text, const CStringArray& names,
                                 CMapStringToString& values) {
  return xml.SelectFirstXMLStringValue(text, names, values);
};
constexpr auto kSelectAll = [](CXml& xml, const CString& text, const CStringArray& names,
                               CStringArray& values) {
  return xml.SelectXMLStringValue(text, names.GetData()[0], values);
};

Report SelectRows(Stage&) {
  RowArray rows;
  const bool is_done = CXml().SelectXmlData(kDocument, &rows) == 0;
  const Calm calm;
  std::wstring text;
  for (const RowData& row : rows.m_aRows) text += Joined(*row.m_pColumns) + L" ";
  return Reports(is_done, text);
}

}  // namespace

std::vector<Operation> StorageOperations() {
  constexpr Throws kFails = Throws::kFailures;
  return {
      {"Hash",
       Nothing,
       [](Stage&) { return Reports(true, CCrypto().ComputeHash(kText)); },
       nullptr,
       nullptr,
       0,
       kFails,
       {""}},
      {"CipherBytes", Nothing,
       [](Stage&) {
         CByteArray bytes;
         CCrypto().EncryptByTripleDesToByteArray(kText, bytes);
         return Reports(true, CCrypto().DecryptByTripleDESToByteArray(bytes));
       },
       nullptr, nullptr, 0, kFails},
      {"TextWrite", HoldTexts,
       [](Stage& stage) {
         const std::wstring path = stage.WorkPath(L"text");
         return Reports(CCrypto().CryptingStringWriter(kText, path) == 0);
       },
       ViewText, nullptr, 0, kFails},
      {"TextRead", HoldTexts,
       [](Stage& stage) {
         const std::wstring path = stage.WorkPath(L"text");
         CString text;
         const bool is_done = CCrypto().CryptingStringReader(path, text) == 0;
         return Reports(is_done, text);
       },
       ViewText, nullptr, 0, kFails},
      {"FileEncipher", HoldTexts,
       [](Stage& stage) {
         const std::wstring from = stage.WorkPath(L"plain"), to = stage.WorkPath(L"made");
         return Reports(CCrypto().CryptFileMake(from, to) == 0);
       },
       ViewMade, nullptr, 0, kFails},
      {"FileDecipher", HoldTexts,
       [](Stage& stage) {
         const std::wstring from = stage.WorkPath(L"cipher"), to = stage.WorkPath(L"made");
         return Reports(CCrypto().DecryptFileMake(from, to) == 0);
       },
       ViewMade, nullptr, 0, kFails},
      {"XmlSelectMap", Nothing, Select<CMapStringToString, kSelectMap>, nullptr, kXmlLine, 3},
      {"XmlSelectFirst", Nothing, Select<CMapStringToString, kSelectFirst>, nullptr, kXmlLine, 3},
      {"XmlSelectAll", Nothing, Select<CStringArray, kSelectAll>, nullptr, kXmlLine, 3},
      {"XmlSelectRows", Nothing, SelectRows, nullptr, kXmlLine, 3, Throws::kForMemory},
      {"XmlCreate", Nothing, ChangeText<kCreate>, nullptr, kXmlLine, 3},
      {"XmlInsert", Nothing, ChangeText<kInsert>, nullptr, kXmlLine, 3},
      {"XmlUpdate", Nothing, ChangeText<kUpdate>, nullptr, kXmlLine, 3},
      {"XmlCreateFile", HoldDocument, CreateFile, ViewDocument, kXmlLine, 3, Throws::kForMemory},
      {"XmlInsertFile", HoldDocument, InsertIntoFile, ViewDocument, kXmlLine, 3},
  };
}

}  // namespace vk::tq::testing
