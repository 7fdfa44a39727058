// The lists of the users who are let in, and of the printers that the suite leaves alone. What they
// tell stands in user_lists_log.txt.
#include <chrono>
#include <filesystem>
#include <utility>

#include "platform/error.h"
#include "platform/text.h"
#include "storage/crypto.h"
#include "support/test_clock.h"
#include "support/test_support.h"
#include "users/enable_users_accessor.h"
#include "users/white_list_file_access.h"

namespace vk::tq {

class EnableUsersAccessorPeer {
 public:
  static void DropInstance() { delete std::exchange(CEnableUsersAccessor::s_pInstance, nullptr); }
};

namespace testing {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using ::testing::IsEmpty;
using Peer = EnableUsersAccessorPeer;
using Printers = CWhiteListFileAccess;

class UserListsTest : public ProductTest {
 protected:
  UserListsTest() {
    fs::create_directory(native("temporary"));
    WriteKeyFile();
    Peer::DropInstance();
  }
  ~UserListsTest() override { Peer::DropInstance(); }

  // Both are read anew.
  void WritePlain(std::string_view bytes) {
    WriteNative(plain_, bytes);
    Peer::DropInstance();
  }
  void WriteEnciphered(std::string_view bytes) {
    WriteNative(native("plain"), bytes);
    ASSERT_EQ(CCrypto().CryptFileMake(path(L"plain"), product_path(L"config/EnableUsers.dat")), 0);
    Peer::DropInstance();
  }

  // The account, or "-" when the user is not found.
  static CString Change(const CString& user) {
    CString account;
    const CEnableUsersAccessor* users = CEnableUsersAccessor::GetInstance();
    return users->GetTQLoginAccount(user, L"me", account) == 1 ? account : CString(L"-");
  }

  void ExpectTold() const { EXPECT_EQ(told_, Recorded("user_lists_log.txt")); }

  const ScopedEnvironment temporary_{"TMPDIR", native("temporary").c_str()};
  const std::string plain_ = product_native("config/EnableUsers.ini");
  const std::string enciphered_ = product_native("config/EnableUsers.dat");
};

TEST_F(UserListsTest, LookupsTellTheirDecision) {
  const std::pair<const char*, std::vector<const wchar_t*>> kLists[] = {
      {"[ChangeUsers]\nBob=Acct-B\nEmpty=\nall=1\n[LogOnlyUsers]\nLog=Acct-L\nNone=\nall=2\n"
       "[PcLogonQueryUsers]\nPc=Acct-P\nBare=\nall=3\nlog=3\n",
       {L"boB", L"empty", L"log", L"none", L"pc", L"bare", L"all", L"no%s"}},
      {"[PcLogonQueryUsers]\n*=Any\n", {L"Bob", L""}},
      {"[PcLogonQueryUsers]\n*=\n", {L"Bob"}},
      {"[Other]\nBob=x\n", {L"Bob"}},
      {"bob=acct\n  carol \t=\t Acct C = 2 \r\nBOB=second\r\n\r\nno equals sign\r\nempty=\r\n"
       "=nobody\nlast = end",
       {L"Bob", L"CAROL", L"empty", L"LAST", L"no equals sign", L""}},
      {"\r\n", {L"bob"}}};
  for (const auto& [list, names] : kLists) {
    WritePlain(list);
    const CEnableUsersAccessor& users = *CEnableUsersAccessor::GetInstance();
    for (const wchar_t* user : names) {
      CString account = user;  // the first call works on copies of its arguments
      const auto tell = [&](int result) {
        Tell(ToUtf8(Format(L"%d %s [%s]", result, user, account)));
        account = L"old";
      };
      tell(users.GetEnableUserType(account, account, account));
      tell(users.GetTQLoginAccount(user, L"Me", account));
      tell(users.GetLogOnlyUserAccount(user, account));
      tell(users.GetPcLogonQueryUserAccount(user, account));
    }
  }
  ExpectTold();
}

TEST_F(UserListsTest, MarksAndCodePages) {
  const std::wstring lines = L"ｔａｎａｋａ=田中 太郎\r\n山田=ヤマダ～髙\r\n";
  for (const std::wstring& list : {lines, L"[ChangeUsers]\r\n" + lines}) {
    for (const auto& [code_page, bytes] : {std::pair{"65001", ToUtf8(list)},
                                           {"65001", "\xEF\xBB\xBF" + ToUtf8(list)},
                                           {"65001", "\xFF\xFE" + *EncodeText(1200, list)},
                                           {"932", *EncodeText(932, list)}}) {
      const ScopedEnvironment ansi("TQ_ANSI_CODEPAGE", code_page);
      WritePlain(bytes);
      EXPECT_EQ(Change(L"ＴａＮａＫａ") + Change(L"山田"), L"田中 太郎ヤマダ～髙") << ToHex(bytes);
    }
  }
}

// A name that is cut would be somebody else's. The list is larger than any INI file.
TEST_F(UserListsTest, NamesAndValuesEndWithTheirBuffers) {
  const std::string long_name(500, 'n');
  // 501 and 502 characters leave room for 20 more and the end of the list.
  WritePlain("[ChangeUsers]\r\n" + long_name + "=1\r\n" + long_name +
             "n=" + std::string(1100, 'v') + "\r\n" + std::string(20, 'z') + "=3\r\nbeyond=4\r\n" +
             "[Filling]\r\n" + std::string(0x1100000, ';'));
  EXPECT_EQ(Change(FromUtf8(long_name)), L"1");
  EXPECT_EQ(Change(FromUtf8(long_name + 'N')), CString(1023, L'v'));
  EXPECT_EQ(Change(CString(20, L'z')) + Change(CString(19, L'z')) + Change(L"beyond"), L"---");
}

// A writer that is killed before it cuts the file leaves the end of a longer list there: behind a
// NUL nothing counts.
TEST_F(UserListsTest, TheEncipheredListComesFirstAndLeavesNoTrace) {
  WritePlain("bob=plain\r\n");
  for (const std::wstring head : {L"", L"[ChangeUsers]\r\n"}) {
    WriteEnciphered("\xFF\xFE" + *EncodeText(1200, head + L"bob=secret\r\n\0removed=acct\r\n"s));
    EXPECT_EQ(Change(L"BOB") + Change(L"removed"), L"secret-");
  }
  WriteEnciphered("");
  EXPECT_EQ(Change(L"bob"), L"-");
  EXPECT_THAT(ListNative(native("temporary")), IsEmpty());
}

TEST_F(UserListsTest, AListThatCannotBeReadIsEmptyAndTriedAgain) {
  const auto fail = [&] {
    Peer::DropInstance();
    Tell(ToUtf8(Change(L"bob")));
    EXPECT_THAT(ListNative(native("temporary")), IsEmpty());
  };
  fail();
  WriteNative(plain_ + "/x", "");
  fail();
  WriteNative(enciphered_ + "/x", "");
  fail();
  fs::remove_all(enciphered_);
  WriteEnciphered("bob=enciphered\r\n");
  WriteKeyFile(std::string(34, 'k'));
  fail();
  ExpectTold();
  WriteKeyFile();
  EXPECT_EQ(Change(L"bob"), L"enciphered");
}

TEST_F(UserListsTest, TheInstanceChangesWithTheTimeOfItsFileAlone) {
  const std::tuple<const char*, std::int64_t, const wchar_t*> kVersions[] = {
      {"bob=1", 5'000'000'001, L"1"},
      {"bob=2", 5'000'000'001, L"1"},
      {"bob=3", 5'000'000'002, L"3"},
      {"bob=4", 0, L"4"}};  // 1970 is a time like any other
  for (const auto& [list, nanoseconds, account] : kVersions) {
    WriteNative(plain_, list);
    const std::chrono::sys_time time{std::chrono::nanoseconds(nanoseconds)};
    fs::last_write_time(plain_, std::chrono::file_clock::from_sys(time));
    EXPECT_EQ(Change(L"bob"), account);
  }
  fs::remove(plain_);
  EXPECT_EQ(Change(L"bob"), L"4");
}

TEST_F(UserListsTest, AListThatKeepsChangingCountsAsOpen) {
  struct WritingClock : TestClock {
    explicit WritingClock(const std::string& file) : list(file) {}
    void Sleep(std::uint32_t) override { WriteNative(list, "bob=" + std::to_string(++version)); }
    const std::string& list;
    int version = 0;
  };
  WritingClock clock(plain_);
  std::optional<ScopedClock> scope(clock);
  for (int i = 0; i < 500 && log_.lines(4).empty(); ++i) {  // a slow machine is too late to pause
    Peer::DropInstance();
    clock.Sleep(0);
    CEnableUsersAccessor::GetInstance();
  }
  EXPECT_THAT(log_.texts(4), ::testing::ElementsAre(::testing::HasSubstr("[Errorcode=32]")));
  scope.reset();
  EXPECT_EQ(Change(L"bob"), std::to_wstring(clock.version));
}

TEST_F(UserListsTest, AnEntryStandsForPrinters) {
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
  const auto is_listed = [](const CString& kind, const CString& name) {
    Printers list;
    list.Add(kind, name);
    return list.IsWhitePrinter(L"Office Ａ3", L"IP_10.0.0.7", L"2F 経理", L"Acme PCL6");
  };
  for (const auto& [kind, listed, others] : kCases) {
    for (const CString& name : listed) EXPECT_EQ(is_listed(kind, name), 1) << ToUtf8(name);
    for (const CString& name : others) EXPECT_EQ(is_listed(kind, name), 0) << ToUtf8(name);
  }
  // All printers but the suite's own.
  Printers all;
  all.m_bMatchAll = -1;
  EXPECT_EQ(all.IsWhitePrinter(L"", L"", L"", L"A Velkorandia Tessa Loquin Driver 2"), 0);
  EXPECT_EQ(all.IsWhitePrinter(L"", L"", L"", L"A velkorandia Tessa Loquin Driver 2"), 1);
}

TEST_F(UserListsTest, EntriesForPrintersComeBackInOrder) {
  const CStringArray kinds{L"1", L"0", L"3", L"", L"x", L"0"};
  const CStringArray names{L"ends", L" Büro * ", L"ドライバ 髙", L"a\rb", L"a\nb", L""};
  Printers written;
  written.Add(L"1", CString(L"ends\0here", 9));
  for (int i = 1; i < kinds.GetSize(); ++i) written.Add(kinds[i], names[i]);
  ASSERT_EQ(written.Write(FromUtf8(temp_.native())), 1);
  Printers read;
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

TEST_F(UserListsTest, FailuresLoseNothingOfThePrinters) {
  Printers list;
  list.Add(L"0", L"A");
  WriteNative(native("folder/WhiteList.dat/x"), "");
  for (const wchar_t* folder : {L"none", L"folder"}) {
    Tell(list.Write(path(folder)));
    Tell(list.Read(path(folder)));
  }
  EXPECT_FALSE(ExistsNative(native("none")));
  ASSERT_EQ(list.Write(temp_.path()), 1);
  const std::string before = ReadNative(native("WhiteList.dat"));
  WriteKeyFile(std::string(34, 'k'));
  SetLastError(4711);
  Tell(Printers().Write(temp_.path()));
  Tell(list.Read(temp_.path()));
  ExpectTold();
  EXPECT_EQ(ReadNative(native("WhiteList.dat")), before);
  EXPECT_EQ(list.GetNames(), CStringArray{L"A"});
}

}  // namespace
}  // namespace testing
}  // namespace vk::tq
