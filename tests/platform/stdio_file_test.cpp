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
    CString line = L"old";
    while (file.ReadString(line)) lines.push_back(line);
    EXPECT_EQ(line, L"");
    return lines;
  }
};

std::string Utf16Le(std::wstring_view text) { return *EncodeText(kCodePageUtf16Le, text); }

TEST_F(StdioFileTest, LinesEndAtALineFeed) {
  EXPECT_EQ(Lines(""), Texts{});
  EXPECT_EQ(Lines("a\nb"), (Texts{L"a", L"b"}));
  EXPECT_EQ(Lines("a\rb\r\r\nc\r"), (Texts{L"a\rb\r", L"c"}));
  EXPECT_EQ(Lines("a\0b\n\0"s), (Texts{{L'a', 0, L'b'}, {L'\0'}}));
}

TEST_F(StdioFileTest, TheMarkTellsTheEncoding) {
  EXPECT_EQ(Lines("\xEF\xBB\xBF\u30C8\n\u30EC"), (Texts{L"ト", L"レ"}));
  // The second character of the UTF-16 text holds the byte of a line feed.
  EXPECT_EQ(Lines("\xFF\xFE" + Utf16Le(L"ト\u0A30\u300A𠮷\r\nレ\n")),
            (Texts{L"ト\u0A30\u300A𠮷", L"レ"}));
  EXPECT_EQ(Lines("\xFF\xFE" + Utf16Le(L"a\n") + "b"), (Texts{L"a", L"\uFFFD"}));
  EXPECT_EQ(Lines("\u30C8\xFF\n\u30EC"), (Texts{L"ト\uFFFD", L"レ"}));
  const ScopedEnvironment page("TQ_ANSI_CODEPAGE", "932");
  EXPECT_EQ(Lines("\x83\x67\x83\x8C\x83\x43\n\x95\x5C"), (Texts{L"トレイ", L"表"}));
  EXPECT_EQ(Lines("a\x83\nb\n"), (Texts{L"a\uFFFD", L"b"}));
}

// Lines and characters that lie across the boundaries of what is read at once.
TEST_F(StdioFileTest, LongFilesAndLongLines) {
  for (const std::size_t size : {65530u, 65534u, 65535u, 65536u, 1000000u}) {
    const std::wstring line = std::wstring(size, L'x') + L"ト\u300A";
    const std::wstring text = line + L"\r\n" + line + L"\r\n";
    EXPECT_EQ(Lines(ToUtf8(text)), (Texts{line, line})) << size;
    EXPECT_EQ(Lines("\xFF\xFE" + Utf16Le(text)), (Texts{line, line})) << size;
  }
}

TEST_F(StdioFileTest, WritesBehindTheEndInTheFormOfTheFile) {
  const auto write = [&](std::string_view old, unsigned flags) {
    if (!old.empty()) WriteNative(native("w"), old);
    CStdioFile file;
    EXPECT_TRUE(file.Open(path(L"w").c_str(), flags));
    EXPECT_TRUE(file.WriteString(L"ト,1"));
    EXPECT_TRUE(file.WriteString(L"\n"));
    EXPECT_TRUE(file.Close());
    return ReadNative(native("w"));
  };
  EXPECT_EQ(write("", CStdioFile::modeWrite | CStdioFile::modeCreate), "\u30C8,1\r\n");
  EXPECT_EQ(write("a\n", CStdioFile::modeWrite), "a\n\u30C8,1\r\n");
  EXPECT_EQ(write("a\n", CStdioFile::modeWrite | CStdioFile::modeCreate), "\u30C8,1\r\n");
  EXPECT_EQ(write("\xFF\xFE", CStdioFile::modeWrite), "\xFF\xFE" + Utf16Le(L"ト,1\r\n"));
  EXPECT_EQ(write("a\n", CStdioFile::modeReadWrite | CStdioFile::modeCreate |
                             CStdioFile::modeNoTruncate | CStdioFile::typeBinary),
            "a\n\u30C8,1\n");
  const ScopedEnvironment page("TQ_ANSI_CODEPAGE", "932");
  EXPECT_EQ(write("a\n", CStdioFile::modeWrite), "a\n\x83\x67,1\r\n");
  // Creating belongs to writing: reading must not empty a file.
  CStdioFile file;
  EXPECT_TRUE(file.Open(path(L"w").c_str(), CStdioFile::modeRead | CStdioFile::modeCreate));
  EXPECT_FALSE(file.WriteString(L"x"));
  EXPECT_FALSE(file.Close()) << "a write has failed";
  EXPECT_EQ(ReadNative(native("w")), "a\n\x83\x67,1\r\n");
}

}  // namespace
}  // namespace vk::tq::testing
