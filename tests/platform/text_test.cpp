#include "platform/text.h"

#include <sys/stat.h>

#include "platform/path.h"
#include "platform/secure_memory.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

// Decoded in pieces of a size. Of one byte each, that takes no short cut for runs.
std::wstring DecodePieces(std::string_view bytes, std::size_t size) {
  Utf8Decoder decoder;
  std::wstring text;
  for (; !bytes.empty(); bytes.remove_prefix(std::min(size, bytes.size()))) {
    decoder.Decode(bytes.substr(0, size), text);
  }
  decoder.Finish(text);
  return text;
}

TEST(TextTest, Utf8InBothDirections) {
  const std::wstring text = L"a\x7F\x80\u07FF\u0800あ\uD7FF\uE000\uFFFF\U00010000\U0010FFFF";
  const std::string bytes =
      "a\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xE3\x81\x82\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"
      "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
  EXPECT_EQ(bytes, EncodeText(kCodePageUtf8, text));
  EXPECT_EQ(text, DecodeText(kCodePageUtf8, bytes));
  const std::wstring pair = {0xD83D, 0xDE00};
  EXPECT_EQ("\xF0\x9F\x98\x80", EncodeText(kCodePageUtf8, pair)) << "of surrogates";
  const std::wstring bad = {0xD83D, 0xD83D, L'a', 0xDE00, 0x110000, -1};
  EXPECT_EQ(EncodeText(kCodePageUtf8, L"\uFFFD\uFFFDa\uFFFD\uFFFD\uFFFD"),
            EncodeText(kCodePageUtf8, bad));
  // From The Unicode Standard, tables 3-8 and 3-11: U+FFFD for the maximal prefix of a character.
  std::wstring replaced = L"??A??B????A??";
  std::replace(replaced.begin(), replaced.end(), L'?', L'\uFFFD');
  EXPECT_EQ(replaced, DecodePieces("\xED\xAF\x41\x80\xBF\x42"
                                   "\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41\xF0\x9F\x98\xC1",
                                   1));
}

// Long runs are converted by groups of characters: whatever stands among them must come out as it
// does alone.
TEST(TextTest, Utf8OfLongRuns) {
  const char* const odd_bytes[] = {"\x7F", "\xC2\x80", "\xEE\x80\x80", "\xF0\x90\x80\x80",
                                   "\x80", "\xE3\x81", "\xED\xA0\x80", "\xE0\x9F\xBF"};
  for (const wchar_t usual : {L'a', L'あ'}) {
    const std::string run = *EncodeText(kCodePageUtf8, std::wstring(150, usual));
    for (const char* odd : odd_bytes) {
      for (std::size_t at = 0; at <= run.size(); ++at) {
        const std::string bytes = std::string(run).insert(at, odd);
        std::wstring text = DecodePieces(bytes, 1);
        ASSERT_EQ(text, DecodePieces(bytes, 100)) << ToHex(bytes);
        text.insert(at * 150 / run.size(), 1, wchar_t{0xD800});
        std::string encoded;
        for (const wchar_t c : text) encoded += *EncodeText(kCodePageUtf8, {&c, 1});
        ASSERT_EQ(encoded, EncodeText(kCodePageUtf8, text)) << ToHex(bytes);
      }
    }
  }
}

TEST(TextTest, CodePage932) {
  const std::pair<const char*, const wchar_t*> cases[] = {
      {"\x81\x60\x81\x7C\x81\x61\x81\x5C\x81\x91\x81\xCA", L"～－∥―￠￢"},
      {"\x87\x40\x87\x82\xFA\x40\xFB\xFC", L"①№ⅰ髙"},
      {"\x83\x5C\x95\x5C\xB1\xDF", L"ソ表ｱﾟ"},
      {"\xF0\x40\xF9\xFC", L"\uE000\uE757"},
      {"\x80\xA0\xFD\xFF", L"\u0080\u00A0\uF8F1\uF8F3"}};
  for (const auto& [bytes, text] : cases) {
    EXPECT_EQ(text, DecodeText(kCodePage932, bytes));
    EXPECT_EQ(bytes, EncodeText(kCodePage932, text));
  }
  EXPECT_EQ(L"髙纊∪", DecodeText(kCodePage932, "\xEE\xE0\xED\x40\x87\x9C")) << "second places";
  EXPECT_EQ("a??b", EncodeText(kCodePage932, L"a\U0001F600\u0E01b"));
  // A lead byte before ASCII, an undefined pair, and a lead byte that is the last.
  EXPECT_EQ(L"a\uFFFD\"\uFFFDあ\uFFFD", DecodeText(932, "a\x81\"\x81\xFF\x82\xA0\x82"));
}

TEST(TextTest, CaseAndBlanksDoNotDependOnTheLocale) {
  EXPECT_EQ(L"AZ09_ÄÉΩЖＡＺあ髙ß", ToUpper(L"az09_äéωжａｚあ髙ß"));
  EXPECT_EQ(L"a　b\u200B", Trim(L"　\t\u00A0a　b\u200B\u2003\r\n\v"));
  for (std::size_t length = 0; length < 40; ++length) {
    const std::wstring lower = std::wstring(length, L'a') + L"zｚ";
    EXPECT_TRUE(EqualsNoCase(lower, ToUpper(lower))) << length;
    EXPECT_EQ(HashNoCase(lower), HashNoCase(ToUpper(lower))) << length;
    EXPECT_FALSE(EqualsNoCase(lower + L'@', lower + L'`')) << length;
  }
}

TEST(TextTest, ASecretIsWipedWithItsUnusedCapacity) {
  std::string text(40, 's');
  const char* const memory = text.data();
  {
    const WipeOnExit wipe(text);
    text.resize(3);
  }
  EXPECT_EQ(std::string(40, '\0'), std::string(memory, 40));
}

TEST(PathTest, ToNative) {
  const ScopedEnvironment volumes("TQ_VOLUMES", "/v");
  EXPECT_EQ("/v/c/a/c", PathToNative(L"c:\\..\\a\\.\\\\b\\..\\c"));
  EXPECT_EQ("/a", PathToNative(std::wstring_view(L"\\a\0b", 4))) << "a path ends at a NUL";
  // Every name of the machine reads back.
  std::string native = "/日本\xED\xA0\x80\xC3";
  for (int byte = 1; byte < 256; ++byte) native += static_cast<char>(byte);
  EXPECT_EQ(native, PathToNative(PathFromNative(native)));
}

TEST(PathTest, TemporaryFilesArePrivateAndNew) {
  const TempFolder temp;
  const ScopedEnvironment folder("TMPDIR", temp.native().c_str());
  const mode_t old_mask = umask(0);
  const std::wstring first = CreateTemporaryFile(L"tq");
  umask(old_mask);
  EXPECT_NE(first, CreateTemporaryFile(L"tq"));
  EXPECT_EQ(std::filesystem::perms(0600),
            std::filesystem::status(PathToNative(first)).permissions());
  EXPECT_EQ(2U, ListNative(temp.native()).size());
}

}  // namespace
}  // namespace vk::tq::testing
