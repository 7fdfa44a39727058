// Who is let in, which printers the suite leaves alone, and the two user data files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <utility>

#include "platform/error.h"
#include "platform/text.h"
#include "storage/crypto.h"
#include "support/lock_holder.h"
#include "support/test_clock.h"
#include "users/enable_users_accessor.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"
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
using ::testing::PrintToString;
using Peer = EnableUsersAccessorPeer;
using Printers = CWhiteListFileAccess;

class UserFilesTest : public ProductTest {
 protected:
  UserFilesTest() {
    fs::create_directory(native("temporary"));
    WriteKeyFile();
    Peer::DropInstance();
  }
  ~UserFilesTest() override { Peer::DropInstance(); }

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

TEST_F(UserFilesTest, LookupsTellTheirDecision) {
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
      {"\xEF\xBB\xBFｔａｎａｋａ=田中 太郎", {L"ＴａＮａＫａ"}},
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

// A name that is cut would be somebody else's. The list is larger than any INI file.
TEST_F(UserFilesTest, NamesAndValuesEndWithTheirBuffers) {
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
TEST_F(UserFilesTest, TheEncipheredListComesFirstAndLeavesNoTrace) {
  const ScopedEnvironment ansi("TQ_ANSI_CODEPAGE", "932");
  WritePlain("Bob=plain\r\n");
  for (const std::wstring head : {L"", L"[ChangeUsers]\r\n"}) {
    const std::wstring list = head + L"Bob=ヤマダ～髙\r\n\0removed=acct\r\n"s;
    for (const std::string& bytes :
         {*EncodeText(932, list), "\xFF\xFE" + *EncodeText(1200, list)}) {
      WriteEnciphered(bytes);
      EXPECT_EQ(Change(L"BOB") + Change(L"removed"), L"ヤマダ～髙-") << ToHex(bytes);
    }
  }
  WriteEnciphered("");
  EXPECT_EQ(Change(L"bob"), L"-");
  EXPECT_EQ(ListNative(native("temporary")).size(), 0U);
}

TEST_F(UserFilesTest, AListThatCannotBeReadIsEmptyAndTriedAgain) {
  const auto fail = [&] {
    Peer::DropInstance();
    Tell(ToUtf8(Change(L"bob")));
    EXPECT_EQ(ListNative(native("temporary")).size(), 0U);
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

TEST_F(UserFilesTest, TheInstanceChangesWithTheTimeOfItsFileAlone) {
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

TEST_F(UserFilesTest, AListThatKeepsChangingCountsAsOpen) {
  struct WritingClock : TestClock {
    explicit WritingClock(const std::string& file) : list(file) {}
    void Sleep(std::uint32_t) override { WriteNative(list, "bob=" + std::to_string(++ticks)); }
    const std::string& list;
  };
  WritingClock clock(plain_);
  const ScopedClock scope(clock);
  for (int i = 0; i < 500 && log_.lines(4).empty(); ++i) {  // a slow machine is too late to pause
    Peer::DropInstance();
    clock.Sleep(0);
    CEnableUsersAccessor::GetInstance();
  }
  EXPECT_THAT(log_.texts(4), ::testing::ElementsAre(::testing::HasSubstr("[Errorcode=32]")));
}

TEST_F(UserFilesTest, EntriesStandForPrintersAndComeBackInOrder) {
  // A kind is the number that begins its text. 0 is the whole first attribute in any case, with a
  // star what it begins with in this case; the others are parts of theirs.
  const std::tuple<const wchar_t*, CStringArray, CStringArray> kCases[] = {
      {L"0",
       {L"office ａ3", L" \t　Office Ａ3\r", L"Off*", L" O*nothing of this counts*"},
       {L"Office", L"Office Ａ33", L"", L" ", L"off*", L"ice*", L" *Ａ3"}},
      {L"1", {L"10.0"}, {L"ip_", L" IP_", L"Office"}},
      {L" +3rd", {L"PCL6"}, {L"pcl6"}},
      {L"4", {}, {L"", L"a\nb"}}};
  Printers written, cut;
  for (const auto& [kind, listed, others] : kCases) {
    for (const CStringArray* some : {&listed, &others}) {
      for (const CString& name : *some) {
        Printers list;
        list.Add(kind, name);
        EXPECT_EQ(list.IsWhitePrinter(L"Office Ａ3", L"IP_10.0.0.7", L"2F 経理", L"Acme PCL6"),
                  some == &listed)
            << ToUtf8(name);
        written.Add(kind, name + CString(L"\0end", 4));
        cut.Add(kind, name);
      }
    }
  }
  ASSERT_EQ(written.Write(FromUtf8(temp_.native())), 1);
  Printers read;
  read.m_bMatchAll = 1;
  ASSERT_EQ(read.Read(temp_.path()), 1);
  EXPECT_EQ(read.m_bMatchAll, 0);
  EXPECT_EQ(read.GetKinds(), cut.GetKinds());
  EXPECT_EQ(read.GetNames(), cut.GetNames());
  ASSERT_EQ(read.Read(temp_.path()), 1);
  EXPECT_EQ(read.GetNames().GetSize(), 2 * cut.GetNames().GetSize()) << "what is read is appended";
  // All printers but the suite's own.
  read.m_bMatchAll = -1;
  EXPECT_EQ(read.IsWhitePrinter(L"", L"", L"", L"A Velkorandia Tessa Loquin Driver 2"), 0);
  EXPECT_EQ(read.IsWhitePrinter(L"", L"", L"", L"A velkorandia Tessa Loquin Driver 2"), 1);
}

TEST_F(UserFilesTest, FailuresLoseNothingOfThePrinters) {
  Printers list;
  list.Add(L"0", L"A");
  WriteNative(native("folder/WhiteList.dat/x"), "");
  for (const wchar_t* folder : {L"none", L"folder"}) {
    Tell(PrintToString(std::vector{list.Write(path(folder)), list.Read(path(folder))}));
  }
  EXPECT_FALSE(ExistsNative(native("none")));
  ASSERT_EQ(list.Write(temp_.path()), 1);
  const std::string before = ReadNative(native("WhiteList.dat"));
  WriteKeyFile(std::string(34, 'k'));
  SetLastError(4711);
  Tell(PrintToString(std::vector{Printers().Write(temp_.path()), list.Read(temp_.path())}));
  ExpectTold();
  EXPECT_EQ(ReadNative(native("WhiteList.dat")), before);
  EXPECT_EQ(list.GetNames(), CStringArray{L"A"});
}

template <class Access>
class UserDataFileTest : public ProductTest {
 protected:
  static constexpr bool kIsShared = std::is_same_v<Access, CSharedUserDataFileAccess>;

  UserDataFileTest() { WriteKeyFile(); }

  static int IsFresh(const Access& access) {
    if constexpr (kIsShared) return access.IsExist();
    if constexpr (!kIsShared) return access.IsExist(0);
  }

  void SetLastWrite(std::int64_t seconds) {
    const timespec times[] = {{seconds, 0}, {seconds, 999'999'999}};
    ASSERT_EQ(utimensat(AT_FDCWD, file_.c_str(), times, 0), 0);
  }

  void ExpectTold() const {
    EXPECT_EQ(told_, Recorded(kIsShared ? "shared_user_data_log.txt" : "user_data_log.txt"));
  }

  const std::string file_ =
      native(kIsShared ? "common/ORV-INC/Velkorandia/Tessaloquin/data/Shared.XML"
                       : "user/ORV-INC/Velkorandia/Tessaloquin/data/DATA.XML");
  const CString lock_ = kIsShared ? L"KITORA_QTL_SHARED_USER_DATA" : L"KITORA_QTL_USER_DATA";
};

using Classes = ::testing::Types<CUserDataFileAccess, CSharedUserDataFileAccess>;
TYPED_TEST_SUITE(UserDataFileTest, Classes);

TYPED_TEST(UserDataFileTest, ARecordComesBackAsItWas) {
  TypeParam written;
  written.SetUserID(L" <a> & \"b\" 'c' \u3000\r\n田中 太郎\n髙～①\r\t𠮷 ");
  written.SetUserAccount(nullptr);
  written.SetPrintUserNo(L"3");
  written.SetUserGroupNo(L"4");
  if constexpr (!TestFixture::kIsShared) {
    written.SetLastWindowsLogonDateTime(L"5");
    written.SetLastRegistUserTickCount(L"6");
  }
  this->Tell(written.WriteAll());
  TypeParam read;
  this->Tell(read.ReadAll());
  EXPECT_EQ(read.GetUserID(), written.GetUserID());
  TypeParam again;
  again.SetUserFileData(read.GetUserFileData());
  this->Tell(again.WriteAll());
  CString text;
  ASSERT_EQ(CCrypto().CryptingStringReader(FromUtf8(this->file_), text), 0);
  this->Tell(ToUtf8(text));
  ASSERT_EQ(CCrypto().CryptingStringWriter(L"no XML", FromUtf8(this->file_)), 0);
  this->Tell(read.ReadAll());
  EXPECT_EQ(read.GetUserID() + read.GetUserGroupNo(), L"") << "an empty record";
  this->Tell(read.Delete());
  this->ExpectTold();
  EXPECT_FALSE(ExistsNative(this->file_));
}

TYPED_TEST(UserDataFileTest, FailuresChangeNeitherTheRecordNorAGoodFile) {
  TypeParam access;
  const auto try_all = [&] {
    this->Tell(PrintToString(std::vector{access.ReadAll(), access.WriteAll(), access.Delete()}));
  };
  access.SetUserID(L"no character of XML: \x01");
  try_all();
  access.SetUserID(L"good");
  ASSERT_EQ(access.WriteAll(), 1);
  const std::string good = ReadNative(this->file_);
  access.SetUserID(L"new");
  this->WriteKeyFile(std::string(34, 'k'));
  SetLastError(4711);
  this->Tell(PrintToString(std::vector{access.ReadAll(), access.WriteAll()}));
  {
    const LockHolder holder(this->lock_);
    const ScopedLockTimeout soon(30);
    SetLastError(4712);
    try_all();
    EXPECT_EQ(access.IsExist(), 1) << "takes no lock";
  }
  EXPECT_EQ(ReadNative(this->file_), good);
  this->WriteKeyFile();
  fs::remove(this->file_);
  fs::create_directories(this->file_ + "/x");
  try_all();
  EXPECT_EQ(access.GetUserID(), L"new");
  this->ExpectTold();
}

TYPED_TEST(UserDataFileTest, TheTimeThatAFileIsFresh) {
  // The longest age that is fresh, and the shortest that is not.
  const std::tuple<const char*, std::int64_t, std::int64_t> kCases[] = {
      {"", 10, 11},
      {"SharedTimeout=3 seconds", -8'000'000'000, 4},
      {"SharedTimeout=-5", -5, -4},
      // The second before 1970, and the one before that.
      {"SharedTimeout=1700000001", 1'700'000'001, 1'700'000'002},
  };
  TestClock clock;
  const ScopedClock scope(clock);
  for (const auto& [value, fresh_age, stale_age] : kCases) {
    WriteNative(this->product_native("config/Client.ini"), "[Setting]\n" + std::string(value));
    TypeParam access;
    ASSERT_EQ(access.WriteAll(), 1);
    this->SetLastWrite(clock.Now() - fresh_age);
    EXPECT_EQ(this->IsFresh(access) + access.IsExist() + access.ReadAll(), 3) << value;
    this->SetLastWrite(clock.Now() - stale_age);
    EXPECT_EQ(this->IsFresh(access), 0) << value;
    EXPECT_EQ(access.IsExist() + access.ReadAll(), this->kIsShared ? 0 : 2) << value;
    EXPECT_EQ(access.Delete(), 1);
    EXPECT_EQ(ExistsNative(this->file_), this->kIsShared);
  }
}

// The lock of the one file is open to every account, that of the other belongs to its maker.
TEST_F(UserFilesTest, AccountsMeetOnTheOpenLockOnly) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second account";
  ASSERT_EQ(chmod(temp_.native().c_str(), 0777), 0);
  CUserDataFileAccess user;
  user.SetServiceDataDirectry();
  ASSERT_EQ(user.WriteAll() + CSharedUserDataFileAccess().WriteAll(), 2);
  HANDLE in_use = CUserDataFileAccess::GetMutex(nullptr, L"KITORA_QTL_SHARED_USER_DATA");
  log_.Clear();
  ChildProcess other([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) return 98;
    CUserDataFileAccess read;
    read.SetServiceDataDirectry();
    if (read.ReadAll() != 1 || !log_.lines(5).empty()) return 1;
    if (CSharedUserDataFileAccess().ReadAll() != 0) return 2;
    return log_.lines(5).size() == 1 && log_.lines(5)[0].number == 130303 ? 0 : 3;
  });
  EXPECT_EQ(other.Wait(), 0);
  CUserDataFileAccess::RelMutex(in_use);
}

}  // namespace
}  // namespace testing
}  // namespace vk::tq
