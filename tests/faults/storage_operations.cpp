// Cipher and XML.
#include <map>

#include "faults/operation.h"
#include "storage/crypto.h"
#include "storage/xml.h"

namespace vk::tq::testing {
namespace {

constexpr wchar_t kText[] = L"a text & <more> 山田";

// ---- Cipher ----

void HoldFiles(Stage& stage) {
  WriteNative(stage.native("work/plain"), std::string(0x100000 + 5, 'p'));
  ASSERT_EQ(CCrypto().CryptFileMake(stage.WorkPath(L"plain"), stage.WorkPath(L"cipher")), 0);
}

// The destination is a new file.
Pieces ViewMade(Stage& stage) {
  const std::string made = stage.native("work/made");
  return {ExistsNative(made) ? ToHex(ReadNative(made)) : "none"};
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

Report UpdateText(Stage& stage) {
  CXml xml;
  CString document = kDocument;
  const CStringArray names = {L"a", L"b"};
  stage.Made();
  return Reports(xml.UpdateXMLValueText(document, names, names) == 0, document);
}

Report SelectRows(Stage&) {
  RowArray rows;
  const bool is_done = CXml().SelectXmlData(kDocument, &rows) == 0;
  const Calm calm;
  std::wstring text;
  for (const RowData& row : rows.m_aRows) {
    const std::map sorted(row.m_pColumns->begin(), row.m_pColumns->end());
    for (const auto& [name, value] : sorted) text += name + L"=" + value + L";";
  }
  return Reports(is_done, text);
}

}  // namespace

std::vector<Operation> StorageOperations() {
  const Promise cipher = {nullptr, 0, Throws::kFailures};
  const Promise rows = Promise{L"CXml::", 3, Throws::kForMemory}.Tells({130105});
  const Promise changed = Promise{L"CXml::", 3}.Tells({130111});
  return {
      {"FileEncipher", HoldFiles, MakeFile<&CCrypto::CryptFileMake>, cipher, ViewMade},
      {"FileDecipher", HoldFiles, MakeFile<&CCrypto::DecryptFileMake>, cipher, ViewMade},
      {"XmlSelectRows", nullptr, SelectRows, rows},
      {"XmlUpdate", nullptr, UpdateText, changed},
      {"XmlInsertFile", HoldDocument, InsertIntoFile, changed.Torn().Tells({130108}), ViewDocument},
  };
}

}  // namespace vk::tq::testing
