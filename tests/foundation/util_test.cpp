#include "foundation/util.h"

#include <filesystem>

#include "foundation/os_type.h"
#include "platform/error.h"
#include "platform/system_info.h"
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

class OtherMachine : public Machine {
 public:
  ErrorCode Ipv4Addresses(Ipv4Address* to, std::size_t& count) override {
    count = 2;
    if (to == nullptr) return fails ? kErrorNotSupported : kErrorInsufficientBuffer;
    to[0] = {{255, 255, 255, 255}};
    to[1] = {{10, 2, 30, 4}};
    return kErrorSuccess;
  }
  bool Version(SystemVersion& to) override {
    if (fails) SetLastError(kErrorNotSupported);
    to = version;
    return !fails;
  }
  bool LogonTime(LocalTime& time, LogonStep& step) override {
    if (fails) SetLastError(1312);
    step = LogonStep::kSessionData;
    time = {2024, 3, 1, 4, 5, 6};
    return !fails;
  }

  SystemVersion version;
  bool fails = false;
};

TEST_F(UtilSystemTest, TheMachineIsAsked) {
  OtherMachine machine;
  const ScopedMachine use_machine(machine);
  CStringArray addresses = {L"first"};
  EXPECT_EQ(1, CUtil::GetIPList(addresses));
  EXPECT_THAT(addresses, ElementsAre(L"first", L"255.255.255.255", L"10.2.30.4"));
  EXPECT_EQ(L"20240301040506", CUtil::GetLogonDateTimeFromLSA());
  // The type, whether it is Windows 8 or later, and whether it is no workstation.
  std::wstring told;
  for (const SystemVersion& version : {SystemVersion{1, 4, 0, 1},
                                       {1, 4, 10, 1},
                                       {1, 4, 90, 1},
                                       {2, 4, 7, 1},
                                       {2, 5, 0, 1},
                                       {2, 5, 1, 1},
                                       {2, 5, 2, 3},
                                       {2, 6, 1, 1},
                                       {2, 6, 2, 3},
                                       {2, 7, 0, 1}}) {
    machine.version = version;
    int is_server = 77;
    const int is_recent = CUtil::IsWin8orLater(&is_server);
    told += Format(L"%d%d%d ", static_cast<int>(OsTypeOf(version)), is_recent, is_server);
  }
  EXPECT_EQ(L"000 100 200 300 400 500 601 700 711 710 ", told);
  EXPECT_TRUE(CUtil::IsVista() == 1 && CUtil::IsXp() == 0 && CUtil::IsWin2000() == 0);
  machine.fails = true;
  Tell(CUtil::GetIPList(addresses) + CUtil::IsWin8orLater(nullptr));
  Tell(ToUtf8(CUtil::GetLogonDateTimeFromLSA()));
  EXPECT_THAT(told_,
              ::testing::EndsWith(
                  "3 CUtil::IsWin8orLater "
                  "バージョン情報(Major[7], Minor[0], Product[1])→判定結果[1][0]\n"
                  "2 101413 CUtil::GetIPList IPアドレステーブルのメモリ獲得に失敗しました。\n"
                  "5 CUtil::IsWin8orLater バージョン情報の取得エラー[50]\n-> 0\n"
                  "2 CUtil::GetLogonDateTimeFromLSA "
                  "ログオンセッションのデータの取得に失敗しました。 = 1312\n-> \n"));
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
