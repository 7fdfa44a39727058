// The site's settings. Input: a mode, and the file or, with mode 1, the fields of one row, a line
// each.
#include "settings/system_setting.h"

#include "foundation/util.h"
#include "fuzz/support.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

class Rows : public CSystemSetting {
 public:
  using CSystemSetting::CSystemSetting;
  using CSystemSetting::GetDataNum;
  using CSystemSetting::GetDataStr;
  using CSystemSetting::GetSize;
  using CSystemSetting::ReadCSV;
};

// No row makes more fields than it has characters, and no more text than the file has.
void CheckFile(const CString& path, std::size_t size) {
  CSystemSetting settings(path.c_str(), CStdioFile::modeRead);
  Require(settings.LoadFile() == 0, "any file can be loaded");
  Require(settings.GetNupSetting().size() <= size + 64, "no text is longer than the file");
  for (int tray = 0; tray < 5; ++tray) settings.GetNameTray(tray);
  settings.Close();

  Rows rows(path.c_str(), CStdioFile::modeRead);
  Require(rows.Open(path.c_str(), CStdioFile::modeRead), "the file can be opened");
  std::size_t total = 0;
  for (std::size_t count = 0; rows.ReadCSV() == 1; ++count) {
    Require(count <= size, "there is an end of the rows");
    CString text;
    for (int field = 0; rows.GetDataStr(text, field) == 1; ++field) {
      total += text.size();
      wchar_t buffer[256];
      Require(rows.GetDataStr(buffer, 255, field) <= 255, "a field fits its buffer");
      rows.GetDataNum(field);
    }
  }
  Require(total <= size, "no more text than the file has");
}

// A row that CUtil makes reads back, as long as its fields hold neither a line end nor a quote,
// which the reader keeps or drops by its place.
void CheckRow(const Sandbox& sandbox, Input input) {
  std::vector<CString> fields;
  CString line;
  while (!input.IsEmpty()) {
    const CString field = UpToNul(Wide(input.Line()));
    if (field.find_first_of(L"\r\n\"") != CString::npos || (fields.empty() && field.empty()))
      return;
    fields.push_back(field);
    CUtil::GetCsvItem(field, line);
  }
  if (fields.empty()) return;
  // Behind another row, since a mark at the beginning is none of the row's.
  sandbox.Write(sandbox.Native("row"), "first\n" + Narrow(line) + "\n");
  const CString path = sandbox.Path("row");
  Rows rows(path.c_str(), CStdioFile::modeRead);
  Require(
      rows.Open(path.c_str(), CStdioFile::modeRead) && rows.ReadCSV() == 1 && rows.ReadCSV() == 1,
      "a row is there");
  CString text;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    Require(rows.GetDataStr(text, static_cast<int>(i)) == 1 && text == fields[i],
            "a field comes back");
  }
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  const Sandbox& sandbox = TheSandbox();
  if (input.Mode() == 1) return CheckRow(sandbox, input);
  sandbox.Write(sandbox.Native("settings"), input.Rest());
  CheckFile(sandbox.Path("settings"), input.Rest().size());
}
