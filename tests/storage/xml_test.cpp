#include "storage/xml.h"

#include "platform/text.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using Texts = CStringArray;

constexpr wchar_t kTwoRecords[] =
    L"<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\r\n"
    L"<Velkorandia>\r\n  <QTL><A>1</A><B>二</B><A>2</A><E/></QTL>\r\n"
    L"  <QTL><!-- c --><A>3</A><C> x </C></QTL>\r\n  <QTL></QTL>\r\n</Velkorandia>";

CString Document(std::wstring_view contents) {
  return L"<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n" + CString(contents);
}

class XmlTest : public ProductTest {
 protected:
  // What each of the reading operations finds, with what was there before it.
  std::wstring Found(const CString& text) {
    std::wstring found;
    for (const wchar_t* name : {L"C", L"E", L"a"}) {
      CString value = L"none", below = L"none";
      EXPECT_EQ(xml_.SelectXMLStringValue01(text, name, value), 0);
      EXPECT_EQ(xml_.SelectXMLStringValue(text, L"Velkorandia/QTL", name, below), 0);
      found += value + below + L",";
    }
    CStringArray all = {L"\nbefore"};
    EXPECT_EQ(xml_.SelectXMLStringValue(text, L"A", all), 0);
    EXPECT_EQ(xml_.SelectXMLStringValue03(text, {L"C", L"none", L"A"}, all), 0);
    for (const CString& value : all) found += value + L",";
    CMapStringToString last = {{L"A", L"old"}, {L"kept", L"k"}};
    CMapStringToString first = last;
    EXPECT_EQ(xml_.SelectXMLStringValue(text, {L"A", L"E", L"none"}, last), 0);
    EXPECT_EQ(xml_.SelectFirstXMLStringValue(text, {L"A", L"C", L"none"}, first), 0);
    RowArray rows;
    EXPECT_EQ(xml_.SelectXmlData(L"<Velkorandia><QTL><Z>0</Z></QTL></Velkorandia>", &rows), 0);
    EXPECT_EQ(xml_.SelectXmlData(text, &rows), 0);
    std::vector<const CMapStringToString*> maps = {&last, &first};
    for (const RowData& row : rows.m_aRows) maps.push_back(row.m_pColumns);
    for (const CMapStringToString* map : maps) {
      found += L"\n";
      for (const auto& [name, value] : *map) found += name + L"=" + value + L",";
    }
    return found;
  }

  CXml xml_;
};

TEST_F(XmlTest, EachOperationFindsWhatItIsAskedFor) {
  EXPECT_EQ(Found(kTwoRecords),
            L" x  x ,,nonenone,\nbefore,1,2,3, x ,1,2,3,\nA=3,E=,kept=k,\nA=1,C= x ,kept=k,\n"
            L"Z=0,\nA=2,B=二,E=,\nA=3,C= x ,\n");
  EXPECT_EQ(Found(L"no document"),
            L"nonenone,nonenone,nonenone,\nbefore,\nA=old,kept=k,\nA=old,kept=k,\nZ=0,");
}

TEST_F(XmlTest, CreatesOneRecordForEachRow) {
  EXPECT_EQ(CXml(L"Velkorandia", L"ManageInfo").CreateXmlString01({L"A", L"B"}, {L"1", L"", L"3"}),
            Document(L"<Velkorandia><ManageInfo><A>1</A><B/></ManageInfo></Velkorandia>"));
  RowArray rows;
  xml_.SelectXmlData(kTwoRecords, &rows);
  const CString expected = Document(
      L"<Velkorandia><QTL><A>2</A><B>二</B><E/></QTL><QTL><A>3</A><C> x </C></QTL><QTL/>"
      L"</Velkorandia>");
  EXPECT_EQ(xml_.CreateXmlString(rows), expected);
  EXPECT_EQ(CXml::GetRowData(&rows, 1, L"C") + CXml::GetRowData(&rows, 2, L"C"), L" x ");

  CString text;
  EXPECT_EQ(xml_.CreateXmlString(path(L"file.xml"), rows, text), 0);
  EXPECT_EQ(text, expected);
  EXPECT_EQ(ReadNative(native("file.xml")),
            "<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n<Velkorandia>\n"
            "  <QTL>\n    <A>2</A>\n    <B>\x93\xF1</B>\n    <E/>\n  </QTL>\n"
            "  <QTL>\n    <A>3</A>\n    <C> x </C>\n  </QTL>\n  <QTL/>\n</Velkorandia>\n");

  RowArray none;
  EXPECT_EQ(xml_.CreateXmlString(path(L"file.xml"), none, text), 0);
  EXPECT_EQ(ReadNative(native("file.xml")), ToUtf8(Document(L"<Velkorandia/>\n")));
}

TEST_F(XmlTest, InsertsIntoEveryRecordOfATextAndUpdatesTheFirst) {
  CString text = L"<Velkorandia><QTL><A>1</A></QTL><x/><QTL/></Velkorandia>";
  EXPECT_EQ(xml_.InsertXMLValueText(text, {L"A", L"B"}, {L"<新>", L"2", L"3"}), 0);
  EXPECT_EQ(text, Document(L"<Velkorandia><QTL><A>1</A><A>&lt;新&gt;</A><B>2</B></QTL><x/>"
                           L"<QTL><A>&lt;新&gt;</A><B>2</B></QTL></Velkorandia>"));
  text = kTwoRecords;
  EXPECT_EQ(xml_.UpdateXMLValueText(text, {L"A", L"none", L"E"}, {L"new", L"x", L"é"}), 0);
  EXPECT_EQ(text, Document(L"<Velkorandia><QTL><A>new</A><B>二</B><A>2</A><E>é</E></QTL>"
                           L"<QTL><!-- c --><A>3</A><C> x </C></QTL><QTL/></Velkorandia>"));
}

TEST_F(XmlTest, InsertsIntoAFile) {
  WriteNative(native("file"),
              "<?xml version=\"1.0\" encoding=\"Shift_JIS\"?>\r\n"
              "<Velkorandia>\r\n\t<QTL>\r\n\t\t<A>\x87\x40</A></QTL></Velkorandia>");
  EXPECT_EQ(xml_.InsertXMLValue(path(L"file"), L"B", L"髙é"), 0);
  EXPECT_EQ(ReadNative(native("file")),
            "<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n<Velkorandia>\n  <QTL>\n"
            "    <A>\x87\x40</A>\n    <B>\xFB\xFC&#233;</B>\n  </QTL>\n</Velkorandia>\n");
  // A writer that was killed when it had reserved the length.
  WriteNative(native("file"), ReadNative(native("file")) + std::string(100, '\0'));
  EXPECT_EQ(xml_.InsertXMLValue(path(L"file"), Texts{L"C", L"D"}, Texts{L"1", L"2"}), 0);
  EXPECT_THAT(ReadNative(native("file")),
              ::testing::EndsWith("    <B>\xFB\xFC&#233;</B>\n    <C>1</C>\n    <D>2</D>\n"
                                  "  </QTL>\n</Velkorandia>\n"));
}

// xml_log.txt has the lines in the order of the calls.
TEST_F(XmlTest, FailuresAreLoggedAndLoseNothing) {
  const CString good = L"<Velkorandia><QTL><A>0</A></QTL></Velkorandia>";
  CString text = L"kept";
  CStringArray values;
  CMapStringToString map;
  RowArray rows;
  EXPECT_THROW(CXml::GetRowData(&rows, 0, L"A"), wchar_t*);
  const CStringArray names = {L"A", L"*", L"B"};
  EXPECT_EQ(xml_.SelectXMLStringValue01(good, L"A B", text), 1);
  EXPECT_EQ(xml_.SelectXMLStringValue(good, L"Velkorandia//QTL", L"A", text), 1);
  EXPECT_EQ(xml_.SelectXMLStringValue(good, L"", values), 1);
  EXPECT_EQ(xml_.SelectXMLStringValue(good, names, map), 1);
  EXPECT_EQ(xml_.SelectXMLStringValue03(good, names, values), 1);
  EXPECT_EQ(CXml(L"Velkorandia", L"").SelectXmlData(good, &rows), 1);

  EXPECT_EQ(xml_.CreateXmlString01({L"A", L"1"}, {L"x", L"y"}), L"");
  EXPECT_EQ(xml_.CreateXmlString01({L"A", L"B"}, {L"1"}), L"");
  CXml no_name(L"*", L"QTL");
  CXml korean(L"Velkorandia", L"한");  // which the file's encoding lacks
  korean.SelectXmlData(L"<Velkorandia><한/></Velkorandia>", &rows);
  WriteNative(native("file"), "old");
  EXPECT_EQ(no_name.CreateXmlString(rows), L"");
  EXPECT_EQ(no_name.CreateXmlString(path(L"file"), rows, text), 1);
  EXPECT_EQ(korean.CreateXmlString(path(L"file"), rows, text), 1);
  EXPECT_EQ(xml_.CreateXmlString(path(L"none\\file"), rows, text), 1);
  EXPECT_EQ(text, L"kept");

  text = L"<Velkorandia>";
  EXPECT_EQ(xml_.InsertXMLValueText(text, L"A", L"1"), 1);
  EXPECT_EQ(xml_.UpdateXMLValueText(text, {L"A"}, {L"1"}), 1);
  EXPECT_EQ(text, L"<Velkorandia>");
  text = good;
  EXPECT_EQ(xml_.UpdateXMLValueText(text, Texts{L"A", L"*"}, Texts{L"1", L"2"}), 1);
  EXPECT_EQ(text, good);
  // The array form leaves out the pair that fails.
  EXPECT_EQ(xml_.InsertXMLValueText(text, {L"B", L"*", L"C"}, {L"1", L"2", L"3"}), 1);
  EXPECT_EQ(text, Document(L"<Velkorandia><QTL><A>0</A><B>1</B><C>3</C></QTL></Velkorandia>"));
  EXPECT_EQ(xml_.InsertXMLValue(path(L"none"), L"A", L"1"), 1);
  EXPECT_EQ(xml_.InsertXMLValue(path(L"file"), L"A", L"1"), 1);
  EXPECT_EQ(ReadNative(native("file")), "old");
  CString lines = FromUtf8(log_.text());
  ReplaceAll(lines, temp_.path(), L"<folder>");
  EXPECT_EQ(ToUtf8(lines), ReadNative(TQ_TEST_DATA "/xml_log.txt"));
}

}  // namespace
}  // namespace vk::tq::testing
