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

  // What each of the reading operations finds, with what was there before it.
  std::wstring Found(const CString& text) {
    std::wstring found;
    for (const wchar_t* name : {L"A", L"C", L"E", L"a"}) {
      CString value = L"none";
      EXPECT_EQ(xml_.SelectXMLStringValue01(text, name, value), 0);
      found += value + L",";
    }
    CString below = L"none";
    EXPECT_EQ(xml_.SelectXMLStringValue(text, L"Velkorandia", L"QTL", below), 0);
    CStringArray all = {L"\nbefore", below};
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

  // That an operation failed, and left these lines alone.
  void ExpectFailure(int result, const std::vector<LogLine>& lines) {
    EXPECT_EQ(result, 1);
    EXPECT_EQ(log_.lines(), lines);
    log_.Clear();
  }
  // The line of a failed operation.
  static LogLine Failed(int number, const wchar_t* operation, const CString& message) {
    return {3, number, L"CXml::" + CString(operation), message};
  }
  static LogLine NotSaved(const CString& why) {
    return Failed(130108, L"SaveIndentXML",
                  L"XMLデータのインデント処理時に例外が発生しました。" + why);
  }
  static CString NotWritten(const CString& why, const CString& file) {
    return L"XMLファイル書込み時に例外が発生しました。" + why + L",ファイル名=" + file;
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

TEST_F(XmlTest, EachOperationFindsWhatItIsAskedFor) {
  EXPECT_EQ(Found(kTwoRecords),
            L"1, x ,,none,\nbefore,1二2,1,2,3, x ,1,2,3,\nA=3,E=,kept=k,\nA=1,C= x ,kept=k,\n"
            L"Z=0,\nA=2,B=二,E=,\nA=3,C= x ,\n");
  for (const wchar_t* text : {L"", L"no document", L"<Velkorandia><QTL><A>1</A></QTL>",
                              L"<Other><QTL><A>1</A></QTL></Other>"}) {
    EXPECT_EQ(Found(text),
              L"none,none,none,none,\nbefore,none,\nA=old,kept=k,\nA=old,kept=k,\nZ=0,");
  }
}

TEST_F(XmlTest, TellsOfRowsThatAreNotThere) {
  RowArray rows;
  EXPECT_THROW(CXml::GetRowData(&rows, -1, L"A"), wchar_t*);
  xml_.SelectXmlData(kTwoRecords, &rows);
  EXPECT_EQ(CXml::GetRowData(&rows, 1, L"C") + CXml::GetRowData(&rows, 2, L"C"), L" x ");
  EXPECT_THROW(CXml::GetRowData(&rows, 3, L"A"), wchar_t*);
  EXPECT_THROW(CXml::GetRowData(&rows, -1, L"A"), CInvalidArgException);
  const wchar_t* const function = L"CXml::GetRowData";
  ExpectFailure(1, {{6, 130113, function, L"行データが0件の為、データ取得に失敗しました。"},
                    {6, 130114, function, L"指定された行番号がインデックスを超えています。"}});
}

TEST_F(XmlTest, FailedReadingLeavesTwoLines) {
  const CString text = kTwoRecords;
  const CString why = Description(XmlError::kUnspecified);
  const CString reading = L"XMLファイル読込み時に例外が発生しました。" + why;
  const auto fails = [&](int number, const wchar_t* operation, const CString& message, int result) {
    ExpectFailure(result, {Failed(number, operation, message),
                           {2, 130102, L"CXml::" + CString(operation), L"XMLデータ：" + text}});
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
  EXPECT_EQ(map[L"A"], L"3") << "what was collected stays";
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

TEST_F(XmlTest, FailedCreationLosesNothing) {
  const CString message = L"キャッシュするデータのXML文生成に失敗しました。";
  const CString bad_name = Description(XmlError::kInvalidName);
  const CString bad_character = Description(XmlError::kInvalidCharacter);
  const std::tuple<CStringArray, CStringArray, CString> cases[] = {
      {{L"A", L"1"}, {L"x", L"y"}, bad_name},
      {{L"A"}, {L"\x1"}, bad_character},
      {{L"A", L"B"}, {L"1"}, L""}};  // no error of the XML layer
  for (const auto& [names, values, why] : cases) {
    ExpectFailure(xml_.CreateXmlString01(names, values).empty(),
                  {Failed(130106, L"CreateXmlString01", message + why)});
  }
  RowArray rows;
  CXml no_name(L"*", L"QTL");
  CXml korean(L"Velkorandia", L"한");  // a name that the file's encoding lacks
  korean.SelectXmlData(L"<Velkorandia><한/></Velkorandia>", &rows);
  WriteNative(native("file"), "old");
  CString text = L"kept";
  ExpectFailure(no_name.CreateXmlString(rows).empty(),
                {Failed(130106, L"CreateXmlString", message + bad_name)});
  ExpectFailure(no_name.CreateXmlString(path(L"file"), rows, text),
                {Failed(130106, L"CreateXmlString", NotWritten(bad_name, path(L"file")))});
  ExpectFailure(korean.CreateXmlString(path(L"file"), rows, text), {NotSaved(bad_character)});
  ExpectFailure(xml_.CreateXmlString(path(L"none\\file"), rows, text),
                {NotSaved(FormatErrorMessage(kErrorPathNotFound))});
  EXPECT_EQ(text, L"kept");
  EXPECT_EQ(ReadNative(native("file")), "old");
}

// ---- Changes ----

TEST_F(XmlTest, InsertsIntoEveryRecordOfATextAndUpdatesTheFirst) {
  CString text = L"<Velkorandia><QTL><A>1</A></QTL><x/><QTL/></Velkorandia>";
  EXPECT_EQ(xml_.InsertXMLValueText(text, {L"A", L"B"}, {L"<新>", L"2", L"3"}), 0);
  EXPECT_EQ(text, Document(L"<Velkorandia><QTL><A>1</A><A>&lt;新&gt;</A><B>2</B></QTL><x/>"
                           L"<QTL><A>&lt;新&gt;</A><B>2</B></QTL></Velkorandia>"));
  text = kTwoRecords;
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
  // A writer that was killed when it had reserved the length.
  WriteNative(native("file"), ReadNative(native("file")) + std::string(100, '\0'));
  EXPECT_EQ(xml_.InsertXMLValue(path(L"file"), Texts{L"C", L"D"}, Texts{L"1", L"2"}), 0);
  EXPECT_THROW(xml_.InsertXMLValue(path(L"file"), Texts{L"X", L"Y"}, Texts{L"3"}),
               CInvalidArgException);
  EXPECT_EQ(TextOfFile(L"file"), Document(L"<Velkorandia><QTL><A>①</A><B>髙é</B><C>1</C><D>2</D>"
                                          L"<X>3</X></QTL></Velkorandia>"));
}

TEST_F(XmlTest, FailedChangeOfATextLosesNothing) {
  const CString broken = FormatErrorMessage(kErrorInvalidData);
  const CString good = L"<Velkorandia><QTL><A>0</A></QTL></Velkorandia>";
  const auto fails = [&](int result, const wchar_t* operation, const CString& why,
                         const CString& name, const CString& value) {
    const CString message = NotWritten(why, L"") + L",追加要素名=" + name + L",追加要素値=" + value;
    ExpectFailure(result, {Failed(130111, operation, message)});
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
  fails(xml_.InsertXMLValueText(text, {L"B", L"*", L"C"}, {L"1", L"2", L"3"}), insert,
        Description(XmlError::kInvalidName), L"*", L"2");
  EXPECT_EQ(text, Document(L"<Velkorandia><QTL><A>0</A><B>1</B><C>3</C></QTL></Velkorandia>"));
}

TEST_F(XmlTest, FailedChangeOfAFileLosesNothing) {
  // No document, and one that the file's encoding lacks a character for.
  const std::pair<const char*, LogLine> cases[] = {
      {"<Velkorandia><QTL>",
       Failed(130111, L"InsertXMLValue",
              NotWritten(FormatErrorMessage(kErrorInvalidData), path(L"file")) +
                  L",追加要素名=A,追加要素値=1")},
      {"<Velkorandia><QTL/><!-- \xED\x95\x9C --></Velkorandia>",
       NotSaved(Description(XmlError::kInvalidCharacter))}};
  for (const auto& [contents, expected] : cases) {
    WriteNative(native("file"), contents);
    ExpectFailure(xml_.InsertXMLValue(path(L"file"), L"A", L"1"), {expected});
    EXPECT_EQ(ReadNative(native("file")), contents);
  }
}

}  // namespace
}  // namespace testing
}  // namespace vk::tq
