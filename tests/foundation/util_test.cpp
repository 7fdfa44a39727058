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
  const struct {
    std::wstring path;
    int position;
    const wchar_t* name;
  } kCases[] = {
      {L"C:\\dir.d\\name", -1, L"name"},
      {L"C:\\dir\\name.tar.gz", 15, L"name.tar"},
      {L"C:\\dir\\name.", 11, L"name"},
      {L".profile", 0, L""},
      {L"name", -1, L"name"},
      {L"", -1, L""},
      {L"a/b.c", 3, L"a/b"},
      {L"\\", -1, L""},
      {L"日本.語", 2, L"日本"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(test.position, CUtil::GetExtPos(test.path)) << ToUtf8(test.path);
    CString name = test.path;
    CUtil::GetFileName(name);
    EXPECT_EQ(test.name, name) << ToUtf8(test.path);
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
  EXPECT_EQ(1, CUtil::AscStringCheck(L"!~", 2));
  EXPECT_EQ(1, CUtil::AscStringCheck(L"ab c", 2));
  for (const wchar_t* text : {L"a b",
                              L"a\x7f"
                              L"b",
                              L"aあb", L"a", L""}) {
    EXPECT_EQ(0, CUtil::AscStringCheck(text, 3)) << ToUtf8(text);
  }
  EXPECT_EQ(0, CUtil::AscStringCheck(L"a", 0));
  EXPECT_EQ(0, CUtil::AscStringCheck(L"a", -1));
  EXPECT_EQ(0, CUtil::AscStringCheck(nullptr, 1));
}

TEST(UtilTest, FiveCharactersAreEscaped) {
  EXPECT_EQ(L"&amp;amp;&lt;&gt;&quot;&#37;'", CUtil::ConvertToDBParamString(L"&amp;<>\"%'"));
}

TEST(UtilTest, NarrowTextIsConverted) {
  EXPECT_EQ(L"日本", CUtil::ConvertToUnicode(65001, "日本"));
  EXPECT_EQ(L"髙①", CUtil::ConvertToUnicode(932, "\xFB\xFC\x87\x40"));
  EXPECT_EQ(L"", CUtil::ConvertToUnicode(65001, ""));
  EXPECT_EQ(L"", CUtil::ConvertToUnicode(12345, "x")) << "no such code page";
  EXPECT_EQ(L"", CUtil::ConvertToUnicode(0, nullptr));
}

TEST(UtilTest, TheSystemTypeFollowsTheTable) {
  const struct {
    SystemVersion version;
    unsigned long type;
  } kCases[] = {
      {{1, 4, 0, 1}, 0}, {{1, 4, 10, 1}, 1}, {{1, 4, 90, 1}, 2}, {{2, 4, 77, 1}, 3},
      {{2, 5, 0, 1}, 4}, {{2, 5, 1, 1}, 5},  {{2, 5, 2, 3}, 6},  {{2, 5, 3, 1}, 7},
      {{2, 6, 0, 1}, 7}, {{1, 5, 1, 1}, 7},  {{3, 5, 1, 1}, 7},  {{1, 4, 11, 1}, 7},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(test.type, OsTypeOf(test.version)) << test.version.major << "." << test.version.minor;
  }
  EXPECT_EQ(7U, CUtil::GetOSType()) << "this machine";
  EXPECT_EQ(1, CUtil::IsVista());
  EXPECT_EQ(0, CUtil::IsXp() + CUtil::IsWin2000());
}

TEST(UtilTest, AStatusIsLookedUpInAListThatMinusOneEnds) {
  EXPECT_EQ(1, IsMatchStatusMain(97, 95, 96, 97, -1));
  EXPECT_EQ(0, IsMatchStatusMain(94, 95, 96, -1, 94, -1));
  EXPECT_EQ(0, IsMatchStatusMain(0, -1));
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
  std::filesystem::create_directory(native("list/d.txt"));
  CStringArray files = {L"old"};
  EXPECT_EQ(1, GetFileList2(path(L"list"), L"*.TXT", files));
  EXPECT_EQ((CStringArray{L"A.txt", L"b.txt"}), files);
  EXPECT_EQ(1, GetFileList2(path(L"list"), L"", files));
  EXPECT_EQ(3, files.GetSize());
  EXPECT_EQ(1, GetFileList2(path(L"list"), L"d*", files));
  EXPECT_EQ(0, files.GetSize());
  std::filesystem::create_directory(native("empty"));
  EXPECT_EQ(1, GetFileList2(path(L"empty"), L"*", files));
  EXPECT_EQ(0, GetFileList2(path(L"empty"), L"*.txt", files));
  files.Add(L"old");
  EXPECT_EQ(1, GetFileList2(L"", L"*", files));
  EXPECT_EQ(0, files.GetSize());
  EXPECT_EQ(0, GetFileList2(path(L"list"), L"none", files));
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_EQ(0, GetFileList2(path(L"nowhere"), L"*", files));
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{
                  5, 140542, L"GetFileList2", L"ファイルの一覧取得に失敗しました。", {}, 3}));
}

}  // namespace
}  // namespace vk::tq::testing
