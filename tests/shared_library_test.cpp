// Links the shared library alone, as the programs of the suite do: what it does not export fails to
// link here.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "foundation/file_lock.h"
#include "foundation/log.h"
#include "foundation/product_folder.h"
#include "foundation/util.h"
#include "jobs/manage_file_access.h"
#include "jobs/nemi_print_info_file_access.h"
#include "platform/path.h"
#include "settings/client_setting.h"
#include "settings/langage_manager.h"
#include "settings/system_setting.h"
#include "storage/crypto.h"
#include "storage/row_array.h"
#include "storage/xml.h"
#include "transport/ftp.h"
#include "transport/shared_printer_communication.h"
#include "transport/util_link.h"
#include "users/enable_users_accessor.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"
#include "users/white_list_file_access.h"

namespace vk::tq {
namespace {

namespace fs = std::filesystem;

class CountingSink : public LogSink, public EventSink {
 public:
  void Write(const LogRecord&) override { ++lines; }
  void Write(unsigned long, std::wstring_view, bool) override { ++events; }
  int lines = 0;
  int events = 0;
};

// A product folder for the process, with nothing in it but the key.
class SharedLibraryTest : public ::testing::Test {
 protected:
  SharedLibraryTest() {
    std::string pattern = (fs::temp_directory_path() / "tq.XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    for (const char* name : {"TQ_COMMON_APPDATA", "TQ_APPDATA", "TQ_VOLUMES"}) {
      setenv(name, folder_.c_str(), 1);
    }
    const fs::path config = folder_ / "ORV-INC/Velkorandia/Tessaloquin/config";
    fs::create_directories(config);
    fs::create_directory(folder_ / "c");
    std::ofstream(config / "data.dat") << "0123456789ABCDEF0123456789abcdef";
    InstallLogSink(sink_);
    InstallEventSink(sink_);
  }
  ~SharedLibraryTest() override {
    InstallLogSink(nullptr);
    InstallEventSink(nullptr);
    fs::remove_all(folder_);
  }

  fs::path folder_;
  const CString path_ = L"C:";
  std::shared_ptr<CountingSink> sink_ = std::make_shared<CountingSink>();
};

template <class Access>
void UseUserData() {
  Access access;
  access.SetServiceDataDirectry();
  access.SetUserID(L"id");
  EXPECT_EQ(access.WriteAll() + access.IsExist(), 2);
  Access read;
  read.SetServiceDataDirectry();
  EXPECT_EQ(read.ReadAll(), 1);
  EXPECT_EQ(read.GetUserID(), L"id");
  access.SetUserFileData(read.GetUserFileData());
  EXPECT_EQ(read.Delete(), 1);
}

TEST_F(SharedLibraryTest, Users) {
  UseUserData<CUserDataFileAccess>();
  UseUserData<CSharedUserDataFileAccess>();
  SECURITY_ATTRIBUTES attributes;
  EXPECT_EQ(CUserDataFileAccess::CreateNullDACL(&attributes), 1);
  HANDLE mutex = CUserDataFileAccess::GetMutex(&attributes);
  ASSERT_NE(mutex, nullptr);
  CUserDataFileAccess::RelMutex(mutex);
  EXPECT_EQ(CUserDataFileAccess::DestroyNullDACL(&attributes), 1);

  CString account;
  EXPECT_EQ(CEnableUsersAccessor::GetInstance(path_)->GetEnableUserType(L"a", L"b", account), 0);

  mutex = GetPrinterWhiteListMutex();
  ASSERT_NE(mutex, nullptr);
  CWhiteListFileAccess list;
  list.Add(L"0", L"a");
  EXPECT_EQ(list.Write(path_) + list.Read(path_), 2);
  EXPECT_EQ(ReleasePrinterWhiteListMutex(mutex), nullptr);
  EXPECT_EQ(list.IsWhitePrinter(L"a", L"", L"", L""), 1);
}

TEST_F(SharedLibraryTest, Jobs) {
  CManageFileAccess job(L"C:\\job");
  job.GetManageData().ManageStatus = 5;
  EXPECT_EQ(job.WriteAll() + job.WriteInformation() + job.WriteStatus(), 3);
  EXPECT_EQ(job.ReadAll() + job.ReadInformation() + job.ReadStatus() + job.IsExist(), 4);
  job.SetManageData(CManageFileAccess(job).GetManageData());
  EXPECT_EQ(job.GetInfoFileName() + job.GetStatusFileName(), L"C:\\job.005");
  EXPECT_EQ(job.Delete(), 1);

  CNemiPrintInfoFileAccess print(L"C:\\print.nif");
  print.SetNemiInfData(CNemiPrintInfoFileAccess(nullptr).GetNemiInfData());
  fs::create_directory(folder_ / "c/to");
  EXPECT_EQ(print.WriteAll() + print.ReadAll() + print.IsExist() + print.Move(L"C:\\to"), 4);
  EXPECT_EQ(CNemiPrintInfoFileAccess(L"C:\\to\\print.xml").Delete(0), 1);
}

TEST_F(SharedLibraryTest, Storage) {
  CCrypto crypto;
  CByteArray cipher;
  crypto.EncryptByTripleDesToByteArray(L"text", cipher);
  EXPECT_EQ(crypto.DecryptByTripleDESToByteArray(cipher), L"text");
  EXPECT_THROW(cipher[-1], CInvalidArgException);
  CString text;
  EXPECT_EQ(crypto.CryptingStringWriter(L"text", L"C:\\a"), 0);
  EXPECT_EQ(crypto.CryptingStringReader(L"C:\\a", text), 0);
  EXPECT_EQ(crypto.DecryptFileMake(L"C:\\a", L"C:\\b"), 0);

  CXml xml;
  RowArray rows;
  rows.m_aRows.Add({new CMapStringToString{{L"a", L"1"}}});
  EXPECT_EQ(xml.CreateXmlString(L"C:\\d.xml", rows, text), 0);
  EXPECT_EQ(xml.InsertXMLValue(L"C:\\d.xml", CStringArray{L"b"}, {L"2"}), 0);
  EXPECT_EQ(xml.UpdateXMLValueText(text, {L"a"}, {L"4"}), 0);
  CMapStringToString map;
  EXPECT_EQ(xml.SelectXMLStringValue(text, CStringArray{L"a"}, map), 0);
  RowArray read;
  EXPECT_EQ(xml.SelectXmlData(xml.CreateXmlString(rows), &read), 0);
  EXPECT_EQ(CXml::GetRowData(&read, 0, L"a"), L"1");
}

// What a subclass of a program's own may use.
struct OpenSystemSetting : CSystemSetting {
  using CSystemSetting::CSystemSetting, CSystemSetting::ReadCSV, CSystemSetting::WriteCSV,
      CSystemSetting::GetDataStr, CSystemSetting::GetDataNum, CSystemSetting::GetSize;
};

TEST_F(SharedLibraryTest, Settings) {
  CClientSetting client = CClientSetting(CClientSetting());
  EXPECT_EQ(client.Read(0), 0);
  client.WritePrimPSIpAddr(L"10.0.0.2");
  client.WriteTrayData(1, L"a", 0, L"b", 0, L"c");
  EXPECT_EQ(client.ReadPrimPSIpAddr(), L"10.0.0.2");
  EXPECT_EQ(client.ReadAddIconRetry(), 100);

  OpenSystemSetting system(L"C:\\system.csv", CStdioFile::modeReadWrite | CStdioFile::modeCreate);
  EXPECT_EQ(system.LoadFile(), 0);
  EXPECT_EQ(system.GetUseTray(1), CSystemSetting(L"", 0).GetUseTray(1));
  system.WriteCSV(L"a,1");
  system.ReadCSV();
  EXPECT_EQ(system.GetSize() + system.GetDataNum(0), 0);
  CString text;
  system.GetDataStr(text, 0);
  EXPECT_TRUE(system.WriteString(L"a\n"));
  EXPECT_FALSE(system.ReadString(text));
  EXPECT_TRUE(system.Close());

  CLangageManager language;
  language.SetLangList();
  EXPECT_FALSE(language.GetLangFileName().empty());
  CLangageManager::GetLangResource(L"a");
}

TEST_F(SharedLibraryTest, Transport) {
  CFtp ftp = CFtp(CFtp());
  EXPECT_EQ(ftp.IsConnect() + ftp.FtpConnect(L"", L"", L"", 1) + ftp.FtpPut(L"C:", L"a"), 0);
  EXPECT_EQ(CFtp::MakeLocalPath(L"C:", L"a"), L"C:\\a");

  CSharedPrinterCommunication printer(L"127.0.0.1", 0, 1, 0);
  printer.SendNemiInfFile(L"C:\\none");
  EXPECT_EQ(printer.GetServerTime(L""), CTime());

  CString name;
  EXPECT_NE(CUtilLink::GetFQDN(L"no address", name), 0);
  int count = 0;
  CUtilLink::FreeDNSList(CUtilLink::AllocDNSList(count));
}

TEST_F(SharedLibraryTest, Foundation) {
  EXPECT_EQ(CUtil::GetSpecialFolderPath(26), CUtil::GetSpecialFolderPath(35));
  EXPECT_EQ(CUtil::GetIniInt(L"a", L"b", L"C:\\none", 7), 7);
  EXPECT_EQ(CUtil::SetFileAccess(L"C:\\none", L"users", 0), 0);
  CStringArray list;
  EXPECT_EQ(CUtil::GetIPList(list) + GetFileList2(L"C:", L"*", list), 2);
  EXPECT_EQ(IsMatchStatusMain(2, 1, 2, -1), 1);
  EXPECT_EQ(ReleaseManageFileMutex(GetManageFileMutex(L"a name")), nullptr);
  EXPECT_EQ(ProbeMutex(L"a name", true), WaitResult::kAcquired);
  EXPECT_EQ(PathToNative(PathFromNative("/a/b")), "/a/b");
  EXPECT_NE(ProductPath(L"\\config"), L"");

  SetLastError(7);
  EXPECT_EQ(GetLastError(), 7U);
  Log4cxxMgr::LogOutDetail(5, 1, L"f", 1, L"text");
  CEventLogMgr::EventLogOut(kEventError, L"text");
  EXPECT_GE(sink_->lines, 1);
  EXPECT_EQ(sink_->events, 1);
}

}  // namespace
}  // namespace vk::tq
