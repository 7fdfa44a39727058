#include "foundation/access_list.h"

#include <algorithm>
#include <string>

#include "foundation/util.h"
#include "platform/error.h"
#include "support/test_support.h"

namespace vk::tq {
namespace {

using ::testing::ElementsAre;
using testing::LogLine;
using testing::ProductTest;

AccessEntry Entry(unsigned char account, std::uint8_t flags = 0, bool is_allow = true) {
  return {{{account}}, account * 100U, flags, is_allow};
}

// What the account 9 is given.
AccessEntry Granted(std::uint8_t flags) { return {{{9}}, kGenericAll, flags, true}; }

TEST(AccessListTest, TheNewEntryStandsBetweenOwnAndInheritedOnes) {
  // The account's own go, whatever they are. All behind the first inherited one stay, its too.
  const AccessEntry inherited = Entry(9, kInherited);
  AccessList list;
  EXPECT_THAT(GrantFullAccess(list, {{9}}, 0).entries,
              ElementsAre(Granted(kObjectInherit | kContainerInherit)));
  list.entries = {Entry(9), Entry(1), Entry(9, kObjectInherit), Entry(9, 0, false), inherited,
                  Entry(9), Entry(4)};
  for (int time = 0; time < 2; ++time) {
    list = GrantFullAccess(list, {{9}}, 1);
    EXPECT_THAT(list.entries, ElementsAre(Entry(1), Granted(0), inherited, Entry(9), Entry(4)));
  }
}

using SetFileAccessTest = ProductTest;

TEST_F(SetFileAccessTest, AFileAndWhatWillBeInAFolderAreGivenToTheGroup) {
  testing::WriteNative(native("status.dat"), "");
  EXPECT_EQ(CUtil::SetFileAccess(path(L"status.dat"), L"users", 1), 1);
  EXPECT_EQ(CUtil::SetFileAccess(temp_.path(), L"users", 0), 1);
  testing::WriteNative(native("new"), "");
  AccountId users;
  ASSERT_EQ(LookUpAccount(L"users", users), SecurityStep::kNone);
  for (const wchar_t* file : {L"status.dat", L"new"}) {
    AccessList list;
    ASSERT_EQ(ReadAccessList(path(file), list), SecurityStep::kNone);
    EXPECT_EQ(std::ranges::count(list.entries, users, &AccessEntry::account), 1);
  }
  EXPECT_EQ(CUtil::SetFileAccess(path(L"none"), L"power users", 1), 0);
  EXPECT_EQ(CUtil::SetFileAccess(L"\\proc\\self\\status", L"users", 1), 0);
  const wchar_t* const function = L"CUtil::SetFileAccess";
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, 0, function, L"SID取得失敗", {}, 1332},
                                        LogLine{2, 0, function, L"SetFileSecurity失敗", {}, 50}));
}

}  // namespace
}  // namespace vk::tq
