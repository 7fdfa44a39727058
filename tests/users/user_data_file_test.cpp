// What the two user data files have in common.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <limits>
#include <optional>

#include "platform/error.h"
#include "storage/crypto.h"
#include "support/lock_holder.h"
#include "support/test_clock.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"

namespace vk::tq {
namespace {

using namespace testing;

using ::testing::ElementsAre;

constexpr const wchar_t* kOddText = L" <a> & \"b\" 'c' \u3000\r\n田中 太郎\n髙～①\r\t𠮷 ";

// What a test has to know of each class.
struct UserFile {
  using Access = CUserDataFileAccess;
  static constexpr const wchar_t* kClass = L"CUserDataFileAccess";
  static constexpr const wchar_t* kText = L"";
  static constexpr const wchar_t* kLock = L"KITORA_QTL_USER_DATA";
  static constexpr const char* kFile = "user/ORV-INC/Velkorandia/Tessaloquin/data/DATA.XML";
  static constexpr bool kExpires = false;
  static constexpr const wchar_t* kMoreElements =
      L"<LastWindowsLogonDateTime>5</LastWindowsLogonDateTime>"
      L"<LastRegistUserTickCount>6</LastRegistUserTickCount>";
  static int IsFresh(const Access& access) { return access.IsExist(0); }
  static void SetMore(Access& access) {
    access.SetLastWindowsLogonDateTime(L"5");
    access.SetLastRegistUserTickCount(L"6");
  }
  static CString More(Access& access) {
    return access.GetLastWindowsLogonDateTime() + access.GetLastRegistUserTickCount();
  }
};

struct SharedUserFile {
  using Access = CSharedUserDataFileAccess;
  static constexpr const wchar_t* kClass = L"CSharedUserDataFileAccess";
  static constexpr const wchar_t* kText = L"共有PC";
  static constexpr const wchar_t* kLock = L"KITORA_QTL_SHARED_USER_DATA";
  static constexpr const char* kFile = "common/ORV-INC/Velkorandia/Tessaloquin/data/Shared.XML";
  static constexpr bool kExpires = true;
  static constexpr const wchar_t* kMoreElements = L"";
  static int IsFresh(const Access& access) { return access.IsExist(); }
  static void SetMore(Access&) {}
  static CString More(Access&) { return L"56"; }
};

template <class Kind>
class UserDataFileTest : public ProductTest {
 protected:
  // An object whose path a test can take away.
  struct Access : Kind::Access {
    using Kind::Access::m_strFilePath;
  };

  UserDataFileTest() { WriteKeyFile(); }

  CString file_path() const { return path(FromUtf8(Kind::kFile)); }

  void SetLastWrite(std::int64_t seconds) {
    const timespec times[] = {{seconds, 0}, {seconds, 999'999'999}};
    ASSERT_EQ(utimensat(AT_FDCWD, file_.c_str(), times, 0), 0);
  }

  // The lines at level 4 and above that the class is to have left.
  struct Failure {
    int number;
    const wchar_t* operation;
    const wchar_t* text;
    std::optional<int> code = {};
    std::optional<CString> second = {};
  };
  void ExpectFailures(const std::vector<Failure>& failures) {
    std::vector<LogLine> lines;
    for (const Failure& failure : failures) {
      lines.push_back({failure.number == 130309 ? 4 : 5, failure.number,
                       Kind::kClass + (L"::" + CString(failure.operation)),
                       Kind::kText + CString(failure.text), failure.second, failure.code});
    }
    EXPECT_EQ(log_.lines(4), lines);
    log_.Clear();
  }

  const std::string file_ = native(Kind::kFile);
};

using Kinds = ::testing::Types<UserFile, SharedUserFile>;
TYPED_TEST_SUITE(UserDataFileTest, Kinds);

TYPED_TEST(UserDataFileTest, ARecordComesBackAsItWas) {
  typename TestFixture::Access written;
  written.SetUserID(kOddText);
  written.SetUserAccount(nullptr);
  written.SetPrintUserNo(L"3");
  written.SetUserGroupNo(L"4");
  TypeParam::SetMore(written);
  typename TestFixture::Access copy;
  copy.SetUserFileData(written.GetUserFileData());
  ASSERT_EQ(copy.WriteAll(), 1);
  EXPECT_EQ(ReadNative(this->file_).size() % 16, 0U);

  typename TestFixture::Access read;
  ASSERT_EQ(read.ReadAll(), 1);
  EXPECT_EQ(read.GetUserID(), kOddText);
  EXPECT_EQ(read.GetUserAccount(), L"");
  EXPECT_EQ(read.GetPrintUserNo() + read.GetUserGroupNo(), L"34");
  EXPECT_EQ(TypeParam::More(read), L"56");

  written.SetUserID(L"a<b");
  ASSERT_EQ(written.WriteAll(), 1);
  CString text;
  ASSERT_EQ(CCrypto().CryptingStringReader(this->file_path(), text), 0);
  EXPECT_EQ(text.substr(text.find(L'\n') + 1),
            CString(L"<Velkorandia><UserData><UserID>a&lt;b</UserID><UserAcount/>"
                    L"<PrintUserNo>3</PrintUserNo><UserGroupNo>4</UserGroupNo>") +
                TypeParam::kMoreElements + L"</UserData></Velkorandia>");

  // What is missing in the text becomes empty; text that is no XML is an empty record.
  for (const auto& [other, group] :
       {std::pair{L"<Velkorandia><UserData><UserGroupNo>7</UserGroupNo></UserData></Velkorandia>",
                  L"7"},
        {L"no XML", L""}}) {
    ASSERT_EQ(CCrypto().CryptingStringWriter(other, this->file_path()), 0);
    ASSERT_EQ(read.ReadAll(), 1);
    EXPECT_EQ(read.GetUserID() + L"," + read.GetUserGroupNo(), CString(L",") + group);
  }
  this->ExpectFailures({});
}

TYPED_TEST(UserDataFileTest, AFileThatIsMissingOrADirectory) {
  typename TestFixture::Access access;
  access.SetUserID(L"old");
  EXPECT_EQ(access.IsExist(), 0);
  EXPECT_EQ(access.ReadAll(), 0);
  EXPECT_EQ(access.Delete(), 1);
  this->ExpectFailures({{130311, L"ReadAll", L"ユーザ情報ファイルが存在しません。"}});
  std::filesystem::create_directories(this->file_ + "/x");
  EXPECT_EQ(access.ReadAll() + access.WriteAll() + access.Delete(), 0);
  this->ExpectFailures(
      {{130301, L"ReadAll", L"ユーザ情報の復号化に失敗しました。"},
       {130302, L"WriteAll", L"ユーザ情報の暗号化に失敗しました。", {}, std::to_wstring(EACCES)},
       {130309, L"Delete", L"ユーザ情報の削除処理で予期せぬエラーが発生しました。", 5}});
  EXPECT_EQ(access.GetUserID(), L"old");
  access.m_strFilePath.clear();
  EXPECT_EQ(access.ReadAll(), 0);
  this->ExpectFailures({{130310, L"ReadAll", L"ユーザ情報ファイルへのパスが未設定です。"}});

  // A folder that cannot be made leaves no line.
  const std::string no_folder = this->native("file");
  WriteNative(no_folder, "");
  const ScopedEnvironment user("TQ_APPDATA", no_folder.c_str());
  const ScopedEnvironment common("TQ_COMMON_APPDATA", no_folder.c_str());
  EXPECT_EQ(typename TestFixture::Access().WriteAll(), 0);
  this->ExpectFailures({});
}

TYPED_TEST(UserDataFileTest, AGoodFileStaysWhenTheNextCannotBeMade) {
  typename TestFixture::Access access;
  access.SetUserID(L"good");
  ASSERT_EQ(access.WriteAll(), 1);
  const std::string good = ReadNative(this->file_);

  access.SetUserID(L"no character of XML: \x01");
  EXPECT_EQ(access.WriteAll(), 0);
  this->ExpectFailures({{130305, L"WriteAll", L"ユーザ情報の保存に失敗しました。"}});

  this->WriteKeyFile(std::string(34, 'k'));
  access.SetUserID(L"new");
  SetLastError(4711);
  EXPECT_EQ(access.WriteAll(), 0);
  EXPECT_EQ(access.ReadAll(), 0);
  this->ExpectFailures(
      {{130306, L"WriteAll", L"ユーザ情報の保存処理で予期せぬエラーが発生しました。", 4711},
       {130308, L"ReadAll", L"ユーザ情報の読み込み処理で予期せぬエラーが発生しました。", 4711}});
  EXPECT_EQ(access.GetUserID(), L"new");
  EXPECT_EQ(ReadNative(this->file_), good);

  this->WriteKeyFile();
  EXPECT_EQ(access.ReadAll(), 1);
  EXPECT_EQ(access.GetUserID(), L"good");
}

TYPED_TEST(UserDataFileTest, AHeldLockKeepsTheFileAsItIs) {
  typename TestFixture::Access access;
  access.SetUserID(L"old");
  ASSERT_EQ(access.WriteAll(), 1);
  const std::string old = ReadNative(this->file_);
  {
    const LockHolder holder(TypeParam::kLock);
    const ScopedLockTimeout soon(30);
    access.SetUserID(L"new");
    SetLastError(4711);  // a wait that ends without the lock sets none
    EXPECT_EQ(access.ReadAll() + access.WriteAll() + access.Delete(), 0);
    const typename TestFixture::Failure failure{
        130304, L"GetMutex", L"ユーザ情報ファイルへのロックが取得できませんでした。", 4711};
    this->ExpectFailures({failure, failure, failure});
    EXPECT_EQ(access.GetUserID(), L"new");
    EXPECT_EQ(ReadNative(this->file_), old);

    // What needs no lock goes on.
    EXPECT_EQ(access.IsExist(), 1);
    std::filesystem::remove(this->file_);
    EXPECT_EQ(access.Delete(), 1);
  }
  EXPECT_EQ(access.WriteAll(), 1);
}

TYPED_TEST(UserDataFileTest, TheTimeThatAFileIsFresh) {
  struct Case {
    const char* value;
    int seconds;
    std::vector<std::int64_t> fresh_ages;
    std::vector<std::int64_t> stale_ages;
  };
  const Case kCases[] = {
      {nullptr, 10, {9, 10, 0, -1, -100'000, -8'000'000'000}, {11, 100'000}},
      {"3 seconds", 3, {3, -3}, {4}},
      {"0", 0, {0, -1}, {1}},
      {"-5", -5, {-5, -6}, {-4, 0, 5}},
      {"2147483647", std::numeric_limits<int>::max(), {0, 1'700'000'001}, {}},
      {"-2147483648", std::numeric_limits<int>::min(), {}, {0, 1'500'000'000, -1'500'000'000}},
      {"text", 0, {0}, {1}},
      // The second before 1970, and the one before that.
      {"1700000001", 1'700'000'001, {1'700'000'001}, {1'700'000'002}},
  };
  TestClock clock;
  const ScopedClock scope(clock);
  for (const Case& c : kCases) {
    if (c.value != nullptr) {
      WriteNative(this->product_native("config/Client.ini"),
                  "[Setting]\r\nSharedTimeout=" + std::string(c.value) + "\r\n");
    }
    this->log_.Clear();
    typename TestFixture::Access access;
    EXPECT_THAT(
        this->log_.lines(),
        ElementsAre(LogLine{
            2, 0, TypeParam::kClass + (L"::" + CString(TypeParam::kClass)),
            TypeParam::kText + (L"ユーザデータ保持期間 " + std::to_wstring(c.seconds)) + L"秒"}));
    ASSERT_EQ(access.WriteAll(), 1);
    for (const bool is_fresh : {true, false}) {
      for (const std::int64_t age : is_fresh ? c.fresh_ages : c.stale_ages) {
        this->SetLastWrite(clock.Now() - age);
        const bool exists = is_fresh || !TypeParam::kExpires;
        EXPECT_EQ(TypeParam::IsFresh(access), is_fresh ? 1 : 0) << c.seconds << ", " << age;
        EXPECT_EQ(access.IsExist(), exists ? 1 : 0) << c.seconds << ", " << age;
        EXPECT_EQ(access.ReadAll(), exists ? 1 : 0) << c.seconds << ", " << age;
      }
    }
  }
}

TYPED_TEST(UserDataFileTest, DeletingAStaleFile) {
  typename TestFixture::Access access;
  ASSERT_EQ(access.WriteAll(), 1);
  this->SetLastWrite(1000);
  EXPECT_EQ(access.Delete(), 1);
  EXPECT_EQ(ExistsNative(this->file_), TypeParam::kExpires);
  // A write makes it fresh again.
  ASSERT_EQ(access.WriteAll(), 1);
  EXPECT_EQ(access.IsExist(), 1);
  EXPECT_EQ(access.Delete(), 1);
  EXPECT_FALSE(ExistsNative(this->file_));
}

}  // namespace
}  // namespace vk::tq
