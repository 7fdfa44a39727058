#include "storage/xml.h"

#include "platform/error.h"
#include "platform/text.h"
#include "platform/xml_document.h"
#include "support/test_support.h"

namespace vk::tq {

namespace testing {
namespace {

using Texts = CStringArray;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

constexpr wchar_t kTwoRecords[] =
    L"<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\r\n"
    L"<Velkorandia>\r\n  <QTL><A>1</A><B>二</B><A>2</A><E/></QTL>\r\n"
    L"  <QTL><!-- c --><A>3</A><C> x </C></QTL>\r\n  <QTL></QTL>\r\n</Velkorandia>";

CString Document(std::wstring_view contents) {
  return L"<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n" + CString(contents);
}

CString Description(std::uint32_t code) { return XmlError(code).Description(); }

class XmlTest : public ProductTest {
 protected:
  ~XmlTest() override { EXPECT_THAT(log_.lines(), IsEmpty()) << "beside those that were taken"; }

  // The line of a failed operation, and the second line of a reading one.
  static LogLine Failed(int number, const wchar_t* operation, const CString& message) {
    return {3, number, L"CXml::" + CString(operation), message};
  }
  static LogLine WholeText(const wchar_t* operation, const CString& xml) {
    return {2, 130102, L"CXml::" + CString(operation), L"XMLデータ：" + xml};
  }
  std::vector<LogLine> TakeLines() {
    std::vector<LogLine> lines = log_.lines();
    log_.Clear();
    return lines;
  }
  CString First(const CString& text, const CString& name) {
    CString value = L"(none)";
    EXPECT_EQ(xml_.SelectXMLStringValue01(text, name, value), 0);
    return value;
  }
  // The text of a file in its declared encoding, without white space of its own.
  CString TextOfFile(std::wstring_view name) {
    XmlDocument document;
    EXPECT_TRUE(document.Load(path(name)));
    return document.ToText();
  }

  CXml xml_;
};

// ---- Reading ----

TEST_F(XmlTest, ReadsTheFirstElement) {
  EXPECT_EQ(First(kTwoRecords, L"A"), L"1");
  EXPECT_EQ(First(kTwoRecords, L"C"), L" x ") << "of the second record";
  EXPECT_EQ(First(kTwoRecords, L"E"), L"");
  EXPECT_EQ(First(kTwoRecords, L"a"), L"(none)");
  CString value = L"kept";
  EXPECT_EQ(xml_.SelectXMLStringValue(kTwoRecords, L"Velkorandia", L"QTL", value), 0);
  EXPECT_EQ(value, L"1二2");
}

TEST_F(XmlTest, ReadsEveryElement) {
  CStringArray values = {L"before"};
  EXPECT_EQ(xml_.SelectXMLStringValue(kTwoRecords, L"A", values), 0);
  EXPECT_THAT(values, ElementsAre(L"before", L"1", L"2", L"3"));
  values.RemoveAll();
  EXPECT_EQ(xml_.SelectXMLStringValue03(kTwoRecords, {L"C", L"none", L"A"}, values), 0);
  EXPECT_THAT(values, ElementsAre(L" x ", L"1", L"2", L"3"));

  CMapStringToString map = {{L"kept", L"k"}, {L"A", L"old"}};
  EXPECT_EQ(xml_.SelectXMLStringValue(kTwoRecords, {L"A", L"E", L"none"}, map), 0);
  EXPECT_THAT(map, UnorderedElementsAre(Pair(L"kept", L"k"), Pair(L"A", L"3"), Pair(L"E", L"")));
  EXPECT_EQ(xml_.SelectFirstXMLStringValue(kTwoRecords, {L"A", L"C", L"none"}, map), 0);
  EXPECT_THAT(map, UnorderedElementsAre(Pair(L"kept", L"k"), Pair(L"A", L"1"), Pair(L"C", L" x "),
                                        Pair(L"E", L"")));
}

TEST_F(XmlTest, ReadsRows) {
  RowArray rows;
  EXPECT_EQ(xml_.SelectXmlData(L"<Velkorandia><QTL><Z>0</Z></QTL></Velkorandia>", &rows), 0);
  EXPECT_EQ(xml_.SelectXmlData(kTwoRecords, &rows), 0);
  ASSERT_EQ(rows.m_aRows.GetSize(), 4);
  EXPECT_EQ(CXml::GetRowData(&rows, 0, L"Z"), L"0");
  EXPECT_THAT(*rows.m_aRows[1].m_pColumns,
              UnorderedElementsAre(Pair(L"A", L"2"), Pair(L"B", L"二"), Pair(L"E", L"")));
  EXPECT_EQ(CXml::GetRowData(&rows, 2, L"C"), L" x ");
  EXPECT_THAT(*rows.m_aRows[3].m_pColumns, IsEmpty());
}

TEST_F(XmlTest, TellsOfRowsThatAreNotThere) {
  RowArray rows;
  EXPECT_THROW(CXml::GetRowData(&rows, -1, L"A"), wchar_t*);
  xml_.SelectXmlData(kTwoRecords, &rows);
  EXPECT_THROW(CXml::GetRowData(&rows, 3, L"A"), wchar_t*);
  EXPECT_THROW(CXml::GetRowData(&rows, -1, L"A"), CInvalidArgException);
  EXPECT_THAT(TakeLines(), ElementsAre(LogLine{6, 130113, L"CXml::GetRowData",
                                               L"行データが0件の為、データ取得に失敗しました。"},
                                       LogLine{6, 130114, L"CXml::GetRowData",
                                               L"指定された行番号がインデックスを超えています。"}));
}

TEST_F(XmlTest, FindsNothingInWhatIsNoDocument) {
  for (const wchar_t* text : {L"", L"no document", L"<Velkorandia><QTL><A>1</A></QTL>",
                              L"<Other><QTL><A>1</A></QTL></Other>"}) {
    CStringArray values;
    CMapStringToString map;
    RowArray rows;
    EXPECT_EQ(First(text, L"A"), L"(none)");
    EXPECT_EQ(xml_.SelectXMLStringValue(text, L"A", values), 0);
    EXPECT_EQ(xml_.SelectXMLStringValue(text, {L"A"}, map), 0);
    EXPECT_EQ(xml_.SelectXMLStringValue03(text, {L"A"}, values), 0);
    EXPECT_EQ(xml_.SelectXmlData(text, &rows), 0);
    EXPECT_TRUE(values.IsEmpty() && map.empty() && rows.m_aRows.IsEmpty());
  }
}

TEST_F(XmlTest, FailedReadingLeavesTwoLines) {
  const CString text = kTwoRecords;
  const CString why = Description(XmlError::kUnspecified);
  const CString reading = L"XMLファイル読込み時に例外が発生しました。" + why;
  const auto fails = [&](int number, const wchar_t* function, const CString& message, int result) {
    EXPECT_EQ(result, 1);
    EXPECT_THAT(TakeLines(),
                ElementsAre(Failed(number, function, message), WholeText(function, text)));
  };
  CString value = L"kept";
  CStringArray values;
  CMapStringToString map;
  RowArray rows;
  const CStringArray names = {L"A", L"*", L"B"};
  fails(130101, L"SelectXMLStringValue01", reading + L" 要素名=A B",
        xml_.SelectXMLStringValue01(text, L"A B", value));
  fails(130103, L"SelectXMLStringValue", reading + L" XMLノードパス=Velkorandia//QTL,要素名=A",
        xml_.SelectXMLStringValue(text, L"Velkorandia//QTL", L"A", value));
  fails(130101, L"SelectXMLStringValue", reading + L" 要素名=",
        xml_.SelectXMLStringValue(text, L"", values));
  fails(130104, L"SelectXMLStringValue", reading, xml_.SelectXMLStringValue(text, names, map));
  fails(130101, L"SelectXMLStringValue03", reading + L" 要素名=",
        xml_.SelectXMLStringValue03(text, names, values));
  fails(130105, L"SelectXmlData", L"XMLデータ解析時に例外が発生しました。" + why,
        CXml(L"Velkorandia", L"").SelectXmlData(text, &rows));
  EXPECT_EQ(value, L"kept");
  EXPECT_THAT(map, ElementsAre(Pair(L"A", L"3"))) << "what was collected stays";
}

// ---- New documents ----

TEST_F(XmlTest, CreatesOneRecordForEachRow) {
  EXPECT_EQ(CXml(L"Velkorandia", L"ManageInfo").CreateXmlString01({L"A", L"B"}, {L"1", L"", L"3"}),
            Document(L"<Velkorandia><ManageInfo><A>1</A><B/></ManageInfo></Velkorandia>"));
  RowArray rows;
  xml_.SelectXmlData(kTwoRecords, &rows);
  const CString expected = Document(
      L"<Velkorandia><QTL><A>2</A><B>二</B><E/></QTL><QTL><A>3</A><C> x </C></QTL><QTL/>"
      L"</Velkorandia>");
  EXPECT_EQ(xml_.CreateXmlString(rows), expected);

  CString text;
  EXPECT_EQ(xml_.CreateXmlString(path(L"file.xml"), rows, text), 0);
  EXPECT_EQ(text, expected);
  EXPECT_EQ(ReadNative(native("file.xml")),
            "<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n"
            "<Velkorandia>\n"
            "  <QTL>\n    <A>2</A>\n    <B>\x93\xF1</B>\n    <E/>\n  </QTL>\n"
            "  <QTL>\n    <A>3</A>\n    <C> x </C>\n  </QTL>\n"
            "  <QTL/>\n"
            "</Velkorandia>\n");

  RowArray none;
  EXPECT_EQ(xml_.CreateXmlString(path(L"file.xml"), none, text), 0);
  EXPECT_EQ(TextOfFile(L"file.xml"), Document(L"<Velkorandia/>")) << "the longer file was cut";
}

TEST_F(XmlTest, FailedCreationGivesAnEmptyTextAndOneLine) {
  const CString message = L"キャッシュするデータのXML文生成に失敗しました。";
  const std::tuple<CStringArray, CStringArray, CString> cases[] = {
      {{L"A", L"1"}, {L"x", L"y"}, Description(XmlError::kInvalidName)},
      {{L"A"}, {L"\x1"}, Description(XmlError::kInvalidCharacter)},
      {{L"A", L"B"}, {L"1"}, L""}};  // no error of the XML layer
  for (const auto& [names, values, why] : cases) {
    EXPECT_EQ(xml_.CreateXmlString01(names, values), L"");
    EXPECT_THAT(TakeLines(), ElementsAre(Failed(130106, L"CreateXmlString01", message + why)));
  }
  RowArray rows;
  EXPECT_EQ(CXml(L"1", L"QTL").CreateXmlString(rows), L"");
  EXPECT_THAT(TakeLines(), ElementsAre(Failed(130106, L"CreateXmlString",
                                              message + Description(XmlError::kInvalidName))));
}

TEST_F(XmlTest, FailedSaveLosesNothing) {
  RowArray rows;
  CXml korean(L"Velkorandia", L"한");
  korean.SelectXmlData(L"<Velkorandia><한/></Velkorandia>", &rows);
  WriteNative(native("file"), "old");
  CString text = L"kept";
  const CString saving = L"XMLデータのインデント処理時に例外が発生しました。";
  // A file that cannot be made, a name that the file's encoding lacks, rows that make no document.
  EXPECT_EQ(xml_.CreateXmlString(path(L"none\\file"), rows, text), 1);
  EXPECT_EQ(korean.CreateXmlString(path(L"file"), rows, text), 1);
  EXPECT_EQ(CXml(L"*", L"QTL").CreateXmlString(path(L"file"), rows, text), 1);
  EXPECT_THAT(
      TakeLines(),
      ElementsAre(
          Failed(130108, L"SaveIndentXML", saving + FormatErrorMessage(kErrorPathNotFound)),
          Failed(130108, L"SaveIndentXML", saving + Description(XmlError::kInvalidCharacter)),
          Failed(130106, L"CreateXmlString",
                 L"XMLファイル書込み時に例外が発生しました。" +
                     Description(XmlError::kInvalidName) + L",ファイル名=" + path(L"file"))));
  EXPECT_EQ(text, L"kept");
  EXPECT_EQ(ReadNative(native("file")), "old");
}

// ---- Changes ----

TEST_F(XmlTest, InsertsIntoEveryRecordOfAText) {
  CString text = L"<Velkorandia><QTL><A>1</A></QTL><x/><QTL/></Velkorandia>";
  EXPECT_EQ(xml_.InsertXMLValueText(text, L"A", L"<新>"), 0);
  EXPECT_EQ(text, Document(L"<Velkorandia><QTL><A>1</A><A>&lt;新&gt;</A></QTL><x/>"
                           L"<QTL><A>&lt;新&gt;</A></QTL></Velkorandia>"));
  text = L"<Velkorandia><QTL/></Velkorandia>";
  EXPECT_EQ(xml_.InsertXMLValueText(text, {L"A", L"B"}, {L"1", L"2", L"3"}), 0);
  EXPECT_EQ(text, Document(L"<Velkorandia><QTL><A>1</A><B>2</B></QTL></Velkorandia>"));
}

TEST_F(XmlTest, UpdatesTheFirstRecordOfAText) {
  CString text = kTwoRecords;
  EXPECT_EQ(xml_.UpdateXMLValueText(text, {L"A", L"none", L"E"}, {L"new", L"x", L"é"}), 0);
  EXPECT_EQ(text, Document(L"<Velkorandia><QTL><A>new</A><B>二</B><A>2</A><E>é</E></QTL>"
                           L"<QTL><!-- c --><A>3</A><C> x </C></QTL><QTL/></Velkorandia>"));
  text = L"<Velkorandia><other/></Velkorandia>";
  EXPECT_EQ(xml_.UpdateXMLValueText(text, {L"A"}, {L"1"}), 1);
  EXPECT_EQ(text, L"<Velkorandia><other/></Velkorandia>");
}

TEST_F(XmlTest, InsertsIntoAFile) {
  const std::string old =
      "<?xml version=\"1.0\" encoding=\"Shift_JIS\"?>\r\n"
      "<Velkorandia>\r\n\t<QTL>\r\n\t\t<A>\x87\x40</A></QTL></Velkorandia>";
  WriteNative(native("file"), old);
  EXPECT_EQ(xml_.InsertXMLValue(path(L"file"), L"B", L"髙é"), 0);
  EXPECT_EQ(ReadNative(native("file")),
            "<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n<Velkorandia>\n  <QTL>\n"
            "    <A>\x87\x40</A>\n    <B>\xFB\xFC&#233;</B>\n  </QTL>\n</Velkorandia>\n");
  EXPECT_EQ(xml_.InsertXMLValue(path(L"file"), Texts{L"C", L"D"}, Texts{L"1", L"2"}), 0);
  const CString expected =
      Document(L"<Velkorandia><QTL><A>①</A><B>髙é</B><C>1</C><D>2</D></QTL></Velkorandia>");
  EXPECT_EQ(TextOfFile(L"file"), expected);

  // A writer that was killed when it had reserved the length.
  WriteNative(native("file"), ReadNative(native("file")) + std::string(100, '\0'));
  EXPECT_EQ(xml_.InsertXMLValue(path(L"file"), Texts{}, Texts{}), 0);
  EXPECT_EQ(TextOfFile(L"file"), expected);
  EXPECT_THROW(xml_.InsertXMLValue(path(L"file"), Texts{L"X", L"Y"}, Texts{L"1"}),
               CInvalidArgException);
  EXPECT_EQ(First(TextOfFile(L"file"), L"X"), L"1") << "the pair before it has been saved";
}

CString WriteMessage(const CString& description, const CString& file, const CString& name,
                     const CString& value) {
  return L"XMLファイル書込み時に例外が発生しました。" + description + L",ファイル名=" + file +
         L",追加要素名=" + name + L",追加要素値=" + value;
}

TEST_F(XmlTest, FailedChangeOfATextLosesNothing) {
  const CString broken = FormatErrorMessage(kErrorInvalidData);
  const CString good = L"<Velkorandia><QTL><A>0</A></QTL></Velkorandia>";
  const auto fails = [&](int result, const wchar_t* function, const CString& why,
                         const CString& name, const CString& value) {
    EXPECT_EQ(result, 1);
    EXPECT_THAT(TakeLines(),
                ElementsAre(Failed(130111, function, WriteMessage(why, L"", name, value))));
  };
  const wchar_t* const insert = L"InsertXMLValueText";
  const wchar_t* const update = L"UpdateXMLValueText";
  CString text = L"<Velkorandia>";
  fails(xml_.InsertXMLValueText(text, L"A", L"1"), insert, broken, L"A", L"1");
  fails(xml_.UpdateXMLValueText(text, {L"A"}, {L"1"}), update, broken, L"", L"");
  EXPECT_EQ(text, L"<Velkorandia>");
  text = good;
  fails(xml_.UpdateXMLValueText(text, Texts{L"A", L"A"}, Texts{L"1", L"\x2"}), update,
        Description(XmlError::kInvalidCharacter), L"A", L"\x2");
  EXPECT_EQ(text, good);
  // The array form leaves out the pair that fails.
  EXPECT_EQ(xml_.InsertXMLValueText(text, {L"B", L"*", L"C"}, {L"1", L"2", L"3"}), 1);
  EXPECT_EQ(TakeLines().size(), 1u);
  EXPECT_EQ(text, Document(L"<Velkorandia><QTL><A>0</A><B>1</B><C>3</C></QTL></Velkorandia>"));
}

TEST_F(XmlTest, FailedChangeOfAFileLosesNothing) {
  const auto line = [&](ErrorCode error, const CString& name) {
    return ElementsAre(Failed(130111, L"InsertXMLValue",
                              WriteMessage(FormatErrorMessage(error), path(name), L"A", L"1")));
  };
  EXPECT_EQ(xml_.InsertXMLValue(path(L"none"), L"A", L"1"), 1);
  EXPECT_THAT(TakeLines(), line(kErrorFileNotFound, L"none"));

  const std::string broken = "<Velkorandia><QTL>";
  WriteNative(native("broken"), broken);
  EXPECT_EQ(xml_.InsertXMLValue(path(L"broken"), L"A", L"1"), 1);
  EXPECT_THAT(TakeLines(), line(kErrorInvalidData, L"broken"));
  EXPECT_EQ(ReadNative(native("broken")), broken);

  // A save that fails leaves its own line only.
  const std::string korean = "<Velkorandia><QTL/><!-- \xED\x95\x9C --></Velkorandia>";
  WriteNative(native("korean"), korean);
  EXPECT_EQ(xml_.InsertXMLValue(path(L"korean"), L"A", L"1"), 1);
  EXPECT_THAT(TakeLines(), ElementsAre(Failed(130108, L"SaveIndentXML",
                                              L"XMLデータのインデント処理時に例外が発生しました。" +
                                                  Description(XmlError::kInvalidCharacter))));
  EXPECT_EQ(ReadNative(native("korean")), korean);
}

}  // namespace
}  // namespace testing
}  // namespace vk::tq
