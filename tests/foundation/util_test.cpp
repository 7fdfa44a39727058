#include "foundation/util.h"

#include <filesystem>

#include "foundation/os_type.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(UtilTest, TheExtensionBeginsAtTheLastPointOfTheLastComponent) {
  const std::wstring long_name(256, L'n');
  const std::tuple<std::wstring, int, const wchar_t*> cases[] = {
      {L"C:\\dir.d\\name", -1, L"name"},
      {L"C:\\dir\\name.tar.gz", 15, L"name.tar"},
      {L"C:\\dir\\name.", 11, L"name"},
      {L".profile", 0, L""},
      {L"", -1, L""},
      {L"日本.語", 2, L"日本"}};
  for (const auto& [path, position, name] : cases) {
    EXPECT_EQ(position, CUtil::GetExtPos(path)) << ToUtf8(path);
    CString cut = path;
    CUtil::GetFileName(cut);
    EXPECT_EQ(name, cut) << ToUtf8(path);
  }
  EXPECT_EQ(-1, CUtil::GetExtPos(long_name + L".txt"));
  EXPECT_EQ(255, CUtil::GetExtPos(long_name.substr(1) + L".txt"));
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
      {L"!~", 2, 1}, {L"ab c", 2, 1}, {L"a b", 3, 0}, {L"a\u007Fb", 3, 0}, {L"aあb", 3, 0},
      {L"a", 3, 0},  {L"", 3, 0},     {L"a", 0, 0},   {L"a", -1, 0},       {nullptr, 1, 0}};
  for (const auto& [text, length, is_ascii] : cases) {
    EXPECT_EQ(is_ascii, CUtil::AscStringCheck(text, length)) << length;
  }
}

TEST(UtilTest, TextIsEscapedAndConverted) {
  EXPECT_EQ(L"&amp;amp;&lt;&gt;&quot;&#37;'", CUtil::ConvertToDBParamString(L"&amp;<>\"%'"));
  EXPECT_EQ(L"日本", CUtil::ConvertToUnicode(65001, "日本"));
  EXPECT_EQ(L"髙①", CUtil::ConvertToUnicode(932, "\xFB\xFC\x87\x40"));
  EXPECT_EQ(L"", CUtil::ConvertToUnicode(12345, "x")) << "no such code page";
  EXPECT_EQ(L"", CUtil::ConvertToUnicode(0, nullptr));
}

TEST(UtilTest, TheSystemTypeFollowsTheTable) {
  const std::pair<SystemVersion, unsigned long> cases[] = {
      {{1, 4, 10, 1}, 1}, {{2, 4, 77, 1}, 3}, {{2, 5, 2, 3}, 6}, {{2, 5, 3, 1}, 7},
      {{2, 6, 0, 1}, 7},  {{1, 5, 1, 1}, 7},  {{3, 5, 1, 1}, 7}, {{1, 4, 11, 1}, 7}};
  for (const auto& [version, type] : cases) EXPECT_EQ(type, OsTypeOf(version));
  EXPECT_EQ(7U, CUtil::GetOSType()) << "this machine";
  EXPECT_EQ(1, CUtil::IsVista());
  EXPECT_EQ(0, CUtil::IsXp() + CUtil::IsWin2000());
}

TEST(UtilTest, AStatusIsLookedUpInAListThatMinusOneEnds) {
  EXPECT_EQ(1, IsMatchStatusMain(97, 95, 96, 97, -1));
  EXPECT_EQ(0, IsMatchStatusMain(94, 95, 96, -1, 94, -1));
  EXPECT_EQ(0, IsMatchStatusMain(-1, 5, -1));
}

class UtilFolderTest : public ProductTest {};

TEST_F(UtilFolderTest, FoldersAreNeverEmpty) {
  EXPECT_EQ(path(L"common"), CUtil::GetSpecialFolderPath(35));
  EXPECT_EQ(path(L"user"), CUtil::GetSpecialFolderPath(26));
  EXPECT_EQ(L"C:\\Documents and Settings\\All Users\\Application Data",
            CUtil::GetSpecialFolderPath(0));
  const CString program = CUtil::GetExePath();
  EXPECT_EQ(L'\\', program.back());
  EXPECT_NE(CString::npos, program.find(L"tests"));
}

TEST_F(UtilFolderTest, IniValuesAreRead) {
  WriteNative(native("x.ini"), "[S]\nText= a b \nLong=" + std::string(300, 'x') + "\nN=-12x\n");
  EXPECT_EQ(L"a b", CUtil::GetIniString(L"s", L"TEXT", path(L"x.ini")));
  EXPECT_EQ(259U, CUtil::GetIniString(L"S", L"Long", path(L"x.ini")).size());
  EXPECT_EQ(L"", CUtil::GetIniString(L"S", L"None", path(L"x.ini")));
  EXPECT_EQ(-12, CUtil::GetIniInt(L"S", L"N", path(L"x.ini"), 7));
  EXPECT_EQ(7, CUtil::GetIniInt(L"S", L"None", path(L"x.ini"), 7));
}

TEST_F(UtilFolderTest, FilesAreListedWithoutDirectories) {
  for (const char* name : {"list/b.txt", "list/A.txt", "list/c.dat"}) WriteNative(native(name), "");
  std::filesystem::create_directories(native("list/d.txt"));
  std::filesystem::create_directories(native("empty"));
  const std::tuple<CString, const wchar_t*, int, CStringArray> cases[] = {
      {path(L"list"), L"*.TXT", 1, {L"A.txt", L"b.txt"}},
      {path(L"list"), L"", 1, {L"A.txt", L"b.txt", L"c.dat"}},
      {path(L"list"), L"d*", 1, {}},
      {path(L"list"), L"none", 0, {}},
      {path(L"empty"), L"*", 1, {}},
      {path(L"empty"), L"*.txt", 0, {}},
      {L"", L"*", 1, {}},
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

}  // namespace
}  // namespace vk::tq::testing
