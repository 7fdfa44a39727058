#include "foundation/util.h"

#include <filesystem>

#include "platform/text.h"
#include "support/json.h"
#include "support/test_clock.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using ::testing::ElementsAre;

TEST(UtilTest, PathsAreSplitAsRecorded) {
  const auto rows = ReadJsonLines(TQ_TEST_DATA "/paths.jsonl");
  ASSERT_EQ(150U, rows.size());
  for (const Json& row : rows) {
    SCOPED_TRACE(TextOf(row.at("path")));
    const std::wstring path = FromUtf8(TextOf(row.at("path")));
    EXPECT_EQ(row.at("ext_pos").get<int>(), CUtil::GetExtPos(path));
    EXPECT_EQ(TextOf(row.at("path_find_extension")), ToUtf8(FindExtension(path)));
  }
  CString name = L"C:\\dir.d\\日本.tar.gz";
  CUtil::GetFileName(name);
  EXPECT_EQ(L"日本.tar", name);
}

TEST(UtilTest, TextsAreQuotedEscapedConvertedAndChecked) {
  CString line;
  for (const wchar_t* item : {L"", L"a,b", L"say \"x\"", L"", L"lf\n"}) {
    CUtil::GetCsvItem(item, line);
  }
  EXPECT_EQ(L"\"a,b\",\"say \"\"x\"\"\",,\"lf\n\"", line);
  EXPECT_EQ(L"&amp;amp;&lt;&gt;&quot;&#37;'", CUtil::ConvertToDBParamString(L"&amp;<>\"%'"));
  EXPECT_EQ(L"髙①", CUtil::ConvertToUnicode(932, "\xFB\xFC\x87\x40"));
  EXPECT_EQ(1, CUtil::AscStringCheck(L"!~ ", 2));
  EXPECT_EQ(0, CUtil::AscStringCheck(L"a b", 3) + CUtil::AscStringCheck(L"a\u007F", 2));
}

using UtilSystemTest = ProductTest;

TEST_F(UtilSystemTest, FilesAreListedWithoutDirectories) {
  for (const char* name : {"list/b.txt", "list/A.txt"}) WriteNative(native(name), "");
  std::filesystem::create_directories(native("list/d.txt"));
  CStringArray files = {L"old"};
  EXPECT_EQ(1, GetFileList2(path(L"list"), L"*.TXT", files));
  EXPECT_THAT(files, ElementsAre(L"A.txt", L"b.txt"));
  EXPECT_EQ(0, GetFileList2(path(L"nowhere"), L"*", files));
  EXPECT_TRUE(files.IsEmpty());
  EXPECT_THAT(log_.texts(),
              ElementsAre("5 140542 GetFileList2 ファイルの一覧取得に失敗しました。 = 3"));
}

TEST(UtilTimeTest, ARegistrationLastsUpToItsLimit) {
  TestClock clock;
  const ScopedClock use_clock(clock);
  constexpr std::uint64_t kDay = 86'400'000, kMinute = 60'000;
  const std::pair<int, std::uint64_t> cases[] = {
      {0, 0}, {1, kDay}, {9999, 30 * kDay}, {19999, kMinute}, {715'820'000, 71582 * kMinute}};
  for (const auto& [days, limit] : cases) {
    // The counter may have wrapped in the meantime.
    for (const std::uint64_t start : {1000ULL, 0xFFFFFF00ULL}) {
      clock.ticks = static_cast<std::uint32_t>(start + limit);
      EXPECT_EQ(0, CUtil::isExpiredDays(days, start)) << days;
      ++clock.ticks;
      EXPECT_EQ(1, CUtil::isExpiredDays(days, start)) << days;
    }
  }
  clock.ticks = 0xFFFFFFFF;
  EXPECT_EQ(0, CUtil::isExpiredDays(-1, 0) + CUtil::isExpiredDays(715'830'000, 0));
}

TEST(UtilTimeTest, ARegistrationEndsWithTheLogonOrItsTime) {
  TestClock clock;
  const ScopedClock use_clock(clock);
  clock.ticks = 4'000'000'000;
  EXPECT_EQ(0, CUtil::isUserRegistExpired(L"", L"", L"x", 999));
  EXPECT_EQ(1, CUtil::isUserRegistExpired(L"", L"", L"4000000000", 5));
  EXPECT_EQ(1, CUtil::isUserRegistExpired(L"20240101000000", L"20240101000001", L"4000000000", 0));
  // The same logon: the counter decides, and what is no counter has expired. A sign is taken back
  // modulo 2^32.
  const std::tuple<int, int, std::vector<const wchar_t*>> same_logon[] = {
      {5, 1, {L"3567999999", L"12x", L"4000000000 ", L"+-5", L"99999999999999999999999999", L""}},
      {5, 0, {L" +4000000000", L"3568000000"}},
      {-1, 1, {L"4294967295", L"-1", L"4294967296"}},
      {-1, 0, {L"4294967294", L"-2"}}};
  for (const auto& [days, expired, ticks] : same_logon) {
    for (const wchar_t* tick : ticks) {
      EXPECT_EQ(expired, CUtil::isUserRegistExpired(L"AbＣ", L"aBｃ", tick, days)) << ToUtf8(tick);
    }
  }
}

}  // namespace
}  // namespace vk::tq::testing
