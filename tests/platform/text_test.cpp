#include "platform/text.h"

#include "platform/error.h"
#include "support/json.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

constexpr wchar_t kReplacement = 0xFFFD;

std::string Encode(unsigned code_page, std::wstring_view text) {
  return EncodeText(code_page, text).value_or("no such code page");
}
std::wstring Decode(unsigned code_page, std::string_view bytes) {
  return DecodeText(code_page, bytes).value_or(L"no such code page");
}

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

TEST(TextTest, WideTextThatIsNoText) {
  const std::wstring pair = {0xD83D, 0xDE00};
  EXPECT_EQ("\xF0\x9F\x98\x80", Encode(kCodePageUtf8, pair)) << "a pair of surrogates";
  const std::wstring bad = {0xD83D, L'a', 0xDE00, 0x110000, -1};
  EXPECT_EQ(Encode(kCodePageUtf8, L"\uFFFDa\uFFFD\uFFFD\uFFFD"), Encode(kCodePageUtf8, bad));
}

TEST(TextTest, Utf8InBothDirections) {
  const std::wstring text = L"a\x7F\x80\u07FF\u0800あ\uD7FF\uE000\uFFFF\U00010000\U0010FFFF";
  const std::string bytes =
      "a\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xE3\x81\x82\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"
      "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
  EXPECT_EQ(bytes, Encode(kCodePageUtf8, text));
  EXPECT_EQ(text, Decode(kCodePageUtf8, bytes));
}

// From The Unicode Standard, tables 3-8 to 3-11: U+FFFD for the maximal prefix of a character.
TEST(TextTest, IllFormedUtf8) {
  const std::pair<const char*, const wchar_t*> cases[] = {
      {"\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41", L"????????A"},
      {"\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42", L"?????A??B"},
      {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", L"????A"},
      {"\xC1\xBF\xE0\x9F\xBF\xF0\x8F\xBF\xBF\xF5\x80\xF0\x9F\x98", L"????????????"}};
  for (const auto& [bytes, shape] : cases) {
    std::wstring text = shape;
    std::replace(text.begin(), text.end(), L'?', kReplacement);
    EXPECT_EQ(text, Decode(kCodePageUtf8, bytes));
    EXPECT_EQ(text, DecodePieces(bytes, 1));
  }
}

// Long runs are converted by groups of characters: whatever stands among them must come out as it
// does alone.
TEST(TextTest, Utf8OfLongRuns) {
  const std::wstring odd_characters = {0x7F,   0x80,   0x7FF,  0x800,   0xD7FF,   0xD800,   0xDC00,
                                       0xDFFF, 0xE000, 0xFFFF, 0x10000, 0x10FFFF, 0x110000, -1};
  std::vector<std::string> odd_bytes = {"\xE3\x81", "\x80", "\xED\xA0\x80", "\xE0\x9F\xBF"};
  for (const wchar_t usual : {L'a', L'あ'}) {
    const std::wstring run(150, usual);
    const std::string run_bytes = Encode(kCodePageUtf8, run);
    for (const wchar_t odd : odd_characters) {
      odd_bytes.push_back(Encode(kCodePageUtf8, {&odd, 1}));
      for (std::size_t at = 0; at <= run.size(); ++at) {
        const std::size_t at_byte = at * run_bytes.size() / run.size();
        ASSERT_EQ(std::string(run_bytes).insert(at_byte, odd_bytes.back()),
                  Encode(kCodePageUtf8, std::wstring(run).insert(at, 1, odd)));
      }
    }
    for (const std::string& odd : odd_bytes) {
      for (std::size_t at = 0; at <= run_bytes.size(); ++at) {
        const std::string bytes = std::string(run_bytes).insert(at, odd);
        const std::wstring text = DecodePieces(bytes, 1);
        ASSERT_EQ(text, Decode(kCodePageUtf8, bytes)) << ToHex(bytes);
        ASSERT_EQ(text, DecodePieces(bytes, 100)) << ToHex(bytes);
      }
    }
  }
}

TEST(TextTest, CodePage932) {
  const std::pair<const char*, const wchar_t*> cases[] = {
      {"\\~|", L"\\~|"},
      {"\x81\x60\x81\x7C\x81\x61\x81\x5C\x81\x91\x81\xCA", L"～－∥―￠￢"},
      {"\x87\x40\x87\x82\xFA\x40\xFB\xFC", L"①№ⅰ髙"},
      {"\x83\x5C\x95\x5C\xB1\xDF", L"ソ表ｱﾟ"},
      {"\xF0\x40\xF9\xFC", L"\uE000\uE757"},
      {"\x80\xA0\xFD\xFF", L"\u0080\u00A0\uF8F1\uF8F3"}};
  for (const auto& [bytes, text] : cases) {
    EXPECT_EQ(text, Decode(kCodePage932, bytes));
    EXPECT_EQ(bytes, Encode(kCodePage932, text));
  }
  EXPECT_EQ(L"髙纊∪", Decode(kCodePage932, "\xEE\xE0\xED\x40\x87\x9C")) << "second places";
  EXPECT_EQ("a??b", Encode(kCodePage932, L"a\U0001F600\u0E01b"));
}

TEST(TextTest, UndecodableBytesDoNotSwallowWhatFollows) {
  const std::tuple<unsigned, const char*, const wchar_t*> cases[] = {
      {932, "a\x81\"b", L"a\uFFFD\"b"},        // a lead byte before ASCII
      {932, "\x81\xFF\x82\xA0", L"\uFFFDあ"},  // an undefined pair
      {932, "\x82\xA0\x82", L"あ\uFFFD"},      // cut off
      {1253, "\xE1\xFF\xE1", L"α\uFFFDα"},
      {936, "\xD6\xD0\xD6\"", L"中\uFFFD\""}};
  for (const auto& [code_page, bytes, text] : cases) EXPECT_EQ(text, Decode(code_page, bytes));
}

TEST(TextTest, TheAnsiCodePage) {
  const ScopedEnvironment locale("LC_ALL", "C");
  for (const char* number : {"", "932x", "-1", "1200"}) {
    const ScopedEnvironment variable("TQ_ANSI_CODEPAGE", number);
    EXPECT_EQ(65001u, AnsiCodePage()) << number;
  }
  const ScopedEnvironment japanese("TQ_ANSI_CODEPAGE", "932");
  EXPECT_EQ("\x87\x40", Encode(kCodePageAnsi, L"①"));
  EXPECT_FALSE(EncodeText(64999, L"a"));
  EXPECT_EQ(kErrorInvalidParameter, GetLastError());
}

// This program has the locale "C".
TEST(TextTest, UpperCaseDoesNotDependOnTheLocale) {
  EXPECT_EQ(L"AZ09_ÄÉΩЖＡＺあ髙ß", ToUpper(L"az09_äéωжａｚあ髙ß"));
}

TEST(TextTest, EqualWithoutCaseWhateverTheLength) {
  for (std::size_t length = 0; length < 40; ++length) {
    const std::wstring head(length, L'a');
    const std::wstring upper(length, L'A');
    for (const auto& [left, right, is_equal] :
         {std::tuple(L'z', L'Z', true), std::tuple(L'ｚ', L'Ｚ', true),
          std::tuple(L'z', L'ｚ', false), std::tuple(L'@', L'`', false)}) {
      EXPECT_EQ(is_equal, EqualsNoCase(head + left, upper + right)) << length;
      EXPECT_EQ(is_equal, EqualsNoCase(left + head, right + upper)) << length;
      EXPECT_EQ(is_equal, HashNoCase(left + head) == HashNoCase(right + upper)) << length;
    }
  }
}

TEST(TextTest, TrimsFullWidthBlanksToo) {
  EXPECT_EQ(L"a　b", Trim(L"　\t\u00A0a　b\u2003\r\n\v"));
  EXPECT_EQ(L"", Trim(L" 　"));
  EXPECT_EQ(L"\u200B", Trim(L" \u200B")) << "a zero-width space is none";
}

TEST(TextTest, SplitsPathsAsRecorded) {
  const auto rows = ReadJsonLines(TQ_TEST_DATA "/paths.jsonl");
  ASSERT_EQ(150U, rows.size());
  for (const Json& row : rows) {
    SCOPED_TRACE(TextOf(row.at("path")));
    const std::wstring path = FromUtf8(TextOf(row.at("path")));
    const auto [drive, directory, name, extension] = SplitPath(path);
    const bool fits = std::max({directory.size(), name.size(), extension.size()}) <= 255;
    EXPECT_EQ(row.at("fits").get<int>() == 1, fits);
    const auto point = static_cast<int>(drive.size() + directory.size() + name.size());
    EXPECT_EQ(row.at("ext_pos").get<int>(), extension.empty() || !fits ? -1 : point);
    EXPECT_EQ(TextOf(row.at("path_find_extension")), ToUtf8(FindExtension(path)));
  }
}

}  // namespace
}  // namespace vk::tq::testing
