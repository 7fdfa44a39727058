#include "foundation/util.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>

#include "foundation/os_type.h"
#include "platform/error.h"
#include "platform/path.h"
#include "platform/system_info.h"
#include "support/test_clock.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// ---- Texts ----

TEST(UtilTest, TheExtensionBeginsAtTheLastPointOfTheLastComponent) {
  const std::wstring longest(255, L'n');
  const std::tuple<std::wstring, int, std::wstring> cases[] = {
      {L"C:\\dir.d\\name", -1, L"name"},
      {L"C:\\dir\\name.tar.gz", 15, L"name.tar"},
      {L".profile", 0, L""},
      {L"日本.語", 2, L"日本"},
      {longest + L".txt", 255, longest},
      {longest + L"n.txt", -1, longest + L"n.txt"}};
  for (const auto& [path, position, name] : cases) {
    EXPECT_EQ(position, CUtil::GetExtPos(path)) << ToUtf8(path);
    CString cut = path;
    CUtil::GetFileName(cut);
    EXPECT_EQ(name, cut) << ToUtf8(path);
  }
}

TEST(UtilTest, TextsAreQuotedEscapedConvertedAndChecked) {
  CString line;
  for (const wchar_t* item : {L"", L"a,b", L"say \"x\"", L"", L"cr\r", L"lf\n"}) {
    CUtil::GetCsvItem(item, line);
  }
  EXPECT_EQ(L"\"a,b\",\"say \"\"x\"\"\",,cr\r,\"lf\n\"", line);
  EXPECT_EQ(L"&amp;amp;&lt;&gt;&quot;&#37;'", CUtil::ConvertToDBParamString(L"&amp;<>\"%'"));
  EXPECT_EQ(L"髙①", CUtil::ConvertToUnicode(932, "\xFB\xFC\x87\x40"));
  const std::tuple<const wchar_t*, int, int> cases[] = {
      {L"!~", 2, 1},   {L"ab c", 2, 1}, {L"a b", 3, 0}, {L"a\u007Fb", 3, 0},
      {L"aあb", 3, 0}, {L"a", 3, 0},    {L"a", -1, 0},  {nullptr, 1, 0}};
  for (const auto& [text, length, is_ascii] : cases) {
    EXPECT_EQ(is_ascii, CUtil::AscStringCheck(text, length)) << length;
  }
}

// ---- Files ----

using UtilSystemTest = ProductTest;

TEST_F(UtilSystemTest, WithoutAHomeThatOfTheAccountCounts) {
  const ScopedEnvironment places[] = {{"TQ_APPDATA", nullptr}, {"XDG_DATA_HOME", nullptr}};
  const ScopedEnvironment home("HOME", "nowhere");
  const passwd* const account = getpwuid(geteuid());
  if (account == nullptr) GTEST_SKIP() << "this account has no home";
  EXPECT_EQ(PathFromNative(std::string(account->pw_dir) + "/.local/share"),
            CUtil::GetSpecialFolderPath(26));
}

TEST_F(UtilSystemTest, IniValuesAreRead) {
  WriteNative(native("x.ini"), "[S]\nLong=" + std::string(300, 'x') + "\nN=-12x\n");
  EXPECT_EQ(CString(259, L'x'), CUtil::GetIniString(L"s", L"LONG", path(L"x.ini")));
  EXPECT_EQ(-12, CUtil::GetIniInt(L"S", L"N", path(L"x.ini"), 7));
}

TEST_F(UtilSystemTest, FilesAreListedWithoutDirectories) {
  for (const char* name : {"list/b.txt", "list/A.txt", "list/c.dat"}) WriteNative(native(name), "");
  std::filesystem::create_directories(native("list/d.txt"));
  CStringArray files = {L"old"};
  EXPECT_EQ(1, GetFileList2(path(L"list"), L"*.TXT", files));
  EXPECT_EQ((CStringArray{L"A.txt", L"b.txt"}), files);
  EXPECT_EQ(1, GetFileList2(path(L"list"), L"", files));
  EXPECT_EQ((CStringArray{L"A.txt", L"b.txt", L"c.dat"}), files);
  EXPECT_EQ(0, GetFileList2(path(L"list"), L"none", files));
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_EQ(0, GetFileList2(path(L"nowhere"), L"*", files));
  EXPECT_EQ(CStringArray(), files);
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
  bool LogonTime(LocalTime& time, LogonStep& step) override {
    if (fails) SetLastError(1312);
    step = LogonStep::kSessionData;
    time = {2024, 3, 1, 4, 5, 6};
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
  EXPECT_EQ(L"20240301040506", CUtil::GetLogonDateTimeFromLSA());
  EXPECT_THAT(log_.lines(), IsEmpty());
  const std::tuple<SystemVersion, int, int, unsigned long> cases[] = {{{1, 4, 10, 1}, 0, 0, 1},
                                                                      {{2, 5, 2, 3}, 0, 1, 6},
                                                                      {{2, 6, 1, 1}, 0, 0, 7},
                                                                      {{2, 6, 2, 3}, 1, 1, 7},
                                                                      {{2, 7, 0, 1}, 1, 0, 7}};
  for (const auto& [version, is_recent, is_server, type] : cases) {
    log_.Clear();
    machine.version = version;
    int found = 77;
    EXPECT_EQ(is_recent, CUtil::IsWin8orLater(&found));
    EXPECT_EQ(is_server, found);
    EXPECT_EQ(type, OsTypeOf(version));
  }
  EXPECT_EQ(7U, CUtil::GetOSType()) << "whatever the machine";
  EXPECT_TRUE(CUtil::IsVista() == 1 && CUtil::IsXp() == 0 && CUtil::IsWin2000() == 0);
  machine.fails = true;
  EXPECT_EQ(0, CUtil::GetIPList(addresses) + CUtil::IsWin8orLater(nullptr));
  EXPECT_EQ(L"", CUtil::GetLogonDateTimeFromLSA());
  const wchar_t* const recent = L"CUtil::IsWin8orLater";
  const wchar_t* const no_session = L"ログオンセッションのデータの取得に失敗しました。";
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{3, 0, recent,
                                  L"バージョン情報(Major[7], Minor[0], Product[1])→判定結果[1][0]"},
                          LogLine{2, 101413, L"CUtil::GetIPList",
                                  L"IPアドレステーブルのメモリ獲得に失敗しました。"},
                          LogLine{5, 0, recent, L"バージョン情報の取得エラー[50]"},
                          LogLine{2, 0, L"CUtil::GetLogonDateTimeFromLSA", no_session, {}, 1312}));
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
  // A limit beyond the counter is never reached, but no reading of it was ever like the last one.
  clock.ticks = 0xFFFFFFFF;
  for (const int days : {-1, 715'830'000, -2'147'483'647 - 1}) {
    EXPECT_EQ(0, CUtil::isExpiredDays(days, 0)) << days;
    EXPECT_EQ(1, CUtil::isExpiredDays(days, std::uint64_t{1} << 40)) << days;
  }
}

TEST(UtilTimeTest, ARegistrationEndsWithTheLogonOrItsTime) {
  TestClock clock;
  const ScopedClock use_clock(clock);
  clock.ticks = 4'000'000'000;
  EXPECT_EQ(0, CUtil::isUserRegistExpired(L"", L"", L"x", 999));
  EXPECT_EQ(1, CUtil::isUserRegistExpired(L"", L"20240101000000", L"4000000000", 5));
  EXPECT_EQ(1, CUtil::isUserRegistExpired(L"20240101000000", L"20240101000001", L"4000000000", 0));
  // The same logon: the counter decides, and what is no counter has expired. Without a limit only
  // the greatest reading has. A sign is taken back modulo 2^32.
  const std::tuple<int, int, std::vector<const wchar_t*>> same_logon[] = {
      {5, 1, {L"3567999999", L"12x", L"4000000000 ", L"+-5", L"99999999999999999999999999", L""}},
      {5, 0, {L"4000000000", L" +4000000000", L"3568000000"}},
      {0, 0, {L"x"}},
      {-1, 1, {L"4294967295", L"-1", L"4294967296"}},
      {-1, 0, {L"4294967294", L"-2", L""}}};
  for (const auto& [days, expired, ticks] : same_logon) {
    for (const wchar_t* tick : ticks) {
      EXPECT_EQ(expired, CUtil::isUserRegistExpired(L"AbＣ", L"aBｃ", tick, days)) << ToUtf8(tick);
    }
  }
}

}  // namespace
}  // namespace vk::tq::testing
