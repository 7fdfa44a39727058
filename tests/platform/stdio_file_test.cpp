#include "platform/stdio_file.h"

#include "platform/text.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using namespace std::string_literals;
using Texts = std::vector<std::wstring>;

class StdioFileTest : public ProductTest {
 protected:
  Texts Lines(std::string_view bytes) {
    WriteNative(native("f.txt"), bytes);
    CStdioFile file;
    EXPECT_TRUE(file.Open(path(L"f.txt").c_str(), CStdioFile::modeRead));
    Texts lines;
    for (CString line; file.ReadString(line);) lines.push_back(line);
    return lines;
  }
};

std::string Utf16Le(std::wstring_view text) { return *EncodeText(kCodePageUtf16Le, text); }

TEST_F(StdioFileTest, LinesEndAtALineFeedAndTheMarkTellsTheEncoding) {
  EXPECT_EQ(Lines("a\rb\r\r\nc\r"), (Texts{L"a\rb\r", L"c"}));
  EXPECT_EQ(Lines("a\0b\n\0"s), (Texts{{L'a', 0, L'b'}, {L'\0'}}));
  EXPECT_EQ(Lines("\xEF\xBB\xBF\u30C8\xFF\n\u30EC"), (Texts{L"ト\uFFFD", L"レ"}));
  // The second character of the UTF-16 text holds the byte of a line feed.
  EXPECT_EQ(Lines("\xFF\xFE" + Utf16Le(L"ト\u0A30\u300A𠮷\r\nレ\n") + "b"),
            (Texts{L"ト\u0A30\u300A𠮷", L"レ", L"\uFFFD"}));
  // Lines and characters that lie across the boundaries of what is read at once.
  const std::wstring line = std::wstring(65'534, L'x') + L"ト\u300A";
  const std::wstring text = line + L"\r\n" + line + L"\n";
  EXPECT_EQ(Lines(ToUtf8(text)), (Texts{line, line}));
  EXPECT_EQ(Lines("\xFF\xFE" + Utf16Le(text)), (Texts{line, line}));
  const ScopedEnvironment page("TQ_ANSI_CODEPAGE", "932");
  EXPECT_EQ(Lines("\x83\x67\x83\x8C\x83\x43\n\x95\x5C"), (Texts{L"トレイ", L"表"}));
}

TEST_F(StdioFileTest, WritesBehindTheEndInTheFormOfTheFile) {
  for (const std::string old : {"a", "\xFF\xFE", ""}) {
    WriteNative(native("f.txt"), old);
    CStdioFile file;
    EXPECT_TRUE(file.Open(path(L"f.txt").c_str(), CStdioFile::modeWrite));
    EXPECT_TRUE(file.WriteString(L"ト\n"));
    const std::string text = old == "\xFF\xFE" ? Utf16Le(L"ト\r\n") : "\u30C8\r\n";
    EXPECT_EQ(ReadNative(native("f.txt")), old + text);
  }
  // Creating belongs to writing: reading must not empty a file.
  CStdioFile file;
  EXPECT_TRUE(file.Open(path(L"f.txt").c_str(), CStdioFile::modeRead | CStdioFile::modeCreate));
  EXPECT_EQ(ReadNative(native("f.txt")), "\u30C8\r\n");
}

}  // namespace
}  // namespace vk::tq::testing
