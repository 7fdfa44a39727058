#include "foundation/access_list.h"

#include <cstdio>
#include <memory>
#include <string>

#include "foundation/util.h"
#include "platform/error.h"
#include "support/test_support.h"

namespace vk::tq {
namespace {

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
  const std::tuple<std::vector<AccessEntry>, int, std::vector<AccessEntry>> cases[] = {
      {{}, 1, {Granted(0)}},
      {{}, 0, {Granted(kObjectInherit | kContainerInherit)}},
      {{}, 7, {Granted(kObjectInherit | kContainerInherit)}},
      {{Entry(1), Entry(2)}, 1, {Entry(1), Entry(2), Granted(0)}},
      // In place of the account's own, whatever they are.
      {{Entry(9), Entry(1), Entry(9, kObjectInherit), Entry(9, 0, false)},
       1,
       {Entry(1), Granted(0)}},
      // All behind the first inherited one stay, the account's too.
      {{Entry(9), Entry(1), Entry(9, kInherited), Entry(9), Entry(4)},
       1,
       {Entry(1), Granted(0), Entry(9, kInherited), Entry(9), Entry(4)}}};
  for (const auto& [before, mode, after] : cases) {
    AccessList list;
    list.entries = before;
    list.is_protected = true;
    const AccessList granted = GrantFullAccess(list, {{9}}, mode);
    EXPECT_EQ(granted.entries, after);
    EXPECT_TRUE(granted.is_protected);
    EXPECT_FALSE(granted.is_auto_inherited);
    EXPECT_EQ(GrantFullAccess(granted, {{9}}, mode).entries, after) << "once more";
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

TEST_F(SetFileAccessTest, FilesAndFoldersAreGivenToTheGroup) {
  testing::WriteNative(native("status.dat"), "x");
  testing::WriteNative(native("folder/old"), "x");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(CUtil::SetFileAccess(path(L"status.dat"), L"users", 1), 1);
    EXPECT_EQ(CUtil::SetFileAccess(path(L"folder"), L"users", 0), 1);
  }
  testing::WriteNative(native("folder/new"), "x");
  EXPECT_THAT(AclOf("status.dat"), HasSubstr("\ngroup:users:rw-\nmask::rw-\n"));
  EXPECT_THAT(AclOf("folder"), HasSubstr("\ndefault:group:users:rwx\n"));
  EXPECT_THAT(AclOf("folder/new"), HasSubstr("\ngroup:users:rwx\n"));
  EXPECT_THAT(AclOf("folder/old"), ::testing::Not(HasSubstr("users")));
  EXPECT_THAT(log_.lines(2), IsEmpty());
}

TEST_F(SetFileAccessTest, FailuresAreLoggedWithTheirStep) {
  const std::tuple<CString, const wchar_t*, const wchar_t*, int> cases[] = {
      {path(L"none"), L"power users", L"SID取得失敗", 1332},
      {path(L"none"), L"users", L"ACE取得失敗", 2},
      {L"\\proc\\self\\status", L"users", L"SetFileSecurity失敗", 50}};
  for (const auto& [object, account, text, code] : cases) {
    log_.Clear();
    EXPECT_EQ(CUtil::SetFileAccess(object, account, 1), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, 0, L"CUtil::SetFileAccess", text, {}, code}));
  }
}

}  // namespace
}  // namespace vk::tq
