#include "users/user_data_file_access.h"

#include <sys/stat.h>
#include <unistd.h>

#include "support/test_support.h"
#include "users/shared_user_data_file_access.h"

namespace vk::tq {
namespace {

using namespace testing;

class UserDataFileAccessTest : public ProductTest {
 protected:
  UserDataFileAccessTest() { WriteKeyFile(); }
};

TEST_F(UserDataFileAccessTest, Directories) {
  CUserDataFileAccess access;
  const CString product = L"\\ORV-INC\\Velkorandia\\Tessaloquin\\data\\";
  EXPECT_EQ(access.GetDataDirectry(), path(L"user") + product);
  access.SetServiceDataDirectry();
  EXPECT_EQ(access.GetDataDirectry(), path(L"common") + product);
  access.SetUserDataDirectry();
  EXPECT_EQ(access.GetDataDirectry(), path(L"user") + product);
  EXPECT_FALSE(ExistsNative(native("user")));

  const CString slashes = FromUtf8(native("a/b"));
  for (const CString& given : {path(L"a\\b"), path(L"a\\b\\"), slashes, slashes + L'/'}) {
    access.SetDataDirectry(given.c_str());
    EXPECT_EQ(access.GetDataDirectry(), path(L"a\\b\\"));
    ASSERT_EQ(access.WriteAll(), 1);
    EXPECT_EQ(ListNative(native("a/b")), std::vector<std::string>{"DATA.XML"});
    EXPECT_EQ(access.Delete(), 1);
  }
  for (const wchar_t* nothing : {static_cast<const wchar_t*>(nullptr), L""}) {
    access.SetDataDirectry(nothing);
    EXPECT_EQ(access.GetDataDirectry(), L"\\");
  }
}

// The lock of the one file is open to every account, that of the other belongs to its maker.
TEST_F(UserDataFileAccessTest, AccountsMeetOnTheOpenLockOnly) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second account";
  constexpr uid_t kNobody = 65534;
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
    const LogLine line{5,
                       130303,
                       L"CSharedUserDataFileAccess::GetMutex",
                       L"共有PCユーザ情報ファイルへのロックが取得できませんでした。",
                       {},
                       5};
    return log_.lines(5) == std::vector<LogLine>{line} ? 0 : 4;
  });
  EXPECT_EQ(other.Wait(), 0);
  CUserDataFileAccess::RelMutex(in_use);
}

}  // namespace
}  // namespace vk::tq
