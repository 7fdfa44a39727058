#include "users/enable_users_accessor.h"

#include <chrono>
#include <filesystem>
#include <utility>

#include "platform/text.h"
#include "storage/crypto.h"
#include "support/test_clock.h"
#include "support/test_support.h"

namespace vk::tq {

class EnableUsersAccessorPeer {
 public:
  static void DropInstance() { delete std::exchange(CEnableUsersAccessor::s_pInstance, nullptr); }
};

namespace {

using namespace testing;
using namespace std::string_literals;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Peer = EnableUsersAccessorPeer;

class EnableUsersTest : public ProductTest {
 protected:
  EnableUsersTest() : temporary_("TMPDIR", native("temporary").c_str()) {
    std::filesystem::create_directory(native("temporary"));
    WriteKeyFile();
    Peer::DropInstance();
  }
  ~EnableUsersTest() override { Peer::DropInstance(); }

  // Both give the list a time that no other list of the test has, long ago.
  void WritePlain(std::string_view bytes) {
    WriteNative(plain_, bytes);
    SetLastWrite(plain_, ++time_);
  }
  void WriteEnciphered(std::string_view bytes) {
    WriteNative(native("plain"), bytes);
    ASSERT_EQ(CCrypto().CryptFileMake(path(L"plain"), product_path(L"config/EnableUsers.dat")), 0);
    SetLastWrite(enciphered_, ++time_);
  }

  // In nanoseconds since 1970.
  static void SetLastWrite(const std::string& file, std::int64_t time) {
    const std::chrono::sys_time<std::chrono::nanoseconds> moment{std::chrono::nanoseconds(time)};
    std::filesystem::last_write_time(file, std::chrono::file_clock::from_sys(moment));
  }

  // The account, or "-" when the user is not found.
  static CString Change(const CString& user) {
    CString account;
    const CEnableUsersAccessor* users = CEnableUsersAccessor::GetInstance();
    return users->GetTQLoginAccount(user, L"me", account) == 1 ? account : CString(L"-");
  }

  ScopedEnvironment temporary_;
  const std::string plain_ = product_native("config/EnableUsers.ini");
  const std::string enciphered_ = product_native("config/EnableUsers.dat");
  std::int64_t time_ = 1'000'000'000;
};

// enable_users_log.txt has what each list says of each user.
TEST_F(EnableUsersTest, LookupsTellTheirDecision) {
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
  std::string told;
  for (const auto& [list, names] : kLists) {
    WritePlain(list);
    const CEnableUsersAccessor& users = *CEnableUsersAccessor::GetInstance();
    for (const wchar_t* user : names) {
      CString account = user;  // the first call works on copies of its arguments
      const auto tell = [&](int result) {
        told +=
            ToUtf8(Format(L"%s %d \"%s\" ", user, result, account)) + log_.texts().back() + "\n";
        account = L"old";
      };
      tell(users.GetEnableUserType(account, account, account));
      tell(users.GetTQLoginAccount(user, L"Me", account));
      tell(users.GetLogOnlyUserAccount(user, account));
      tell(users.GetPcLogonQueryUserAccount(user, account));
    }
  }
  EXPECT_EQ(told, ReadNative(TQ_TEST_DATA "/enable_users_log.txt"));
}

std::string Utf16(std::wstring_view text) { return "\xFF\xFE" + *EncodeText(1200, text); }

TEST_F(EnableUsersTest, MarksAndCodePages) {
  const std::wstring lines = L"ｔａｎａｋａ=田中 太郎\r\n山田=ヤマダ～髙\r\n";
  for (const std::wstring& list : {lines, L"[ChangeUsers]\r\n" + lines}) {
    for (const auto& [code_page, bytes] : {std::pair{"65001", ToUtf8(list)},
                                           {"65001", "\xEF\xBB\xBF" + ToUtf8(list)},
                                           {"65001", Utf16(list)},
                                           {"932", *EncodeText(932, list)}}) {
      const ScopedEnvironment ansi("TQ_ANSI_CODEPAGE", code_page);
      WritePlain(bytes);
      EXPECT_EQ(Change(L"ＴａＮａＫａ") + Change(L"山田"), L"田中 太郎ヤマダ～髙") << ToHex(bytes);
    }
  }
}

// A name that is cut would be somebody else's. The list is larger than any INI file.
TEST_F(EnableUsersTest, NamesAndValuesEndWithTheirBuffers) {
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
TEST_F(EnableUsersTest, TheEncipheredListComesFirstAndLeavesNoTrace) {
  WritePlain("bob=plain\r\n");
  for (const std::wstring head : {L"", L"[ChangeUsers]\r\n"}) {
    WriteEnciphered(Utf16(head + L"bob=enciphered\r\n\0removed=acct\r\n"s));
    EXPECT_EQ(Change(L"BOB") + Change(L"removed"), L"enciphered-");
  }
  WriteEnciphered("");
  EXPECT_EQ(Change(L"bob"), L"-");
  EXPECT_THAT(ListNative(native("temporary")), IsEmpty());
}

TEST_F(EnableUsersTest, AListThatCannotBeReadIsEmptyAndTriedAgain) {
  const auto fails = [&](const std::string& text) {
    Peer::DropInstance();
    log_.Clear();
    EXPECT_EQ(Change(L"bob"), L"-");
    const std::string file = " CEnableUsersAccessor::CEnableUsersAccessor 許可ユーザリストファイル";
    EXPECT_EQ(log_.texts()[0], text.substr(0, 1) + file + text.substr(1));
    EXPECT_THAT(ListNative(native("temporary")), IsEmpty());
  };
  fails("2が存在しませんでした。ファイル名：" + ToUtf8(product_path(L"config/EnableUsers.ini")));
  WriteNative(plain_ + "/x", "");
  fails("4のOpenに失敗しました。[Errorcode=5]");
  WriteNative(enciphered_ + "/x", "");
  fails("4の復号化に失敗しました。[Errorcode=1]");
  std::filesystem::remove_all(enciphered_);
  WriteEnciphered("bob=enciphered\r\n");
  WriteKeyFile(std::string(34, 'k'));
  fails("4の読み込みで例外エラーが発生しました。");
  WriteKeyFile();
  EXPECT_EQ(Change(L"bob"), L"enciphered");
}

TEST_F(EnableUsersTest, TheInstanceChangesWithTheTimeOfItsFileAlone) {
  const std::tuple<const char*, std::int64_t, const wchar_t*> kVersions[] = {
      {"bob=1", 5'000'000'001, L"1"},
      {"bob=2", 5'000'000'001, L"1"},
      {"bob=3", 5'000'000'002, L"3"},
      {"bob=4", 0, L"4"}};  // 1970 is a time like any other
  for (const auto& [list, time, account] : kVersions) {
    WriteNative(plain_, list);
    SetLastWrite(plain_, time);
    EXPECT_EQ(Change(L"bob"), account);
  }
  std::filesystem::remove(plain_);
  EXPECT_EQ(Change(L"bob"), L"4");
}

TEST_F(EnableUsersTest, AListThatKeepsChangingCountsAsOpen) {
  struct WritingClock : TestClock {
    void Sleep(std::uint32_t) override { WriteNative(list, "bob=" + std::to_string(++version)); }
    std::string list;
    int version = 0;
  };
  WritingClock clock;
  clock.list = plain_;
  std::optional<ScopedClock> scope(clock);
  CString account;
  for (int i = 0; i < 500 && log_.lines(4).empty(); ++i) {  // a slow machine is too late to pause
    Peer::DropInstance();
    clock.Sleep(0);
    CEnableUsersAccessor::GetInstance()->GetTQLoginAccount(L"x", L"", account);
  }
  EXPECT_THAT(log_.texts(4), ElementsAre(::testing::HasSubstr("[Errorcode=32]")));
  EXPECT_EQ(account, L"x") << "as without any list";
  scope.reset();
  EXPECT_EQ(Change(L"bob"), std::to_wstring(clock.version));
}

}  // namespace
}  // namespace vk::tq
