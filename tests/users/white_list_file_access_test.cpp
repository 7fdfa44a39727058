#include "users/white_list_file_access.h"

#include "platform/error.h"
#include "storage/crypto.h"
#include "support/test_support.h"

namespace vk::tq {
namespace {

using namespace testing;

TEST(WhiteListMatchTest, OneEntry) {
  const std::tuple<const wchar_t*, CStringArray, CStringArray> kCases[] = {
      // Kind 0: the whole first attribute, in any case; with a star what it begins with, in this
      // case.
      {L"0",
       {L"office ａ3", L" \t　Office Ａ3\r\n", L"Off*", L" O*nothing of this counts*"},
       {L"Office", L"Office Ａ33", L"", L" ", L"off*", L"ice*", L" *Ａ3"}},
      // The others: contained, in this case, untrimmed.
      {L"1", {L"10.0", L""}, {L"ip_", L" IP_", L"Office"}},
      // The kind is a number that begins the text.
      {L" +3rd", {L"PCL6"}, {L"pcl6"}},
      {L"４", {L"office ａ3"}, {}},
      {L"4", {}, {L""}},
  };
  for (const auto& [kind, listed, not_listed] : kCases) {
    CStringArray found;
    for (const CStringArray* names : {&listed, &not_listed}) {
      for (const CString& name : *names) {
        CWhiteListFileAccess list;
        list.Add(kind, name);
        if (list.IsWhitePrinter(L"Office Ａ3", L"IP_10.0.0.7", L"2F 経理", L"Acme PCL6") == 1) {
          found.Add(name);
        }
      }
    }
    EXPECT_EQ(found, listed) << ToUtf8(kind);
  }
  // All printers but the suite's own.
  CWhiteListFileAccess all;
  all.m_bMatchAll = -1;
  EXPECT_EQ(all.IsWhitePrinter(L"", L"", L"", L"A Velkorandia Tessa Loquin Driver 2"), 0);
  EXPECT_EQ(all.IsWhitePrinter(L"", L"", L"", L"A velkorandia Tessa Loquin Driver 2"), 1);
}

using WhiteListFileTest = ProductTest;

TEST_F(WhiteListFileTest, EntriesComeBackInOrder) {
  WriteKeyFile();
  const CStringArray kinds{L"1", L"0", L"3", L"", L"x", L"0"};
  const CStringArray names{L"ends", L" Büro * ", L"ドライバ 髙", L"a\rb", L"a\nb", L""};
  CWhiteListFileAccess written;
  written.Add(L"1", CString(L"ends\0here", 9));
  for (int i = 1; i < kinds.GetSize(); ++i) written.Add(kinds[i], names[i]);
  ASSERT_EQ(written.Write(FromUtf8(temp_.native())), 1);
  CWhiteListFileAccess read;
  read.m_bMatchAll = 1;
  ASSERT_EQ(read.Read(temp_.path()), 1);
  EXPECT_EQ(read.m_bMatchAll, 0);
  EXPECT_EQ(read.GetKinds(), kinds);
  EXPECT_EQ(read.GetNames(), names);
  // What is read is appended. A last name needs no line end, a kind alone is no entry.
  for (const wchar_t* text : {L"4\r\nA\nB", L"5\rA", L"6\r\n"}) {
    ASSERT_EQ(CCrypto().CryptingStringWriter(text, path(L"WhiteList.dat")), 0);
    EXPECT_EQ(read.Read(temp_.path()), 1);
  }
  EXPECT_EQ(read.GetNames().GetSize(), names.GetSize() + 2);
  EXPECT_EQ(read.GetNames()[names.GetSize()], L"A\nB");
  EXPECT_EQ(read.IsWhitePrinter(L"Büro 5", L"", L"", L""), 1);
}

TEST_F(WhiteListFileTest, FailuresLoseNothing) {
  WriteKeyFile();
  CWhiteListFileAccess list;
  list.Add(L"0", L"A");
  EXPECT_EQ(list.Write(path(L"none")) + list.Read(path(L"none")), 0);
  EXPECT_FALSE(ExistsNative(native("none")));
  WriteNative(native("folder/WhiteList.dat/x"), "");
  EXPECT_EQ(list.Write(path(L"folder")) + list.Read(path(L"folder")), 0);
  ASSERT_EQ(list.Write(temp_.path()), 1);
  const std::string before = ReadNative(native("WhiteList.dat"));
  WriteKeyFile(std::string(34, 'k'));
  SetLastError(4711);
  EXPECT_EQ(CWhiteListFileAccess().Write(temp_.path()) + list.Read(temp_.path()), 0);
  EXPECT_EQ(ReadNative(native("WhiteList.dat")), before);
  EXPECT_EQ(list.GetNames(), CStringArray{L"A"});
  const std::string file = " CWhiteListFileAccess::Read プリンタ除外ファイル";
  EXPECT_THAT(log_.texts(),
              ::testing::ElementsAre(
                  "2 110800010" + file + "が存在しません。",
                  "5 110800020" + file + "の復号化に失敗しました。",
                  "5 110800030" + file + "の読み込み処理で予期せぬエラーが発生しました。 = 4711"));
}

}  // namespace
}  // namespace vk::tq
