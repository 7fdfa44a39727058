#include "platform/xml_document.h"

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
  for (int i = 0; i < 2 * depth; ++i) text += i < depth ? L"<a>" : L"</a>";
  return text;
}

class XmlDocumentTest : public ProductTest {
 protected:
  // The serialised form of what a text parses to, without its declaration; "-" if it does not parse.
  std::wstring Reparsed(std::wstring_view text) {
    XmlDocument document;
    if (!document.Parse(text)) return L"-";
    return document.ToText().substr(kDeclaration.size());
  }
};

TEST_F(XmlDocumentTest, RefusesWhatIsNoDocument) {
  const wchar_t* const texts[] = {
      L"",
      L"<a>",
      L"<a/><b/>",
      L"<a>&#xD800;</a>",
      L"<x:a/>",
      L"<!DOCTYPE a [<!ENTITY b SYSTEM \"file:///etc/hostname\">]><a>&b;</a>",
      L"<!DOCTYPE a [<!ENTITY b \"bbbbbbbb\"><!ENTITY c \"&b;&b;&b;&b;\">]><a>&c;</a>"};
  const char* const files[] = {"", "<a>\xE6\x97</a>",
                               "<?xml version='1.0' encoding='Shift_JIS'?><a>\x81\x30</a>",
                               "<?xml version='1.0' encoding='EUC-JP'?><a>\xC6</a>",
                               "<?xml version='1.0' encoding='no-such'?><a/>"};
  ::testing::internal::CaptureStderr();
  XmlDocument document;
  for (const wchar_t* text : texts) {
    SetLastError(0);
    EXPECT_FALSE(document.Parse(text) || document.root()) << ToUtf8(text);
    EXPECT_EQ(GetLastError(), kErrorInvalidData);
  }
  for (const char* bytes : files) {
    SetLastError(0);
    WriteNative(native("file"), bytes);
    EXPECT_FALSE(document.Load(path(L"file")) || document.root()) << bytes;
    EXPECT_EQ(GetLastError(), kErrorInvalidData);
  }
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
  for (const int too_deep : {257, 300000}) EXPECT_EQ(Reparsed(Nested(too_deep)), L"-");
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
      EXPECT_EQ(Reparsed(L"<a>" + text + L"</a>"), L"-") << place;
    }
  }
  EXPECT_EQ(document.ToText(), std::wstring(kDeclaration) + L"<r><a>old</a></r>");
}

// Indented where white space means nothing. The code page has all of the first text in <a>; of the
// one in <b> nothing, although it has its like.
TEST_F(XmlDocumentTest, SavesInCodePage932) {
  const std::pair<const wchar_t*, const char*> cases[] = {
      {L"<ル><a>日本①～髙\\~ｱ</a><b>é¥‾〜한\U0001F600</b><c> &#13;\n\t</c></ル>",
       "<\x83\x8B>\n"
       "  <a>\x93\xFA\x96\x7B\x87\x40\x81\x60\xFB\xFC\\~\xB1</a>\n"
       "  <b>&#233;&#165;&#8254;&#12316;&#54620;&#128512;</b>\n"
       "  <c> &#13;\n\t</c>\n"
       "</\x83\x8B>\n"},
      {L"<a b='한'><!-- 日 -->x<b/></a>", "<a b=\"&#54620;\"><!-- \x93\xFA -->x<b/></a>\n"},
      {L"<!--c--><a><b><?p q?><b/></b></a>",
       "<!--c-->\n<a>\n  <b>\n    <?p q?>\n    <b/>\n  </b>\n</a>\n"}};
  XmlDocument document;
  for (const auto& [text, saved] : cases) {
    ASSERT_TRUE(document.Parse(text));
    EXPECT_EQ(Bytes(document.ToIndentedShiftJis()),
              "<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n" + std::string(saved));
  }
  for (const wchar_t* text : {L"<한/>", L"<a 한=''/>", L"<a><!-- 한 --></a>", L"<?p 한?><a/>"}) {
    ASSERT_TRUE(document.Parse(text));
    EXPECT_THROW(document.ToIndentedShiftJis(), XmlError);
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
  EXPECT_EQ(XmlError(0x80070005).Description(), FormatErrorMessage(5));
  EXPECT_EQ(XmlError(0x80040200).Description(), L"Unknown error 0x80040200");
  EXPECT_EQ(XmlError(0x8004FFFF).Description(), L"IDispatch error #65023");
}

}  // namespace
}  // namespace vk::tq::testing
