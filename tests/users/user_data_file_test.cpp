// The two user data files: what they have in common, and what each has for itself.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/error.h"
#include "storage/crypto.h"
#include "support/lock_holder.h"
#include "support/test_clock.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"

namespace vk::tq {
namespace {

using namespace testing;

constexpr const wchar_t* kOddText = L" <a> & \"b\" 'c' \u3000\r\n田中 太郎\n髙～①\r\t𠮷 ";

template <class Class>
class UserDataFileTest : public ProductTest {
 protected:
  static constexpr bool kIsShared = std::is_same_v<Class, CSharedUserDataFileAccess>;

  UserDataFileTest() { WriteKeyFile(); }

  static int IsFresh(const Class& access) {
    if constexpr (kIsShared) return access.IsExist();
    if constexpr (!kIsShared) return access.IsExist(0);
  }

  void SetLastWrite(std::int64_t seconds) {
    const timespec times[] = {{seconds, 0}, {seconds, 999'999'999}};
    ASSERT_EQ(utimensat(AT_FDCWD, file_.c_str(), times, 0), 0);
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
  written.SetUserID(L"a<b");
  written.SetUserAccount(nullptr);
  written.SetPrintUserNo(L"3");
  written.SetUserGroupNo(L"4");
  CString more_elements;
  if constexpr (!TestFixture::kIsShared) {
    written.SetLastWindowsLogonDateTime(L"5");
    written.SetLastRegistUserTickCount(L"6");
    more_elements =
        L"<LastWindowsLogonDateTime>5</LastWindowsLogonDateTime>"
        L"<LastRegistUserTickCount>6</LastRegistUserTickCount>";
  }
  TypeParam read;
  read.SetUserFileData(written.GetUserFileData());
  ASSERT_EQ(read.WriteAll(), 1);
  CString text;
  ASSERT_EQ(CCrypto().CryptingStringReader(FromUtf8(this->file_), text), 0);
  EXPECT_EQ(
      text.substr(text.find(L'\n') + 1),
      L"<Velkorandia><UserData><UserID>a&lt;b</UserID><UserAcount/><PrintUserNo>3</PrintUserNo>"
      L"<UserGroupNo>4</UserGroupNo>" +
          more_elements + L"</UserData></Velkorandia>");
  written.SetUserID(kOddText);
  ASSERT_EQ(written.WriteAll() + read.ReadAll(), 2);
  EXPECT_EQ(read.GetUserID() + read.GetUserGroupNo(), kOddText + CString(L"4"));
  ASSERT_EQ(CCrypto().CryptingStringWriter(L"no XML", FromUtf8(this->file_)), 0);
  ASSERT_EQ(read.ReadAll(), 1) << "an empty record";
  EXPECT_EQ(read.GetUserID() + read.GetUserGroupNo(), L"");
  EXPECT_EQ(read.Delete(), 1);
  EXPECT_FALSE(ExistsNative(this->file_));
}

TYPED_TEST(UserDataFileTest, FailuresChangeNeitherTheRecordNorAGoodFile) {
  TypeParam access;
  access.SetUserID(L"good");
  EXPECT_EQ(access.IsExist() + access.ReadAll(), 0);
  EXPECT_EQ(access.Delete() + access.WriteAll(), 2);
  const std::string good = ReadNative(this->file_);
  access.SetUserID(L"no character of XML: \x01");
  EXPECT_EQ(access.WriteAll(), 0);
  access.SetUserID(L"new");
  this->WriteKeyFile(std::string(34, 'k'));
  SetLastError(4711);
  EXPECT_EQ(access.WriteAll() + access.ReadAll(), 0);
  {
    const LockHolder holder(this->lock_);
    const ScopedLockTimeout soon(30);
    SetLastError(4712);
    EXPECT_EQ(access.ReadAll() + access.WriteAll() + access.Delete(), 0);
    EXPECT_EQ(access.IsExist(), 1) << "takes no lock";
  }
  EXPECT_EQ(ReadNative(this->file_), good);
  this->WriteKeyFile();
  std::filesystem::remove(this->file_);
  std::filesystem::create_directories(this->file_ + "/x");
  EXPECT_EQ(access.ReadAll() + access.WriteAll() + access.Delete(), 0);
  EXPECT_EQ(access.GetUserID(), L"new");
  const std::string both = ReadNative(TQ_TEST_DATA "/user_data_log.txt");
  const std::size_t middle = both.find("2 CShared");
  EXPECT_EQ(this->log_.text(), this->kIsShared ? both.substr(middle) : both.substr(0, middle));
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
  ASSERT_EQ(std::filesystem::remove(this->file_), this->kIsShared);
  const LockHolder holder(this->lock_);
  EXPECT_EQ(TypeParam().Delete(), 1) << "without a file it takes no lock";
}

using UserFilesTest = ProductTest;

// The lock of the one file is open to every account, that of the other belongs to its maker.
TEST_F(UserFilesTest, AccountsMeetOnTheOpenLockOnly) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second account";
  constexpr uid_t kNobody = 65534;
  WriteKeyFile();
  ASSERT_EQ(chmod(temp_.native().c_str(), 0777), 0);
  CUserDataFileAccess user;
  user.SetServiceDataDirectry();
  ASSERT_EQ(user.WriteAll(), 1);
  ASSERT_EQ(CSharedUserDataFileAccess().WriteAll(), 1);
  HANDLE in_use = CUserDataFileAccess::GetMutex(nullptr, L"KITORA_QTL_SHARED_USER_DATA");
  log_.Clear();
  ChildProcess other([&] {
    if (setgid(kNobody) != 0 || setuid(kNobody) != 0) return 1;
    CUserDataFileAccess read;
    read.SetServiceDataDirectry();
    if (read.ReadAll() != 1 || !log_.lines(5).empty()) return 2;
    if (CSharedUserDataFileAccess().ReadAll() != 0) return 3;
    const std::vector<LogLine> lines = log_.lines(5);
    return lines.size() == 1 && lines[0].number == 130303 && lines[0].code == 5 ? 0 : 4;
  });
  EXPECT_EQ(other.Wait(), 0);
  CUserDataFileAccess::RelMutex(in_use);
}

}  // namespace
}  // namespace vk::tq
