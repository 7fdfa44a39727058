#include "foundation/access_list.h"

#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "foundation/util.h"
#include "platform/error.h"
#include "support/test_support.h"

namespace vk::tq {
namespace {

using testing::ChildProcess;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::LogLine;
using testing::ProductTest;

AccessEntry Entry(unsigned char account, std::uint8_t flags = 0, bool is_allow = true) {
  return {{{account}}, account * 100U, flags, is_allow};
}

// The rights and flags that the account 9 is given.
AccessEntry Granted(std::uint8_t flags) { return {{{9}}, kGenericAll, flags, true}; }

TEST(AccessListTest, TheNewEntryStandsBetweenOwnAndInheritedOnes) {
  const struct {
    const char* what;
    std::vector<AccessEntry> before;
    int mode;
    std::vector<AccessEntry> after;
  } cases[] = {
      {"no list", {}, 1, {Granted(0)}},
      {"inheritable", {}, 0, {Granted(kObjectInherit | kContainerInherit)}},
      {"any other mode", {}, 7, {Granted(kObjectInherit | kContainerInherit)}},
      {"behind the object's own", {Entry(1), Entry(2)}, 1, {Entry(1), Entry(2), Granted(0)}},
      {"in place of the account's, whatever they are",
       {Entry(9), Entry(1), Entry(9, kObjectInherit), Entry(9, 0, false)},
       1,
       {Entry(1), Granted(0)}},
      {"in front of the inherited",
       {Entry(1), Entry(2, kInherited), Entry(3, kInherited)},
       1,
       {Entry(1), Granted(0), Entry(2, kInherited), Entry(3, kInherited)}},
      {"all behind the first inherited one stay, the account's too",
       {Entry(9), Entry(9, kInherited), Entry(9), Entry(4)},
       1,
       {Granted(0), Entry(9, kInherited), Entry(9), Entry(4)}},
  };
  for (const auto& one : cases) {
    AccessList list;
    list.entries = one.before;
    list.is_protected = true;
    const AccessList granted = GrantFullAccess(list, {{9}}, one.mode);
    EXPECT_EQ(granted.entries, one.after) << one.what;
    EXPECT_TRUE(granted.is_protected);
    EXPECT_FALSE(granted.is_auto_inherited);
    EXPECT_EQ(GrantFullAccess(granted, {{9}}, one.mode).entries, one.after) << one.what;
  }
}

class SetFileAccessTest : public ProductTest {
 protected:
  std::string AclOf(const std::string& name) const {
    const std::string command = "getfacl -cpE " + native(name);
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
    std::string acl;
    for (int c = fgetc(pipe.get()); c != EOF; c = fgetc(pipe.get())) acl += static_cast<char>(c);
    return acl;
  }
};

TEST_F(SetFileAccessTest, AFileIsGivenToTheGroup) {
  testing::WriteNative(native("status.dat"), "x");
  const CString file = path(L"status.dat");
  EXPECT_EQ(CUtil::SetFileAccess(file, L"users", 1), 1);
  EXPECT_EQ(CUtil::SetFileAccess(file, L"users", 1), 1);
  EXPECT_THAT(AclOf("status.dat"), HasSubstr("\ngroup:users:rw-\nmask::rw-\n"));
  EXPECT_THAT(log_.lines(2), IsEmpty());
}

TEST_F(SetFileAccessTest, AFolderGivesItToWhatIsMadeInIt) {
  testing::WriteNative(native("folder/old"), "x");
  EXPECT_EQ(CUtil::SetFileAccess(path(L"folder"), L"users", 0), 1);
  testing::WriteNative(native("folder/new"), "x");
  EXPECT_THAT(AclOf("folder"), HasSubstr("\ndefault:group:users:rwx\n"));
  EXPECT_THAT(AclOf("folder/new"), HasSubstr("\ngroup:users:rwx\n"));
  EXPECT_THAT(AclOf("folder/old"), ::testing::Not(HasSubstr("users")));
}

TEST_F(SetFileAccessTest, AStrangerOfTheGroupGetsIn) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  ASSERT_EQ(chmod(temp_.native().c_str(), 0755), 0);
  testing::WriteNative(native("status.dat"), "x");
  ASSERT_EQ(chmod(native("status.dat").c_str(), 0600), 0);
  const auto opens = [&] {
    return ChildProcess([&] {
             const gid_t users = getgrnam("users")->gr_gid;
             if (setgroups(1, &users) != 0 || setresuid(54321, 54321, 54321) != 0) return 9;
             return open(native("status.dat").c_str(), O_RDWR | O_CLOEXEC) >= 0 ? 1 : 0;
           })
        .Wait();
  };
  EXPECT_EQ(opens(), 0);
  EXPECT_EQ(CUtil::SetFileAccess(path(L"status.dat"), L"users", 1), 1);
  EXPECT_EQ(opens(), 1);
}

TEST_F(SetFileAccessTest, FailuresAreLoggedWithTheirStep) {
  const struct {
    CString path;
    const wchar_t* account;
    const wchar_t* text;
    int code;
  } cases[] = {
      {path(L"none"), L"power users", L"SID取得失敗", 1332},
      {path(L"none"), L"users", L"ACE取得失敗", 2},
      {L"\\proc\\self\\status", L"users", L"SetFileSecurity失敗", 50},
  };
  for (const auto& one : cases) {
    log_.Clear();
    EXPECT_EQ(CUtil::SetFileAccess(one.path, one.account, 1), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, 0, L"CUtil::SetFileAccess", one.text,
                                                  std::nullopt, one.code}));
  }
}

}  // namespace
}  // namespace vk::tq
