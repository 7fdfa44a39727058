#include "platform/xml_document.h"

#include <random>
#include <thread>

#include "platform/error.h"
#include "platform/text.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

constexpr std::wstring_view kDeclaration = L"<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n";

std::string Bytes(const SecureBytes& bytes) { return {bytes.begin(), bytes.end()}; }

std::wstring Nested(int depth) {
  std::wstring text;
  for (int i = 0; i < depth; ++i) text += L"<a>";
  for (int i = 0; i < depth; ++i) text += L"</a>";
  return text;
}

class XmlDocumentTest : public ProductTest {
 protected:
  // The serialised form of what a text parses to, without its declaration; "-" if it does not parse.
  std::wstring Reparsed(std::wstring_view text) {
    XmlDocument document;
    if (!document.Parse(text)) return L"-";
    const std::wstring serialised = document.ToText();
    return serialised.substr(kDeclaration.size());
  }
};

TEST_F(XmlDocumentTest, RefusesWhatIsNoDocument) {
  std::vector<std::wstring> texts = {{L'<', L'a', L'>', 0xDC00, L'<', L'/', L'a', L'>'},
                                     std::wstring(L"<a>\0</a>", 8),
                                     Nested(257),
                                     Nested(300000)};
  for (const wchar_t* text :
       {L"", L"<a>", L"<a/><b/>", L"<a>&#xD800;</a>", L"<a>\x01</a>", L"<x:a/>",
        L"<!DOCTYPE a [<!ENTITY b SYSTEM \"file:///etc/hostname\">]><a>&b;</a>",
        L"<!DOCTYPE a [<!ENTITY b \"bbbbbbbb\"><!ENTITY c \"&b;&b;&b;&b;\">]><a>&c;</a>"}) {
    texts.push_back(text);
  }
  ::testing::internal::CaptureStderr();
  const auto expect_nothing = [](const XmlDocument& document) {
    EXPECT_EQ(GetLastError(), kErrorInvalidData);
    EXPECT_FALSE(document.root());
    EXPECT_EQ(document.ToText(), L"");
    SetLastError(0);
  };
  for (const std::wstring& text : texts) {
    XmlDocument document;
    EXPECT_FALSE(document.Parse(text)) << ToUtf8(text.substr(0, 80));
    expect_nothing(document);
  }
  for (const char* bytes :
       {"", "<a>\xE6\x97</a>", "<?xml version='1.0' encoding='Shift_JIS'?><a>\x81\x30</a>",
        "<?xml version='1.0' encoding='EUC-JP'?><a>\xC6</a>",
        "<?xml version='1.0' encoding='no-such'?><a/>"}) {
    WriteNative(native("file"), bytes);
    XmlDocument document;
    EXPECT_FALSE(document.Load(path(L"file"))) << bytes;
    expect_nothing(document);
  }
  EXPECT_FALSE(XmlDocument().Load(path(L"none")));
  EXPECT_EQ(GetLastError(), kErrorFileNotFound);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(XmlDocumentTest, KeepsWhatADocumentHolds) {
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      // The declared encoding is that of a file; a text has none.
      {L"\xFEFF<?xml version='1.0' encoding='no-such'?><日本>語é\U0001F600</日本>",
       L"<日本>語é\U0001F600</日本>"},
      {L"<a> <b> x </b>\r\n\t<c>  </c> </a>", L"<a><b> x </b><c>  </c></a>"},
      {L"<a>x <b/> y</a>", L"<a>x <b/> y</a>"},
      {L"<a>x\r\ny&#13;&#10;z\t</a>", L"<a>x\ny&#13;\nz\t</a>"},
      {L"<a><![CDATA[<&>]]>&lt;&#x65E5;</a>", L"<a>&lt;&amp;&gt;&lt;日</a>"},
      {L"<!-- 1 --><?p q?><a/><!-- 2 -->", L"<!-- 1 --><?p q?><a/><!-- 2 -->"},
      {L"<a b='1 &quot;&#10;&#9;&lt;' xml:space='preserve'/>",
       L"<a b=\"1 &quot;&#10;&#9;&lt;\" xml:space=\"preserve\"/>"},
      {L"<a xmlns='u:1' xmlns:p='u:2?a&amp;b'><p:b p:c='d'/></a>",
       L"<a xmlns=\"u:1\" xmlns:p=\"u:2?a&amp;b\"><p:b p:c=\"d\"/></a>"}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(Reparsed(text), expected) << ToUtf8(text);
    EXPECT_EQ(Reparsed(expected), expected) << "once more";
  }
  EXPECT_EQ(Reparsed(Nested(256)).size(), 255 * 7 + 4u);
}

// The parser's usual limit is 10,000,000 bytes.
TEST_F(XmlDocumentTest, SlowLongText) {
  std::wstring text(10'100'000, L'x');
  text.replace(5'000'000, 4, L"\r&<>");
  XmlDocument document;
  document.CreateRoot(L"a").Append(L"b", text);
  XmlDocument parsed;
  ASSERT_TRUE(parsed.Parse(document.ToText()));
  EXPECT_TRUE(parsed.Select(L"a/b").front().text() == text);
}

TEST_F(XmlDocumentTest, SelectsByPathsOfNames) {
  XmlDocument document;
  ASSERT_TRUE(
      document.Parse(L"<r><!--x--><q><a>1</a>t<a>2<b>3</b></a></q><q/><q><a>4</a></q>"
                     L"<p:q xmlns:p='u'><a>5</a></p:q></r>"));
  const auto texts = [](const std::vector<XmlElement>& elements) {
    std::wstring joined;
    for (const XmlElement& element : elements) joined += element.name() + element.text() + L" ";
    return joined;
  };
  EXPECT_EQ(texts(document.Select(L"r/q/a")), L"a1 a23 a4 ");
  EXPECT_EQ(texts(document.root()->children()), L"q1t23 q q4 p:q5 ");
  for (const wchar_t* path : {L"/a", L"a/", L"a[1]"}) {
    EXPECT_THROW(document.Select(path), XmlError) << ToUtf8(path);
  }
}

TEST_F(XmlDocumentTest, RefusesWhatXmlCannotHoldAndChangesNothing) {
  XmlDocument document;
  XmlElement root = document.CreateRoot(L"r");
  XmlElement leaf = root.Append(L"a", L"old");
  for (const wchar_t* name : {L"", L"1", L"a b", L"p:a", L"①"}) {
    EXPECT_THROW(root.Append(name, L""), XmlError) << ToUtf8(name);
    EXPECT_THROW(document.CreateRoot(name), XmlError) << ToUtf8(name);
  }
  for (const wchar_t bad : {0, 1, 0x1F, 0xD800, 0xDFFF, 0xFFFE, 0xFFFF, 0x110000, -1}) {
    for (std::size_t place = 0; place < 200; ++place) {  // a long text is looked at in pieces
      std::wstring text(200, L'x');
      text[place] = bad;
      EXPECT_THROW(root.Append(L"b", text), XmlError) << place;
      EXPECT_THROW(leaf.SetText(text), XmlError) << place;
    }
  }
  EXPECT_EQ(document.ToText(), std::wstring(kDeclaration) + L"<r><a>old</a></r>");
}

TEST_F(XmlDocumentTest, SavesInCodePage932) {
  XmlDocument document;
  XmlElement record = document.CreateRoot(L"ル").Append(L"r", L"");
  // The code page has all of the first; of the second nothing, although it has its like.
  record.Append(L"a", L"日本①～髙\\~ｱ");
  record.Append(L"b", L"é¥‾〜한\U0001F600");
  record.Append(L"c", L" \r\n\t");
  record.Append(L"d", L"");
  EXPECT_EQ(Bytes(document.ToIndentedShiftJis()),
            "<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n"
            "<\x83\x8B>\n"
            "  <r>\n"
            "    <a>\x93\xFA\x96\x7B\x87\x40\x81\x60\xFB\xFC\\~\xB1</a>\n"
            "    <b>&#233;&#165;&#8254;&#12316;&#54620;&#128512;</b>\n"
            "    <c> &#13;\n\t</c>\n"
            "    <d/>\n"
            "  </r>\n"
            "</\x83\x8B>\n");
  for (const wchar_t* text : {L"<한/>", L"<a 한=''/>", L"<a><!-- 한 --></a>", L"<?p 한?><a/>"}) {
    ASSERT_TRUE(document.Parse(text));
    EXPECT_THROW(document.ToIndentedShiftJis(), XmlError);
  }
}

TEST_F(XmlDocumentTest, IndentsOnlyWhereWhiteSpaceMeansNothing) {
  const std::pair<const wchar_t*, const char*> cases[] = {
      {L"<a b='한'><!-- 日 -->x<b/></a>", "<a b=\"&#54620;\"><!-- \x93\xFA -->x<b/></a>\n"},
      {L"<!--c--><a><?p q?><b/></a>", "<!--c-->\n<a>\n  <?p q?>\n  <b/>\n</a>\n"}};
  XmlDocument document;
  for (const auto& [text, indented] : cases) {
    ASSERT_TRUE(document.Parse(text));
    EXPECT_THAT(Bytes(document.ToIndentedShiftJis()),
                ::testing::EndsWith("?>\n" + std::string(indented)));
  }
}

TEST_F(XmlDocumentTest, LoadsByMarkAndDeclaration) {
  const std::string utf16 = *EncodeText(kCodePageUtf16Le, L"\xFEFF<a>日</a>");
  std::string swapped = utf16;
  for (std::size_t i = 0; i + 1 < swapped.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
  const std::string files[] = {
      "<a>日</a>", "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"Shift_JIS\"?><a>日</a>", utf16,
      swapped,
      *EncodeText(kCodePageUtf16Le, L"\xFEFF<?xml version='1.0' encoding='Shift_JIS'?><a>日</a>"),
      "<?xml version='1.0' encoding='EUC-JP'?><a>\xC6\xFC</a>",
      "<?xml version='1.0' encoding = \"shift_jis\" ?>\r\n<a>\x93\xFA</a>",
      // What writers leave that were killed: reserved space, and the rest of a longer file.
      std::string("<a>日</a>\0\0\0", 13),
      std::string("<?xml version='1.0' encoding='Shift_JIS'?><a>\x93\xFA</a>\0</b>\x93", 58)};
  for (const std::string& bytes : files) {
    WriteNative(native("file"), bytes);
    XmlDocument document;
    ASSERT_TRUE(document.Load(path(L"file"))) << bytes;
    EXPECT_EQ(document.root()->text(), L"日") << bytes;
  }
}

// Texts of every kind of character survive both forms.
TEST_F(XmlDocumentTest, WhatIsWrittenReadsBack) {
  constexpr std::wstring_view kPieces[] = {L"a",    L" ",     L"\r",    L"\n",         L"\r\n",
                                           L"\t",   L"&",     L"<",     L"]]>",        L"\"",
                                           L"日本", L"①～髙", L"\\é¥",  L"\U0001F600", L"\x85",
                                           L"\xA0", L"한",    L"&#13;", L"\xFFFD",     L"ｱ"};
  std::mt19937 random(3);
  for (int round = 0; round < 300; ++round) {
    std::wstring text;
    const std::size_t count = random() % (round % 20 == 0 ? 2000 : 12);
    while (text.size() < count) text += kPieces[random() % std::size(kPieces)];
    XmlDocument document;
    XmlElement root = document.CreateRoot(L"a");
    for (int i = 0; i < 3; ++i) root.Append(L"b", text);
    WriteNative(native("file"), Bytes(document.ToIndentedShiftJis()));
    for (const bool is_file : {false, true}) {
      XmlDocument read;
      ASSERT_TRUE(is_file ? read.Load(path(L"file")) : read.Parse(document.ToText()));
      EXPECT_EQ(read.ToText(), document.ToText());
      EXPECT_EQ(read.Select(L"a/b").back().text(), text);
    }
  }
}

TEST_F(XmlDocumentTest, ThreadsDoNotMeet) {
  const auto work = [&] {
    for (int i = 0; i < 100; ++i) {
      EXPECT_EQ(XmlDocument().CreateRoot(L"a").name(), L"a");  // first: it may be the first use
      EXPECT_EQ(Reparsed(L"<a><b>日本語</b></a>"), L"<a><b>日本語</b></a>");
      EXPECT_EQ(Reparsed(L"<a>"), L"-");
    }
  };
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(work);
}

TEST_F(XmlDocumentTest, DescribesErrors) {
  const std::pair<std::uint32_t, std::wstring> cases[] = {{0x80070005, FormatErrorMessage(5)},
                                                          {0x80040200, L"Unknown error 0x80040200"},
                                                          {0x8004FFFF, L"IDispatch error #65023"}};
  for (const auto& [code, text] : cases) EXPECT_EQ(XmlError(code).Description(), text);
  EXPECT_FALSE(FormatErrorMessage(5).empty());
}

}  // namespace
}  // namespace vk::tq::testing
