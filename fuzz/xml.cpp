// XML texts, through the reading operations and those that change a text. Input: three lines (an
// element name, a second one, a text), the XML.
#include "storage/xml.h"

#include "fuzz/support.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

bool AreEqual(const RowArray& left, const RowArray& right) {
  if (left.m_aRows.GetSize() != right.m_aRows.GetSize()) return false;
  for (int i = 0; i < left.m_aRows.GetSize(); ++i) {
    const CMapStringToString& one = *left.m_aRows[i].m_pColumns;
    const CMapStringToString& other = *right.m_aRows[i].m_pColumns;
    if (!std::ranges::equal(one, other)) return false;
  }
  return true;
}

// The reading operations agree with each other.
void CheckSelections(CXml& access, const CString& xml, const CString& name, const CString& other) {
  CString first = L"none";
  CStringArray all;
  CMapStringToString last_of_each;
  CMapStringToString first_of_each;
  CStringArray grouped;
  const int result = access.SelectXMLStringValue01(xml, name, first);
  Require(access.SelectXMLStringValue(xml, name, all) == result, "a bad name fails everywhere");
  if (result == 0) {
    Require(first == (all.IsEmpty() ? L"none" : all[0]), "the first text is the first of all");
    Require(static_cast<std::size_t>(all.GetSize()) <= xml.size(), "no more texts than characters");
  }
  access.SelectXMLStringValue(xml, {name, other}, last_of_each);
  access.SelectFirstXMLStringValue(xml, {name, other}, first_of_each);
  if (access.SelectXMLStringValue03(xml, {name, other}, grouped) == 0) {
    Require(grouped.GetSize() >= all.GetSize(), "the texts of one name are among those of two");
  }
  CString below = L"none";
  if (access.SelectXMLStringValue(xml, L"Velkorandia/QTL", name, below) == 0) {
    Require(result != 0 || below == first, "the record's path leads to the records");
  }
}

// What was read can be written, and reads back as it was.
void CheckRows(CXml& access, const CString& xml) {
  RowArray rows;
  if (access.SelectXmlData(xml, &rows) != 0) return;
  const CString written = access.CreateXmlString(rows);
  if (written.empty()) return;  // a name with a prefix cannot be written
  RowArray again;
  Require(access.SelectXmlData(written, &again) == 0 && AreEqual(rows, again), "rows come back");
}

void CheckChanges(CXml& access, const CString& xml, const CString& name, const CString& value) {
  RowArray rows;
  access.SelectXmlData(xml, &rows);
  CString changed = xml;
  const bool is_inserted = access.InsertXMLValueText(changed, name, value) == 0;
  if (!is_inserted) Require(changed == xml, "a failed change changes nothing");
  CStringArray before;
  CStringArray after;
  if (is_inserted && access.SelectXMLStringValue(xml, name, before) == 0 &&
      access.SelectXMLStringValue(changed, name, after) == 0) {
    Require(after.GetSize() == before.GetSize() + rows.m_aRows.GetSize(),
            "one more in each record");
    Require(rows.m_aRows.IsEmpty() || after[after.GetSize() - 1] == value, "an insert reads back");
  }
  if (is_inserted && access.UpdateXMLValueText(changed, {name}, {value}) == 0) {
    CString read;
    Require(access.SelectXMLStringValue01(changed, name, read) != 0 || read == value,
            "an update reads back");
  }
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  TheSandbox();
  const CString name = Wide(input.Line());
  const CString other = Wide(input.Line());
  const CString value = Wide(input.Line());
  const CString xml = Wide(input.Rest());
  CXml access;
  CheckSelections(access, xml, name, other);
  CheckRows(access, xml);
  CheckChanges(access, xml, name, value);
}
