// Links the shared library alone, as the programs of the suite do. The test `abi` knows the names
// that it exports, and tqctl calls them; here stands what only a program's own code would use.
#include <gtest/gtest.h>

#include "jobs/manage_file_access.h"
#include "settings/system_setting.h"
#include "storage/row_array.h"
#include "transport/ftp.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"

namespace vk::tq {
namespace {

// What a subclass may use.
struct OpenSystemSetting : CSystemSetting {
  using CSystemSetting::CSystemSetting, CSystemSetting::ReadCSV, CSystemSetting::WriteCSV,
      CSystemSetting::GetDataStr, CSystemSetting::GetDataNum, CSystemSetting::GetSize;
};

TEST(SharedLibraryTest, TypesCopiesAndMemoryCrossTheBorder) {
  EXPECT_THROW(CByteArray()[-1], CInvalidArgException);
  EXPECT_EQ(CFtp(CFtp()).FtpPut(L"C:", L"a"), 0);
  CManageFileAccess job(L"C:\\job");
  job.SetManageData(CManageFileAccess(job).GetManageData());
  EXPECT_EQ(job.GetInfoFileName(), L"C:\\job.000");
  RowArray rows;
  rows.m_aRows.Add({new CMapStringToString{{L"a", L"1"}}});
  OpenSystemSetting system(L"C:\\none\\system.csv", CStdioFile::modeRead);
  EXPECT_EQ(system.ReadCSV() + system.GetSize() + system.GetDataNum(0), 0);
  CSharedUserDataFileAccess user;
  user.SetUserID(L"id");
  user.SetUserFileData(CSharedUserDataFileAccess(user).GetUserFileData());
  EXPECT_EQ(user.GetUserID(), L"id");
  SECURITY_ATTRIBUTES open;
  EXPECT_EQ(CUserDataFileAccess::CreateNullDACL(&open), 1);
  EXPECT_EQ(CUserDataFileAccess::DestroyNullDACL(&open), 1);
}

}  // namespace
}  // namespace vk::tq
