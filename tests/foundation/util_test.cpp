#include "foundation/util.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>

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
  const std::wstring longest(255, L'n');
  const std::pair<std::wstring, std::wstring> cases[] = {{L"C:\\dir.d\\name", L"name"},
                                                         {L"C:\\日本.tar.gz", L"日本.tar"},
                                                         {longest + L".txt", longest}};
  for (const auto& [path, name] : cases) {
    CString cut = path;
    CUtil::GetFileName(cut);
    EXPECT_EQ(name, cut);
  }
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
  for (const char* name : {"list/b.txt", "list/A.txt", "list/c.dat"}) WriteNative(native(name), "");
  std::filesystem::create_directories(native("list/d.txt"));
  CStringArray files = {L"old"};
  EXPECT_EQ(1, GetFileList2(path(L"list"), L"*.TXT", files));
  EXPECT_THAT(files, ElementsAre(L"A.txt", L"b.txt"));
  EXPECT_EQ(0, GetFileList2(path(L"list"), L"none", files));
  EXPECT_EQ(0, GetFileList2(path(L"nowhere"), L"*", files));
  EXPECT_TRUE(files.IsEmpty());
  const wchar_t* const text = L"ファイルの一覧取得に失敗しました。";
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{5, 140542, L"GetFileList2", text, {}, 3}));
}

// ---- The machine ----

class OtherMachine : public Machine {
 public:
  ErrorCode Ipv4Addresses(Ipv4Address* to, std::size_t& count) override {
    count = addresses.size();
    if (to == nullptr) return fails ? kErrorNotSupported : kErrorInsufficientBuffer;
    std::ranges::copy(addresses, to);
    return kErrorSuccess;
  }
  bool Version(SystemVersion& to) override {
    if (fails) SetLastError(kErrorNotSupported);
    to = version;
    return !fails;
  }
  std::vector<Ipv4Address> addresses;
  SystemVersion version;
  bool fails = false;
};

TEST_F(UtilSystemTest, TheMachineIsAsked) {
  OtherMachine machine;
  const ScopedMachine use_machine(machine);
  CStringArray addresses = {L"first"};
  EXPECT_EQ(1, CUtil::GetIPList(addresses)) << "no address is no failure";
  machine.addresses = {{{255, 255, 255, 255}}, {{10, 2, 30, 4}}};
  EXPECT_EQ(1, CUtil::GetIPList(addresses));
  EXPECT_THAT(addresses, ElementsAre(L"first", L"255.255.255.255", L"10.2.30.4"));
  const std::tuple<SystemVersion, int, int> cases[] = {
      {{2, 6, 1, 1}, 0, 0}, {{2, 6, 2, 3}, 1, 1}, {{2, 7, 0, 1}, 1, 0}};
  for (const auto& [version, is_recent, is_server] : cases) {
    log_.Clear();
    machine.version = version;
    int found = 77;
    EXPECT_EQ(is_recent, CUtil::IsWin8orLater(&found));
    EXPECT_EQ(is_server, found);
  }
  EXPECT_EQ(7U, CUtil::GetOSType());
  machine.fails = true;
  EXPECT_EQ(0, CUtil::GetIPList(addresses) + CUtil::IsWin8orLater(nullptr));
  EXPECT_THAT(
      log_.texts(),
      ElementsAre("3 CUtil::IsWin8orLater "
                  "バージョン情報(Major[7], Minor[0], Product[1])→判定結果[1][0]",
                  "2 101413 CUtil::GetIPList IPアドレステーブルのメモリ獲得に失敗しました。",
                  "5 CUtil::IsWin8orLater バージョン情報の取得エラー[50]"));
}

TEST_F(UtilSystemTest, EveryProcessOfASessionHasTheSameLogonTime) {
  const auto tell = [&](const std::string& file) {
    WriteNative(native(file), ToUtf8(CUtil::GetLogonDateTimeFromLSA()));
    return 0;
  };
  ChildProcess leader([&] {
    setsid();
    tell("leader");
    usleep(1'100'000);
    return ChildProcess([&] { return tell("member"); }).Wait();
  });
  ASSERT_EQ(0, leader.Wait());
  const std::string logon = ReadNative(native("leader"));
  EXPECT_EQ(logon, ReadNative(native("member")));
  EXPECT_EQ(14u, logon.size());
}

// ---- Registrations ----

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
  for (const int days : {-1, 715'830'000}) {
    EXPECT_EQ(0, CUtil::isExpiredDays(days, 0)) << "never reached";
  }
}

TEST(UtilTimeTest, ARegistrationEndsWithTheLogonOrItsTime) {
  TestClock clock;
  const ScopedClock use_clock(clock);
  clock.ticks = 4'000'000'000;
  EXPECT_EQ(0, CUtil::isUserRegistExpired(L"", L"", L"x", 999));
  EXPECT_EQ(1, CUtil::isUserRegistExpired(L"", L"", L"4000000000", 5));
  EXPECT_EQ(1, CUtil::isUserRegistExpired(L"20240101000000", L"20240101000001", L"4000000000", 0));
  // The same logon: the counter decides, and what is no counter has expired. Without a limit only
  // the greatest reading has. A sign is taken back modulo 2^32.
  const std::tuple<int, int, std::vector<const wchar_t*>> same_logon[] = {
      {5, 1, {L"3567999999", L"12x", L"4000000000 ", L"+-5", L"99999999999999999999999999", L""}},
      {5, 0, {L" +4000000000", L"3568000000"}},
      {0, 0, {L"x"}},
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
