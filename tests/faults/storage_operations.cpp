// Cipher and XML.
#include <map>
#include <type_traits>

#include "faults/operation.h"
#include "storage/crypto.h"
#include "storage/xml.h"

namespace vk::tq::testing {
namespace {

constexpr wchar_t kText[] = L"a text & <more> 山田";

// ---- Cipher ----

void HoldText(Stage& stage) {
  ASSERT_EQ(CCrypto().CryptingStringWriter(L"old", stage.WorkPath(L"text")), 0);
}

void HoldFiles(Stage& stage) {
  WriteNative(stage.native("work/plain"), std::string(0x100000 + 5, 'p'));
  ASSERT_EQ(CCrypto().CryptFileMake(stage.WorkPath(L"plain"), stage.WorkPath(L"cipher")), 0);
}

Pieces ViewText(Stage& stage) {
  CString text;
  const bool is_read = CCrypto().CryptingStringReader(stage.WorkPath(L"text"), text) == 0;
  return {is_read ? ToUtf8(text) : "none"};
}

// The destination is a new file.
Pieces ViewMade(Stage& stage) {
  const std::string made = stage.native("work/made");
  return {ExistsNative(made) ? ToHex(ReadNative(made)) : "none"};
}

Report Hash(Stage&) { return Reports(true, CCrypto().ComputeHash(kText)); }

Report CipherBytes(Stage&) {
  CByteArray bytes;
  CCrypto().EncryptByTripleDesToByteArray(kText, bytes);
  return Reports(true, CCrypto().DecryptByTripleDESToByteArray(bytes));
}

Report WriteText(Stage& stage) {
  return Reports(CCrypto().CryptingStringWriter(kText, stage.WorkPath(L"text")) == 0);
}

Report ReadText(Stage& stage) {
  CString text;
  return Reports(CCrypto().CryptingStringReader(stage.WorkPath(L"text"), text) == 0, text);
}

template <auto kMake>
Report MakeFile(Stage& stage) {
  const std::wstring from = stage.WorkPath(kMake == &CCrypto::CryptFileMake ? L"plain" : L"cipher");
  const std::wstring to = stage.WorkPath(L"made");
  return Reports((CCrypto().*kMake)(from, to) == 0);
}

// ---- XML ----

constexpr wchar_t kDocument[] =
    L"<Velkorandia><QTL><a>1</a><b>2</b></QTL><QTL><a>3</a></QTL></Velkorandia>";

CStringArray TwoNames() {
  const Calm calm;
  return {L"a", L"b"};
}

std::wstring Joined(const CStringArray& texts) {
  const Calm calm;
  std::wstring joined;
  for (const CString& text : texts) joined += text + L";";
  return joined;
}

std::wstring Joined(const CMapStringToString& texts) {
  const Calm calm;
  const std::map sorted(texts.begin(), texts.end());
  std::wstring joined;
  for (const auto& [name, text] : sorted) joined += name + L"=" + text + L";";
  return joined;
}

// A reading operation, which gives what it puts into its last argument.
template <class Names, class Values, int (CXml::*kRead)(const CString&, const Names&, Values&)>
Report Select(Stage& stage) {
  CXml xml;
  const CString document = kDocument;
  Names names;
  if constexpr (std::is_same_v<Names, CString>)
    names = L"a";
  else
    names = TwoNames();
  Values values;
  stage.Made();
  const bool is_done = (xml.*kRead)(document, names, values) == 0;
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
  return Reports(xml.CreateXmlString(path, rows, made) == 0, made);
}

template <auto kChange>
Report ChangeText(Stage& stage) {
  CXml xml;
  CString document = kDocument;
  const CStringArray names = TwoNames();
  stage.Made();
  return Reports(kChange(xml, document, names) == 0, document);
}

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
  const Promise cipher = {nullptr, 0, Throws::kFailures};
  const Promise xml = {L"CXml::", 3};
  const Promise rows = {L"CXml::", 3, Throws::kForMemory};
  const Promise created = rows.Torn().Tells({130106, 130108});
  const Promise first = xml.Tells({130101}), changed = xml.Tells({130111});
  using Map = CMapStringToString;
  constexpr auto kFirst = &CXml::SelectFirstXMLStringValue;
  return {
      {"Hash", nullptr, Hash, cipher.Or("")},
      {"CipherBytes", nullptr, CipherBytes, cipher},
      {"TextWrite", HoldText, WriteText, cipher.Torn(), ViewText},
      {"TextRead", HoldText, ReadText, cipher, ViewText},
      {"FileEncipher", HoldFiles, MakeFile<&CCrypto::CryptFileMake>, cipher, ViewMade},
      {"FileDecipher", HoldFiles, MakeFile<&CCrypto::DecryptFileMake>, cipher, ViewMade},
      {"XmlSelectMap", nullptr, Select<CStringArray, Map, &CXml::SelectXMLStringValue>,
       xml.Tells({130104})},
      {"XmlSelectFirst", nullptr, Select<CStringArray, Map, kFirst>, first},
      {"XmlSelectAll", nullptr, Select<CString, CStringArray, &CXml::SelectXMLStringValue>, first},
      {"XmlSelectRows", nullptr, SelectRows, rows.Tells({130105})},
      {"XmlCreate", nullptr, ChangeText<kCreate>, xml.Tells({130106})},
      {"XmlInsert", nullptr, ChangeText<kInsert>, changed},
      {"XmlUpdate", nullptr, ChangeText<kUpdate>, changed},
      {"XmlCreateFile", HoldDocument, CreateFile, created, ViewDocument},
      {"XmlInsertFile", HoldDocument, InsertIntoFile, changed.Torn().Tells({130108}), ViewDocument},
  };
}

}  // namespace vk::tq::testing
