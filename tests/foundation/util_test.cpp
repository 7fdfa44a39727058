#include "foundation/util.h"

#include <algorithm>
#include <filesystem>

#include "foundation/os_type.h"
#include "platform/error.h"
#include "platform/system_info.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(UtilTest, TheExtensionBeginsAtTheLastPointOfTheLastComponent) {
  const std::wstring longest(255, L'n');
  const std::tuple<std::wstring, int, const wchar_t*> cases[] = {
      {L"C:\\dir.d\\name", -1, L"name"},
      {L"C:\\dir\\name.tar.gz", 15, L"name.tar"},
      {L".profile", 0, L""},
      {L"日本.語", 2, L"日本"}};
  for (const auto& [path, position, name] : cases) {
    EXPECT_EQ(position, CUtil::GetExtPos(path)) << ToUtf8(path);
    CString cut = path;
    CUtil::GetFileName(cut);
    EXPECT_EQ(name, cut) << ToUtf8(path);
  }
  EXPECT_EQ(255, CUtil::GetExtPos(longest + L".txt"));
  EXPECT_EQ(-1, CUtil::GetExtPos(longest + L"n.txt"));
}

TEST(UtilTest, CsvItemsAreQuotedWhereTheyMustBe) {
  CString line;
  for (const wchar_t* item : {L"", L"a,b", L"say \"x\"", L"", L"cr\r", L"lf\n"}) {
    CUtil::GetCsvItem(item, line);
  }
  EXPECT_EQ(L"\"a,b\",\"say \"\"x\"\"\",,cr\r,\"lf\n\"", line);
}

TEST(UtilTest, AsciiIsCheckedUpToTheLength) {
  const std::tuple<const wchar_t*, int, int> cases[] = {
      {L"!~", 2, 1},   {L"ab c", 2, 1}, {L"a b", 3, 0}, {L"a\u007Fb", 3, 0},
      {L"aあb", 3, 0}, {L"a", 3, 0},    {L"a", -1, 0},  {nullptr, 1, 0}};
  for (const auto& [text, length, is_ascii] : cases) {
    EXPECT_EQ(is_ascii, CUtil::AscStringCheck(text, length)) << length;
  }
}

TEST(UtilTest, TextIsEscapedAndConverted) {
  EXPECT_EQ(L"&amp;amp;&lt;&gt;&quot;&#37;'", CUtil::ConvertToDBParamString(L"&amp;<>\"%'"));
  EXPECT_EQ(L"髙①", CUtil::ConvertToUnicode(932, "\xFB\xFC\x87\x40"));
  EXPECT_EQ(L"", CUtil::ConvertToUnicode(12345, "x")) << "no such code page";
}

TEST(UtilTest, TypesAndStatusesAreLookedUp) {
  const std::pair<SystemVersion, unsigned long> cases[] = {
      {{1, 4, 10, 1}, 1}, {{2, 4, 77, 1}, 3}, {{2, 5, 2, 3}, 6}, {{2, 6, 0, 1}, 7}};
  for (const auto& [version, type] : cases) EXPECT_EQ(type, OsTypeOf(version));
  EXPECT_EQ(7U, CUtil::GetOSType()) << "this machine";
  EXPECT_EQ(1, IsMatchStatusMain(97, 95, 96, 97, -1));
  EXPECT_EQ(0, IsMatchStatusMain(94, 95, 96, -1, 94, -1));
  EXPECT_TRUE(CUtil::IsVista() == 1 && CUtil::IsXp() == 0 && CUtil::IsWin2000() == 0);
}

using UtilSystemTest = ProductTest;

TEST_F(UtilSystemTest, FoldersAreNeverEmpty) {
  EXPECT_EQ(path(L"common"), CUtil::GetSpecialFolderPath(35));
  EXPECT_EQ(L"C:\\Documents and Settings\\All Users\\Application Data",
            CUtil::GetSpecialFolderPath(0));
  const CString program = CUtil::GetExePath();
  EXPECT_EQ(L'\\', program.back());
  EXPECT_NE(CString::npos, program.find(L"tests"));
}

TEST_F(UtilSystemTest, IniValuesAreRead) {
  WriteNative(native("x.ini"), "[S]\nText= a b \nLong=" + std::string(300, 'x') + "\nN=-12x\n");
  EXPECT_EQ(L"a b", CUtil::GetIniString(L"s", L"TEXT", path(L"x.ini")));
  EXPECT_EQ(259U, CUtil::GetIniString(L"S", L"Long", path(L"x.ini")).size());
  EXPECT_EQ(-12, CUtil::GetIniInt(L"S", L"N", path(L"x.ini"), 7));
}

TEST_F(UtilSystemTest, FilesAreListedWithoutDirectories) {
  for (const char* name : {"list/b.txt", "list/A.txt", "list/c.dat"}) WriteNative(native(name), "");
  std::filesystem::create_directories(native("list/d.txt"));
  const std::tuple<CString, const wchar_t*, int, CStringArray> cases[] = {
      {path(L"list"), L"*.TXT", 1, {L"A.txt", L"b.txt"}},
      {path(L"list"), L"", 1, {L"A.txt", L"b.txt", L"c.dat"}},
      {path(L"list"), L"none", 0, {}},
      {path(L"list\\d.txt"), L"*", 1, {}},
      {path(L"nowhere"), L"*", 0, {}}};
  for (const auto& [folder, pattern, result, found] : cases) {
    EXPECT_THAT(log_.lines(), IsEmpty());
    CStringArray files = {L"old"};
    EXPECT_EQ(result, GetFileList2(folder, pattern, files)) << ToUtf8(pattern);
    EXPECT_EQ(found, files) << ToUtf8(pattern);
  }
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{
                  5, 140542, L"GetFileList2", L"ファイルの一覧取得に失敗しました。", {}, 3}));
}

class OtherMachine : public Machine {
 public:
  ErrorCode Ipv4Addresses(Ipv4Address* to, std::size_t& count) override {
    count = addresses.size();
    if (to == nullptr) return size_status;
    std::ranges::copy(addresses, to);
    return kErrorSuccess;
  }
  bool Version(SystemVersion& to) override {
    if (!has_version) SetLastError(kErrorNotSupported);
    if (has_version) to = version;
    return has_version;
  }

  std::vector<Ipv4Address> addresses;
  ErrorCode size_status = kErrorInsufficientBuffer;
  SystemVersion version;
  bool has_version = true;
};

TEST_F(UtilSystemTest, TheAddressesOfTheMachineAreAppended) {
  OtherMachine machine;
  const ScopedMachine use_machine(machine);
  CStringArray addresses = {L"first"};
  EXPECT_EQ(1, CUtil::GetIPList(addresses));
  EXPECT_THAT(addresses, ElementsAre(L"first"));
  machine.addresses = {{{255, 255, 255, 255}}, {{0, 0, 0, 0}}, {{10, 2, 30, 4}}};
  EXPECT_EQ(1, CUtil::GetIPList(addresses));
  EXPECT_THAT(addresses, ElementsAre(L"first", L"255.255.255.255", L"0.0.0.0", L"10.2.30.4"));
  EXPECT_THAT(log_.lines(), IsEmpty());
  machine.size_status = kErrorNotSupported;
  EXPECT_EQ(0, CUtil::GetIPList(addresses));
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, 101413, L"CUtil::GetIPList",
                                  L"IPアドレステーブルのメモリ獲得に失敗しました。"}));
}

TEST_F(UtilSystemTest, VersionsFrom62OnAreRecent) {
  OtherMachine machine;
  const ScopedMachine use_machine(machine);
  const std::tuple<SystemVersion, int, int> cases[] = {
      {{2, 6, 1, 1}, 0, 0}, {{2, 6, 2, 3}, 1, 1}, {{2, 10, 0, 2}, 1, 1}, {{2, 7, 0, 1}, 1, 0}};
  for (const auto& [version, is_recent, is_server] : cases) {
    log_.Clear();
    machine.version = version;
    int found = 77;
    EXPECT_EQ(is_recent, CUtil::IsWin8orLater(&found));
    EXPECT_EQ(is_server, found);
  }
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{
                                3, 0, L"CUtil::IsWin8orLater",
                                L"バージョン情報(Major[7], Minor[0], Product[1])→判定結果[1][0]"}));

  log_.Clear();
  machine.has_version = false;
  EXPECT_EQ(0, CUtil::IsWin8orLater(nullptr));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{5, 0, L"CUtil::IsWin8orLater",
                                                L"バージョン情報の取得エラー[50]"}));
}

}  // namespace
}  // namespace vk::tq::testing
