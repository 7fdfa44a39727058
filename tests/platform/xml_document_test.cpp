#include "platform/xml_document.h"

#include "platform/error.h"
#include "platform/text.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

constexpr std::wstring_view kDeclaration = L"<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n";

class XmlDocumentTest : public ProductTest {
 protected:
  // The serialised form of what a text or a file parses to, without its declaration; "-" for none.
  std::wstring Reparsed(std::wstring_view text) {
    XmlDocument document;
    return document.Parse(text) ? document.ToText().substr(kDeclaration.size()) : L"-";
  }
  std::wstring Loaded(std::string_view bytes) {
    WriteNative(native("file"), bytes);
    XmlDocument document;
    return document.Load(path(L"file")) ? document.ToText().substr(kDeclaration.size()) : L"-";
  }
};

TEST_F(XmlDocumentTest, RefusesWhatIsNoDocument) {
  for (const wchar_t* text :
       {L"", L"<a>", L"<a>&#xD800;</a>",
        L"<!DOCTYPE a [<!ENTITY b SYSTEM \"file:///etc/hostname\">]><a>&b;</a>",
        L"<!DOCTYPE a [<!ENTITY b \"bbbbbbbb\"><!ENTITY c \"&b;&b;&b;&b;\">]><a>&c;</a>"}) {
    EXPECT_EQ(Reparsed(text), L"-") << ToUtf8(text);
  }
  for (const char* bytes :
       {"", "<a>\xE6\x97</a>", "<?xml version='1.0' encoding='Shift_JIS'?><a>\x81\x30</a>",
        "<?xml version='1.0' encoding='no-such'?><a/>"}) {
    SetLastError(0);
    EXPECT_EQ(Loaded(bytes), L"-") << bytes;
    EXPECT_EQ(GetLastError(), kErrorInvalidData);
  }
  for (const int depth : {256, 257, 300000}) {
    std::wstring nested;
    for (int i = 0; i < 2 * depth; ++i) nested += i < depth ? L"<a>" : L"</a>";
    EXPECT_EQ(Reparsed(nested) == L"-", depth > 256);
  }
}

TEST_F(XmlDocumentTest, KeepsWhatADocumentHolds) {
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      // The declared encoding is that of a file; a text has none.
      {L"\xFEFF<?xml version='1.0' encoding='no-such'?><日本>語é\U0001F600</日本>",
       L"<日本>語é\U0001F600</日本>"},
      {L"<a> <b> x </b>\r\n\t<c>  </c> </a>", L"<a><b> x </b><c>  </c></a>"},
      {L"<a>x\r\ny&#13;&#10;z\t</a>", L"<a>x\ny&#13;\nz\t</a>"},
      {L"<a><![CDATA[<&>]]>&lt;&#x65E5;</a>", L"<a>&lt;&amp;&gt;&lt;日</a>"},
      {L"<!-- 1 --><a xmlns:p='u:2?a&amp;b'><p:b p:c='1 &quot;&#10;&#9;&lt;'/></a>",
       L"<!-- 1 --><a xmlns:p=\"u:2?a&amp;b\"><p:b p:c=\"1 &quot;&#10;&#9;&lt;\"/></a>"}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(Reparsed(text), expected) << ToUtf8(text);
    EXPECT_EQ(Reparsed(expected), expected) << "once more";
  }
  const std::string files[] = {
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"Shift_JIS\"?><a>日</a>",
      *EncodeText(kCodePageUtf16Le, L"\xFEFF<a>日</a>"),
      "<?xml version='1.0' encoding='EUC-JP'?><a>\xC6\xFC</a>",
      // What writers leave that were killed: the rest of a longer file.
      std::string("<?xml version='1.0' encoding='Shift_JIS'?><a>\x93\xFA</a>\0</b>\x93", 58)};
  for (const std::string& bytes : files) EXPECT_EQ(Loaded(bytes), L"<a>日</a>") << bytes;
}

TEST_F(XmlDocumentTest, RefusesWhatXmlCannotHoldAndChangesNothing) {
  XmlDocument document;
  XmlElement root = document.CreateRoot(L"r");
  XmlElement leaf = root.Append(L"a", L"old");
  for (const wchar_t* name : {L"", L"1", L"a b", L"p:a", L"①"}) {
    EXPECT_THROW(root.Append(name, L""), XmlError) << ToUtf8(name);
    EXPECT_THROW(document.CreateRoot(name), XmlError) << ToUtf8(name);
  }
  for (const wchar_t bad : {0, 0x1F, 0xD800, 0xDFFF, 0xFFFE, 0xFFFF, 0x110000, -1}) {
    for (std::size_t place = 0; place < 200; ++place) {  // a long text is looked at in pieces
      std::wstring text(200, L'x');
      text[place] = bad;
      EXPECT_THROW(root.Append(L"b", text), XmlError) << place;
      EXPECT_THROW(leaf.SetText(text), XmlError) << place;
    }
  }
  EXPECT_EQ(document.ToText(), std::wstring(kDeclaration) + L"<r><a>old</a></r>");
}

// Indented where white space means nothing. The code page has all of the text in <a>; of the one in
// <b> nothing, although it has its like.
TEST_F(XmlDocumentTest, SavesInCodePage932) {
  XmlDocument document;
  ASSERT_TRUE(
      document.Parse(L"<ル><a>日本①～髙\\~ｱ</a><b>é¥‾〜한\U0001F600</b><c> &#13;\n\t</c>"
                     L"<d e='한'><!-- 日 -->x<b/></d></ル>"));
  const SecureBytes bytes = document.ToIndentedShiftJis();
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()),
            ToUtf8(kDeclaration) +
                "<\x83\x8B>\n  <a>\x93\xFA\x96\x7B\x87\x40\x81\x60\xFB\xFC\\~\xB1</a>\n"
                "  <b>&#233;&#165;&#8254;&#12316;&#54620;&#128512;</b>\n  <c> &#13;\n\t</c>\n"
                "  <d e=\"&#54620;\"><!-- \x93\xFA -->x<b/></d>\n</\x83\x8B>\n");
  for (const wchar_t* text : {L"<한/>", L"<a 한=''/>", L"<a><!-- 한 --></a>", L"<?p 한?><a/>"}) {
    ASSERT_TRUE(document.Parse(text));
    EXPECT_THROW(document.ToIndentedShiftJis(), XmlError);
  }
}

}  // namespace
}  // namespace vk::tq::testing
