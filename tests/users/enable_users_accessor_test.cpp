#include "users/enable_users_accessor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <utility>

#include "platform/path.h"
#include "platform/text.h"
#include "storage/crypto.h"
#include "support/test_clock.h"
#include "support/test_support.h"

namespace vk::tq {

class EnableUsersAccessorPeer {
 public:
  static void DropInstance() { delete std::exchange(CEnableUsersAccessor::s_pInstance, nullptr); }
  static std::int64_t LastWrite(const CEnableUsersAccessor& users) { return users.m_ftLastWrite; }
  static std::size_t Size(const CEnableUsersAccessor& users) {
    return users.m_mapChangeUsers.size();
  }
};

namespace {

using namespace testing;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Peer = EnableUsersAccessorPeer;

constexpr const wchar_t* kConstructor = L"CEnableUsersAccessor::CEnableUsersAccessor";
constexpr const wchar_t* kChange = L"CEnableUsersAccessor::GetTQLoginAccount";
constexpr const wchar_t* kLogOnly = L"CEnableUsersAccessor::GetLogOnlyUserAccount";
constexpr const wchar_t* kPcLogon = L"CEnableUsersAccessor::GetPcLogonQueryUserAccount";

void SetLastWrite(const std::string& native, std::int64_t seconds, long nanoseconds = 0) {
  const timespec times[] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
  ASSERT_EQ(utimensat(AT_FDCWD, native.c_str(), times, 0), 0);
}

class EnableUsersTest : public ProductTest {
 protected:
  EnableUsersTest() : temporary_("TMPDIR", native("temporary").c_str()) {
    std::filesystem::create_directory(native("temporary"));
    WriteKeyFile();
    Peer::DropInstance();
  }
  ~EnableUsersTest() override { Peer::DropInstance(); }

  std::string list_native(const char* extension) const {
    return product_native("config/EnableUsers") + extension;
  }

  // Writes the plain list, with a time stamp that no other list of the test has, long ago.
  void WritePlain(std::string_view bytes) {
    WriteNative(list_native(".ini"), bytes);
    SetLastWrite(list_native(".ini"), ++stamp_);
  }

  void WriteEnciphered(std::string_view bytes) {
    WriteNative(native("plain"), bytes);
    ASSERT_EQ(CCrypto().CryptFileMake(path(L"plain"), product_path(L"config/EnableUsers.dat")), 0);
    SetLastWrite(list_native(".dat"), ++stamp_);
  }

  std::vector<std::string> TemporaryFiles() const { return ListNative(native("temporary")); }

  // The account, or "-" when the user is not found.
  static CString Change(const CString& user) {
    CString account;
    const CEnableUsersAccessor* users = CEnableUsersAccessor::GetInstance();
    return users->GetTQLoginAccount(user, L"me", account) == 1 ? account : CString(L"-");
  }

  static std::size_t Size() { return Peer::Size(*CEnableUsersAccessor::GetInstance()); }

  ScopedEnvironment temporary_;
  std::int64_t stamp_ = 1'000'000'000;
};

// ---- The lookups ----

TEST_F(EnableUsersTest, LookupsTellTheirDecision) {
  struct Lookup {
    const wchar_t* function;
    CString user;
    int result;
    CString account;
    CString line;  // "…" stands for the end that many lines have
  };
  const auto expect = [&](std::string_view list, const std::vector<Lookup>& lookups) {
    WritePlain(list);
    const CEnableUsersAccessor& users = *CEnableUsersAccessor::GetInstance();
    for (const auto& [function, user, result, expected, text] : lookups) {
      log_.Clear();
      CString account = L"old";
      EXPECT_EQ(result, function == kChange    ? users.GetTQLoginAccount(user, L"Me", account)
                        : function == kLogOnly ? users.GetLogOnlyUserAccount(user, account)
                                               : users.GetPcLogonQueryUserAccount(user, account))
          << ToUtf8(user);
      EXPECT_EQ(account, expected) << ToUtf8(user);
      CString line = text;
      if (line.back() == L'…') line.replace(line.size() - 1, 1, L"でジョブ登録処理を続けます。");
      EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, 0, function, line}));
    }
  };
  const CString job = L"印刷ジョブユーザ";
  const CString known = L"が許可ユーザ定義に見つかりました。";
  const CString may_log = L"がログだけプリントを許可されています。";
  const CString is_no_query = L"は、PcLogon問合せユーザではありません。";
  expect(
      "[ChangeUsers]\r\nBob=Acct-B\r\nEmpty=\r\n*=star\r\n"
      "[LogOnlyUsers]\r\nLog=Acct-L\r\nNone=\r\n"
      "[PcLogonQueryUsers]\r\nPc=Acct-P\r\nBare=\r\n",
      {{kChange, L"boB", 1, L"Acct-B",
        job + L"[BOB]" + known + L"定義されたログインユーザ[Acct-B]…"},
       {kChange, L"empty", 1, L"Me", job + L"[EMPTY]" + known + L"現在のログインユーザ[Me]…"},
       {kChange, L"*", 1, L"star", job + L"[*]" + known + L"定義されたログインユーザ[star]…"},
       {kChange, L"no%s", 0, L"", job + L"[NO%S]が許可ユーザ定義に見つかりません。"},
       {kLogOnly, L"log", 1, L"Acct-L", job + L"[LOG]" + may_log + L"定義されたユーザ[Acct-L]…"},
       {kLogOnly, L"none", 1, L"NONE", job + L"[NONE]" + may_log + L"現在のユーザ[NONE]…"},
       {kLogOnly, L"x", 0, L"",
        job + L"[X]がログだけプリントを許可されていません。現在のユーザ[X]…"},
       {kPcLogon, L"pc", 1, L"Acct-P", job + L"[PC]は、定義されたユーザ[Acct-P]…"},
       {kPcLogon, L"bare", 1, L"", job + L"[BARE]は、PcLogon問合せユーザです。"},
       {kPcLogon, L"x", 0, L"", job + L"[X]" + is_no_query},
       {kPcLogon, L"", 0, L"", job + L"[]" + is_no_query}});
  const CString by_star = L"は、*定義されているためPcLogon問合せユーザです。";
  expect("[PcLogonQueryUsers]\r\n*=Any\r\npc=own\r\n",
         {{kPcLogon, L"x", 1, L"Any", job + L"[X]" + by_star},
          {kPcLogon, L"Pc", 1, L"own", job + L"[PC]は、定義されたユーザ[own]…"},
          {kPcLogon, L"", 0, L"", job + L"[]" + is_no_query}});
  expect("[PcLogonQueryUsers]\r\n*=\r\n",
         {{kPcLogon, L"x", 1, L"", job + L"[X]" + by_star},
          {kChange, L"Bob", 0, L"Bob", L"許可ユーザ定義が見つかりません。現在のユーザ[Bob]…"},
          {kLogOnly, L"Bob", 0, L"Bob",
           L"ログだけプリントの許可ユーザ定義が見つかりません。現在のユーザ[Bob]…"}});
  expect(
      "[Other]\r\nBob=x\r\n",
      {{kPcLogon, L"Bob", 0, L"",
        L"PcLogon問合せユーザの許可ユーザ定義が見つかりません。現在のユーザ[Bob]" + is_no_query}});
}

TEST_F(EnableUsersTest, TheFirstListThatKnowsTheUserDecides) {
  WritePlain(
      "[ChangeUsers]\r\nall=1\r\n"
      "[LogOnlyUsers]\r\nall=2\r\ntwo=\r\n"
      "[PcLogonQueryUsers]\r\nall=3\r\ntwo=3\r\nthree=3\r\n");
  const CEnableUsersAccessor& users = *CEnableUsersAccessor::GetInstance();
  const std::tuple<CString, int, CString> kCases[] = {{L"All", 1, L"1"},
                                                      {L"Two", 2, L"TWO"},
                                                      {L"Three", 3, L"3"},
                                                      {L"four", 0, L""},
                                                      {L"", 0, L""}};
  for (const auto& [user, type, expected] : kCases) {
    CString same = user;  // the call works on copies of its arguments
    EXPECT_EQ(users.GetEnableUserType(same, same, same), type) << ToUtf8(user);
    EXPECT_EQ(same, expected) << ToUtf8(user);
  }
}

// ---- The forms of the list ----

TEST_F(EnableUsersTest, PlainLines) {
  WritePlain(
      "bob=acct\n  carol \t=\t Acct C = 2 \r\nBOB=second\r\n\r\nno equals sign\r\nempty=\r\n"
      "=nobody\nlast = end");
  for (const auto& [user, account] : {std::pair{L"Bob", L"second"},
                                      {L"CAROL", L"Acct C = 2"},
                                      {L"empty", L"me"},
                                      {L"LAST", L"end"},
                                      {L"no equals sign", L"-"},
                                      {L"", L"-"}}) {
    EXPECT_EQ(Change(user), account);
  }
  EXPECT_EQ(Size(), 5U);

  // What stands for no user still makes a list that is not empty.
  const std::tuple<std::string_view, std::size_t> kCases[] = {
      {"\r\n", 1},         {"nobody", 1},  {"", 0}, {std::string_view("\0\0", 2), 0},
      {"\xEF\xBB\xBF", 0}, {"\xFF\xFE", 0}};
  for (const auto& [text, size] : kCases) {
    WritePlain(text);
    EXPECT_EQ(Change(L"nobody"), L"-");
    EXPECT_EQ(Size(), size);
  }
}

std::string Utf16(std::wstring_view text) { return "\xFF\xFE" + *EncodeText(1200, text); }

TEST_F(EnableUsersTest, MarksAndCodePages) {
  const std::wstring shift_jis = L"ｔａｎａｋａ=田中 太郎\r\n山田=ヤマダ～髙\r\n";
  const std::wstring lines = shift_jis + L"Ärzte=É\r\n";
  const auto knows = [](const CString& last) {
    return Change(L"ＴａＮａＫａ") == L"田中 太郎" && Change(L"山田") == L"ヤマダ～髙" &&
           Change(L"äRZTE") == last;
  };
  for (const std::wstring& head : {std::wstring(), std::wstring(L"[ChangeUsers]\r\n")}) {
    for (const std::string& bytes :
         {ToUtf8(head + lines), "\xEF\xBB\xBF" + ToUtf8(head + lines), Utf16(head + lines)}) {
      WritePlain(bytes);
      EXPECT_TRUE(knows(L"É")) << ToHex(bytes);
      EXPECT_EQ(Size(), 3U);
    }
    const ScopedEnvironment code_page("TQ_ANSI_CODEPAGE", "932");
    WritePlain(*EncodeText(932, head + shift_jis));
    EXPECT_TRUE(knows(L"-"));
  }
}

TEST_F(EnableUsersTest, NamesAndValuesEndWithTheirBuffers) {
  const std::string long_name(500, 'n');
  const std::string value(1100, 'v');
  // 501 and 502 characters leave room for 20 more and the end of the list.
  for (const auto& [size, is_read] : {std::pair{19, true}, std::pair{20, false}}) {
    const std::string last(static_cast<std::size_t>(size), 'z');
    WritePlain("[ChangeUsers]\r\n" + long_name + "=1\r\n" + long_name + "n=" + value + "\r\n" +
               last + "=3\r\nbeyond=4\r\n");
    EXPECT_EQ(Change(FromUtf8(long_name)), L"1");
    EXPECT_EQ(Change(FromUtf8(long_name + 'N')), CString(1023, L'v'));
    EXPECT_EQ(Change(FromUtf8(last)), is_read ? L"3" : L"-");
    EXPECT_EQ(Change(CString(19, L'z')), is_read ? L"3" : L"-");
    EXPECT_EQ(Change(L"beyond"), L"-");
    EXPECT_EQ(Size(), is_read ? 3U : 2U);
  }
}

// ---- The enciphered list ----

TEST_F(EnableUsersTest, TheEncipheredListComesFirstAndLeavesNoTrace) {
  WritePlain("bob=plain\r\n");
  for (const std::string& text : {std::string("[ChangeUsers]\r\nbob=enciphered\r\n"),
                                  std::string("bob=enciphered"), Utf16(L"bob=enciphered\r\n")}) {
    WriteEnciphered(text);
    EXPECT_EQ(Change(L"BOB"), L"enciphered");
    EXPECT_EQ(Size(), 1U);
  }
  WriteEnciphered("");
  EXPECT_EQ(Size(), 0U);
  EXPECT_THAT(TemporaryFiles(), IsEmpty());
}

// A writer that is killed before it cuts the file leaves the end of a longer list there.
TEST_F(EnableUsersTest, UsersOfAnOlderListDoNotComeBack) {
  for (const std::string head : {"", "[ChangeUsers]\r\n"}) {
    std::string older = head;
    for (int i = 0; i < 50; ++i) older += "removed" + std::to_string(i) + "=acct\r\n";
    for (const bool is_wide : {false, true}) {
      const auto form = [&](const std::string& text) {
        return is_wide ? Utf16(FromUtf8(text)) : text;
      };
      WriteEnciphered(form(older));
      const std::string old_bytes = ReadNative(list_native(".dat"));
      WriteEnciphered(form(head + "bob=acct\r\n"));
      const std::string new_bytes = ReadNative(list_native(".dat"));
      WriteNative(list_native(".dat"), new_bytes + old_bytes.substr(new_bytes.size()));
      SetLastWrite(list_native(".dat"), ++stamp_);
      EXPECT_EQ(Change(L"bob"), L"acct");
      EXPECT_EQ(Change(L"removed49"), L"-");
      EXPECT_EQ(Size(), 1U);
    }
  }
}

// ---- Loading and loading again ----

TEST_F(EnableUsersTest, AListThatCannotBeReadIsEmptyAndTriedAgain) {
  const auto fails = [&](int level, const CString& text) {
    log_.Clear();
    const CEnableUsersAccessor* users = CEnableUsersAccessor::GetInstance();
    EXPECT_THAT(log_.lines(), ElementsAre(LogLine{level, 0, kConstructor, text}));
    EXPECT_EQ(Peer::LastWrite(*users), 0);
    EXPECT_EQ(Peer::Size(*users), 0U);
    EXPECT_THAT(TemporaryFiles(), IsEmpty());
  };
  fails(2, L"許可ユーザリストファイルが存在しませんでした。ファイル名：" +
               product_path(L"config/EnableUsers.ini"));

  const auto is_folder = [&](const char* extension, const CString& text) {
    Peer::DropInstance();
    WriteNative(list_native(extension) + "/x", "");
    fails(4, text);
    std::filesystem::remove_all(list_native(extension));
  };
  is_folder(".ini", L"許可ユーザリストファイルのOpenに失敗しました。[Errorcode=5]");
  WritePlain("bob=plain\r\n");
  EXPECT_EQ(Change(L"bob"), L"plain");
  is_folder(".dat", L"許可ユーザリストファイルの復号化に失敗しました。[Errorcode=1]");
  WriteEnciphered("bob=enciphered\r\n");
  EXPECT_EQ(Change(L"bob"), L"enciphered");

  Peer::DropInstance();
  WriteKeyFile(std::string(34, 'k'));
  for (int i = 0; i < 2; ++i) {
    fails(4, L"許可ユーザリストファイルの読み込みで例外エラーが発生しました。");
  }
  WriteKeyFile();
  EXPECT_EQ(Change(L"bob"), L"enciphered");
}

TEST_F(EnableUsersTest, TheInstanceChangesWithTheTimeOfItsFileAlone) {
  WritePlain("bob=1\r\n");
  SetLastWrite(list_native(".ini"), 5000, 1);
  CEnableUsersAccessor* users = CEnableUsersAccessor::GetInstance();
  WriteNative(list_native(".ini"), "bob=2\r\n");
  SetLastWrite(list_native(".ini"), 5000, 1);
  EXPECT_EQ(CEnableUsersAccessor::GetInstance(), users);
  EXPECT_EQ(Change(L"bob"), L"1");

  // Any other time makes a new one; 1970 is a time like any other.
  for (const auto& [seconds, nanoseconds] : {std::pair{5000, 2}, {4000, 0}, {0, 0}}) {
    const std::string account = std::to_string(seconds + nanoseconds);
    WriteNative(list_native(".ini"), "bob=" + account + "\r\n");
    SetLastWrite(list_native(".ini"), seconds, nanoseconds);
    EXPECT_EQ(Change(L"bob"), FromUtf8(account));
    EXPECT_NE(Peer::LastWrite(*CEnableUsersAccessor::GetInstance()), 0);
  }
  users = CEnableUsersAccessor::GetInstance();
  std::filesystem::remove(list_native(".ini"));
  EXPECT_EQ(CEnableUsersAccessor::GetInstance(), users);
  EXPECT_EQ(Change(L"bob"), L"0");
}

// A list that is larger than any INI file keeps its meaning.
TEST_F(EnableUsersTest, ALargeListHasItsSections) {
  WritePlain("[LogOnlyUsers]\r\nlog=\r\n[Filling]\r\n" + std::string(0x1100000, ';'));
  CString account;
  EXPECT_EQ(CEnableUsersAccessor::GetInstance()->GetLogOnlyUserAccount(L"log", account), 1);
  EXPECT_EQ(Size(), 0U);
}

TEST_F(EnableUsersTest, ANewInstanceIsMadeForTheDirectoryOfTheCall) {
  WriteNative(native("other/EnableUsers.ini"), "bob=other\r\n");
  const CString other = FromUtf8(native("other"));
  WritePlain("bob=default\r\n");
  CEnableUsersAccessor* users = CEnableUsersAccessor::GetInstance();
  EXPECT_EQ(CEnableUsersAccessor::GetInstance(other), users);
  WritePlain("bob=default\r\n");
  CEnableUsersAccessor::GetInstance(other);
  EXPECT_EQ(Change(L"bob"), L"other");
}

// ---- A list that changes while it is read ----

class HookedClock : public TestClock {
 public:
  explicit HookedClock(std::function<void()> on_sleep) : on_sleep_(std::move(on_sleep)) {}
  void Sleep(std::uint32_t milliseconds) override {
    TestClock::Sleep(milliseconds);
    on_sleep_();
  }

 private:
  std::function<void()> on_sleep_;
};

TEST_F(EnableUsersTest, AListThatKeepsChangingCountsAsOpen) {
  int version = 0;
  const auto write = [&] {
    WriteNative(list_native(".ini"), "bob=" + std::to_string(++version) + "\r\n");
  };
  {
    HookedClock clock(write);
    const ScopedClock scope(clock);
    for (int i = 0; i < 500 && log_.lines(4).empty(); ++i) {
      Peer::DropInstance();
      write();
      CEnableUsersAccessor::GetInstance();
    }
    EXPECT_THAT(clock.pauses, ::testing::Each(::testing::Le(20U)));
    EXPECT_EQ(
        log_.lines(4),
        (std::vector<LogLine>{{4, 0, kConstructor,
                               L"許可ユーザリストファイルのOpenに失敗しました。[Errorcode=32]"}}));
  }
  EXPECT_EQ(Change(L"bob"), std::to_wstring(version));
}

TEST_F(EnableUsersTest, AListThatIsBeingWrittenIsAwaited) {
  int pauses = 0;
  HookedClock clock([&] {
    if (pauses++ == 0) std::ofstream(list_native(".ini"), std::ios::app) << "last=1\r\n";
  });
  const ScopedClock scope(clock);
  for (int i = 0; i < 500 && pauses == 0; ++i) {  // a slow machine comes too late for the pause
    Peer::DropInstance();
    WriteNative(list_native(".ini"), "first=1\r\n");
    CEnableUsersAccessor::GetInstance();
  }
  EXPECT_EQ(Change(L"first") + Change(L"last"), L"11");
}

TEST_F(EnableUsersTest, NoMixtureOfTwoListsIsRead) {
  const auto replace = [&](char version) {
    const std::string next = list_native(".new");
    std::string text;
    for (int i = 0; i < 2000; ++i) text += "u" + std::to_string(i) + "=" + version + "\r\n";
    WriteNative(next, text);
    std::filesystem::rename(next, list_native(".ini"));
  };
  replace('0');
  ChildProcess writer([&] {
    for (int i = 0; i < 200; ++i) {
      replace(static_cast<char>('0' + i % 10));
      std::this_thread::sleep_for(std::chrono::milliseconds(i % 10));
    }
    replace('z');
    return 0;
  });
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
  while (std::chrono::steady_clock::now() < end) {
    const CEnableUsersAccessor& users = *CEnableUsersAccessor::GetInstance();
    if (Peer::LastWrite(users) == 0) continue;
    CString first, last;
    ASSERT_EQ(users.GetTQLoginAccount(L"u0", L"me", first), 1);
    ASSERT_EQ(users.GetTQLoginAccount(L"u1999", L"me", last), 1);
    ASSERT_EQ(first, last);
    log_.Clear();
  }
  EXPECT_EQ(writer.Wait(), 0);
  EXPECT_EQ(Change(L"u0") + Change(L"u1999"), L"zz");
}

}  // namespace
}  // namespace vk::tq
