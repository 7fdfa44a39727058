#include "foundation/access_list.h"

#include <algorithm>
#include <string>

#include "foundation/util.h"
#include "platform/error.h"
#include "support/test_support.h"

namespace vk::tq {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::LogLine;
using testing::ProductTest;

AccessEntry Entry(unsigned char account, std::uint8_t flags = 0, bool is_allow = true) {
  return {{{account}}, account * 100U, flags, is_allow};
}

// What the account 9 is given.
AccessEntry Granted(std::uint8_t flags) { return {{{9}}, kGenericAll, flags, true}; }

TEST(AccessListTest, TheNewEntryStandsBetweenOwnAndInheritedOnes) {
  const std::tuple<std::vector<AccessEntry>, int, std::vector<AccessEntry>> cases[] = {
      {{}, 0, {Granted(kObjectInherit | kContainerInherit)}},
      // In place of the account's own, whatever they are.
      {{Entry(9), Entry(1), Entry(9, kObjectInherit), Entry(9, 0, false)},
       1,
       {Entry(1), Granted(0)}},
      // All behind the first inherited one stay, the account's too.
      {{Entry(1), Entry(9, kInherited), Entry(9), Entry(4)},
       1,
       {Entry(1), Granted(0), Entry(9, kInherited), Entry(9), Entry(4)}}};
  for (const auto& [before, mode, after] : cases) {
    AccessList list;
    list.entries = before;
    const AccessList granted = GrantFullAccess(list, {{9}}, mode);
    EXPECT_EQ(granted.entries, after);
    EXPECT_EQ(GrantFullAccess(granted, {{9}}, mode).entries, after) << "once more";
  }
}

using SetFileAccessTest = ProductTest;

TEST_F(SetFileAccessTest, AFileAndWhatWillBeInAFolderAreGivenToTheGroup) {
  testing::WriteNative(native("status.dat"), "");
  EXPECT_EQ(CUtil::SetFileAccess(path(L"status.dat"), L"users", 1), 1);
  EXPECT_EQ(CUtil::SetFileAccess(temp_.path(), L"users", 0), 1);
  EXPECT_THAT(log_.lines(), IsEmpty());
  testing::WriteNative(native("new"), "");
  AccountId users;
  ASSERT_EQ(LookUpAccount(L"users", users), SecurityStep::kNone);
  for (const wchar_t* file : {L"status.dat", L"new"}) {
    AccessList list;
    ASSERT_EQ(ReadAccessList(path(file), list), SecurityStep::kNone);
    EXPECT_EQ(std::ranges::count(list.entries, users, &AccessEntry::account), 1);
  }
  EXPECT_EQ(CUtil::SetFileAccess(path(L"none"), L"power users", 1), 0);
  EXPECT_EQ(CUtil::SetFileAccess(path(L"none"), nullptr, 1), 0);
  EXPECT_EQ(CUtil::SetFileAccess(L"\\proc\\self\\status", L"users", 1), 0);
  const wchar_t* const function = L"CUtil::SetFileAccess";
  const LogLine no_account{2, 0, function, L"SID取得失敗", {}, 1332};
  EXPECT_THAT(log_.lines(), ElementsAre(no_account, no_account,
                                        LogLine{2, 0, function, L"SetFileSecurity失敗", {}, 50}));
}

}  // namespace
}  // namespace vk::tq
