// Links the shared library alone, as the programs of the suite do. The test `abi` knows the names
// that it exports; here types, calls and memory cross its border.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "foundation/log.h"
#include "jobs/manage_file_access.h"
#include "settings/system_setting.h"
#include "storage/row_array.h"
#include "storage/xml.h"
#include "transport/ftp.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"

namespace vk::tq {
namespace {

class CountingSink : public LogSink, public EventSink {
 public:
  void Write(const LogRecord&) override { ++lines; }
  void Write(unsigned long, std::wstring_view, bool) override { ++events; }
  int lines = 0;
  int events = 0;
};

// What a subclass of a program's own may use.
struct OpenSystemSetting : CSystemSetting {
  using CSystemSetting::CSystemSetting, CSystemSetting::ReadCSV, CSystemSetting::WriteCSV,
      CSystemSetting::GetDataStr, CSystemSetting::GetDataNum, CSystemSetting::GetSize;
};

TEST(SharedLibraryTest, TypesCallsAndMemoryCrossTheBorder) {
  std::string folder = (std::filesystem::temp_directory_path() / "tq.XXXXXX").string();
  setenv("TQ_COMMON_APPDATA", mkdtemp(folder.data()), 1);
  setenv("TQ_VOLUMES", folder.c_str(), 1);
  std::filesystem::create_directory(folder + "/c");
  const auto sink = std::make_shared<CountingSink>();
  InstallLogSink(sink);
  InstallEventSink(sink);
  CEventLogMgr::EventLogOut(kEventError, L"text");
  EXPECT_EQ(CFtp(CFtp()).FtpPut(L"C:", L"a"), 0);
  EXPECT_GE(sink->lines, 1);
  EXPECT_EQ(sink->events, 1);
  EXPECT_THROW(CByteArray()[-1], CInvalidArgException);

  CManageFileAccess job(L"C:\\job");
  job.GetManageData().ManageStatus = 5;
  EXPECT_EQ(job.WriteAll(), 1);
  job.SetManageData(CManageFileAccess(job).GetManageData());
  EXPECT_EQ(job.GetInfoFileName() + job.GetStatusFileName(), L"C:\\job.005");

  CXml xml;
  RowArray rows, read;
  rows.m_aRows.Add({new CMapStringToString{{L"a", L"1"}}});
  EXPECT_EQ(xml.SelectXmlData(xml.CreateXmlString(rows), &read), 0);
  EXPECT_EQ(CXml::GetRowData(&read, 0, L"a"), L"1");

  OpenSystemSetting system(L"C:\\system.csv", CStdioFile::modeReadWrite | CStdioFile::modeCreate);
  system.WriteCSV(L"a,1");
  system.ReadCSV();
  EXPECT_EQ(system.GetSize() + system.GetDataNum(0), 0);

  CSharedUserDataFileAccess user;
  user.SetUserID(L"id");
  user.SetUserFileData(CSharedUserDataFileAccess(user).GetUserFileData());
  EXPECT_EQ(user.GetUserID(), L"id");
  SECURITY_ATTRIBUTES open;
  EXPECT_EQ(CUserDataFileAccess::CreateNullDACL(&open), 1);
  EXPECT_EQ(CUserDataFileAccess::DestroyNullDACL(&open), 1);
  InstallLogSink(nullptr);
  InstallEventSink(nullptr);
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace vk::tq
