#include "foundation/access_list.h"

#include <algorithm>

#include "foundation/util.h"
#include "support/test_support.h"

namespace vk::tq {
namespace {

using ::testing::ElementsAre;
using testing::ProductTest;

TEST(AccessListTest, TheNewEntryStandsBetweenOwnAndInheritedOnes) {
  const AccessEntry own{{{9}}, 1}, other{{{1}}, 1}, inherited{{{9}}, 1, kInherited};
  AccessList list;
  list.entries = {own, other, own, inherited, own};
  EXPECT_THAT(GrantFullAccess(list, {{9}}, 1).entries,
              ElementsAre(other, AccessEntry{{{9}}, kGenericAll}, inherited, own));
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
  EXPECT_THAT(log_.texts(), ElementsAre("2 CUtil::SetFileAccess SID取得失敗 = 1332",
                                        "2 CUtil::SetFileAccess SetFileSecurity失敗 = 50"));
}

}  // namespace
}  // namespace vk::tq
