// Links the shared library alone, as the programs of the suite do: what it does not export fails to
// link here.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "foundation/file_lock.h"
#include "foundation/log.h"
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
void UseUserData(Access& access) {
  access.SetServiceDataDirectry();
  access.SetUserID(L"id");
  access.SetUserAccount(L"account");
  access.SetPrintUserNo(L"1");
  access.SetUserGroupNo(L"2");
  EXPECT_EQ(access.WriteAll(), 1);
  EXPECT_EQ(access.IsExist(), 1);
  Access read;
  read.SetServiceDataDirectry();
  EXPECT_EQ(read.ReadAll(), 1);
  EXPECT_EQ(read.GetUserID() + read.GetUserAccount(), L"idaccount");
  EXPECT_EQ(read.GetPrintUserNo() + read.GetUserGroupNo(), L"12");
  access.SetUserFileData(read.GetUserFileData());
  EXPECT_EQ(read.Delete(), 1);
}

TEST_F(SharedLibraryTest, Users) {
  CUserDataFileAccess user;
  UseUserData(user);
  user.SetUserDataDirectry();
  user.SetDataDirectry(path_.c_str());
  EXPECT_EQ(user.GetDataDirectry(), path_ + L"\\");
  user.SetLastWindowsLogonDateTime(L"t");
  user.SetLastRegistUserTickCount(L"c");
  EXPECT_EQ(user.GetLastWindowsLogonDateTime() + user.GetLastRegistUserTickCount(), L"tc");
  EXPECT_EQ(user.IsExist(0), 0);
  SECURITY_ATTRIBUTES attributes;
  EXPECT_EQ(CUserDataFileAccess::CreateNullDACL(&attributes), 1);
  for (HANDLE mutex : {CUserDataFileAccess::GetMutex(&attributes),
                       CUserDataFileAccess::GetMutex(&attributes, L"another name")}) {
    ASSERT_NE(mutex, nullptr);
    CUserDataFileAccess::RelMutex(mutex);
  }
  EXPECT_EQ(CUserDataFileAccess::DestroyNullDACL(&attributes), 1);

  CSharedUserDataFileAccess shared;
  UseUserData(shared);

  CString account;
  const CEnableUsersAccessor& enabled = *CEnableUsersAccessor::GetInstance();
  EXPECT_EQ(CEnableUsersAccessor::GetInstance(path_)->GetEnableUserType(L"a", L"b", account), 0);
  EXPECT_EQ(enabled.GetTQLoginAccount(L"a", L"b", account), 0);
  EXPECT_EQ(enabled.GetLogOnlyUserAccount(L"a", account), 0);
  EXPECT_EQ(enabled.GetPcLogonQueryUserAccount(L"a", account), 0);

  HANDLE mutex = GetPrinterWhiteListMutex();
  ASSERT_NE(mutex, nullptr);
  CWhiteListFileAccess list;
  list.Add(L"0", L"a");
  EXPECT_EQ(list.Write(path_), 1);
  EXPECT_EQ(list.Read(path_), 1);
  EXPECT_EQ(ReleasePrinterWhiteListMutex(mutex), nullptr);
  EXPECT_EQ(list.IsWhitePrinter(L"a", L"", L"", L""), 1);
}

TEST_F(SharedLibraryTest, Jobs) {
  CManageFileAccess job(L"C:\\job");
  job.InitManageData();
  job.GetManageData().ManageStatus = 5;
  EXPECT_EQ(job.WriteAll() + job.WriteAll(0) + job.WriteInformation() + job.WriteStatus(), 4);
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
  CByteArray plain;
  crypto.EncryptByTripleDesToByteArray(L"text", cipher);
  EXPECT_EQ(crypto.DecryptByTripleDESToByteArray(cipher), L"text");
  crypto.EncryptByTripleDesToByteArrayByte(plain, cipher);
  crypto.DecryptByTripleDESByte(cipher, plain);
  crypto.DecryptByTripleDES(crypto.EncryptByTripleDES(L"text"));
  EXPECT_EQ(crypto.ComputeHash(L"a").size(), 32U);
  CString text;
  EXPECT_EQ(crypto.CryptingStringWriter(L"text", L"C:\\a"), 0);
  EXPECT_EQ(crypto.CryptingStringReader(L"C:\\a", text), 0);
  EXPECT_EQ(crypto.DecryptFileMake(L"C:\\a", L"C:\\b"), 0);
  EXPECT_EQ(crypto.CryptFileMake(L"C:\\b", L"C:\\c"), 0);
  EXPECT_THROW(cipher[-1], CInvalidArgException);

  CXml xml;
  RowArray rows;
  rows.m_aRows.Add({new CMapStringToString{{L"a", L"1"}}});
  EXPECT_EQ(xml.CreateXmlString(L"C:\\d.xml", rows, text), 0);
  EXPECT_EQ(xml.InsertXMLValue(L"C:\\d.xml", L"b", L"2"), 0);
  EXPECT_EQ(xml.InsertXMLValue(L"C:\\d.xml", CStringArray{L"b"}, {L"2"}), 0);
  text = xml.CreateXmlString01({L"a"}, {L"1"});
  EXPECT_EQ(xml.InsertXMLValueText(text, L"b", L"2"), 0);
  EXPECT_EQ(xml.InsertXMLValueText(text, CStringArray{L"c"}, {L"3"}), 0);
  EXPECT_EQ(xml.UpdateXMLValueText(text, {L"a"}, {L"4"}), 0);
  CString value;
  CStringArray values;
  CMapStringToString map;
  EXPECT_EQ(xml.SelectXMLStringValue01(text, L"a", value), 0);
  EXPECT_EQ(xml.SelectXMLStringValue(text, L"QTL", L"a", value), 0);
  EXPECT_EQ(xml.SelectXMLStringValue(text, L"a", values), 0);
  EXPECT_EQ(xml.SelectXMLStringValue(text, CStringArray{L"a"}, map), 0);
  EXPECT_EQ(xml.SelectFirstXMLStringValue(text, {L"a"}, map), 0);
  EXPECT_EQ(xml.SelectXMLStringValue03(text, {L"a"}, values), 0);
  RowArray read;
  EXPECT_EQ(xml.SelectXmlData(xml.CreateXmlString(rows), &read), 0);
  EXPECT_EQ(CXml::GetRowData(&read, 0, L"a"), L"1");
}

struct OpenSystemSetting : CSystemSetting {
  using CSystemSetting::CSystemSetting, CSystemSetting::ReadCSV, CSystemSetting::WriteCSV,
      CSystemSetting::GetDataStr, CSystemSetting::GetDataNum, CSystemSetting::GetSize;
};

TEST_F(SharedLibraryTest, Settings) {
  CClientSetting client = CClientSetting(CClientSetting());
  EXPECT_EQ(client.Read(0), 0);
  client.WriteClientIP(L"10.0.0.1");
  client.WritePrimPSIpAddr(L"10.0.0.2");
  client.WriteScndPSIpAddr(L"10.0.0.3");
  client.WriteSvIpGetAutoFlg(L"1");
  client.WriteNupSetting(L"1");
  client.WriteTonerSaveDisp(1);
  client.WriteFontImageDisp(1);
  client.WriteSpoolingJobSkipTimer(1);
  client.WriteWorkaroundRemnantJob(1);
  client.WriteTrayData(1, L"a", 0, L"b", 0, L"c");
  EXPECT_EQ(client.ReadPrimPSIpAddr() + client.ReadScndPSIpAddr(), L"10.0.0.210.0.0.3");
  EXPECT_EQ(client.ReadSvIpGetAutoFlg() + client.ReadAddIconRetry(), 101);
  CString directory;
  client.ReadEMSDir(directory);

  OpenSystemSetting system(L"C:\\system.csv", CStdioFile::modeReadWrite | CStdioFile::modeCreate);
  wchar_t buffer[8];
  EXPECT_EQ(system.LoadFile(), 0);
  EXPECT_EQ(system.GetUseTray(1), CSystemSetting(L"", 0).GetUseTray(1));
  EXPECT_FALSE(system.GetNameTray(1).empty());
  system.WriteCSV(L"a,1");
  system.ReadCSV();
  EXPECT_EQ(system.GetSize(), 0);
  system.GetDataStr(directory, 0);
  system.GetDataStr(buffer, 8, 0);
  system.GetDataNum(0);
  EXPECT_TRUE(system.WriteString(L"a\n"));
  EXPECT_FALSE(system.ReadString(directory));
  EXPECT_TRUE(system.Close());

  CLangageManager language;
  language.SetLangList();
  language.GetHashTbl(L"C:\\none");
  EXPECT_FALSE(language.GetAppPath().empty() || language.GetLangFileName().empty());
  CLangageManager::GetLangResource(L"a");
  CLangageManager::GetLangResource(1);
  CLangageManager::GetLangResourceDecodeNewLine(L"a");
  CLangageManager::GetLangResourceDecodeNewLine(1);
  CLangageManager::GetDispMessage(L"a");
}

TEST_F(SharedLibraryTest, Transport) {
  CFtp ftp = CFtp(CFtp());
  EXPECT_EQ(ftp.IsConnect() + ftp.FtpConnect(L"", L"", L"", 1), 0);
  EXPECT_EQ(ftp.FtpChangeCurrentDirectory(L"/") + ftp.FtpGet(L"C:", L"a"), 0);
  EXPECT_EQ(ftp.FtpPut(L"C:", L"a") + ftp.FtpPutAndVerify(L"C:", L"a", 1), 0);
  EXPECT_EQ(ftp.FtpSizeVerify(L"C:\\a", L"a") + ftp.FtpSizeVerifyFindFirst(L"", L"a", 1), 0);
  ftp.FtpDisConnect();
  EXPECT_EQ(CFtp::MakeLocalPath(L"C:", L"a"), L"C:\\a");

  CSharedPrinterCommunication printer(L"127.0.0.1", 0, 1, 0);
  printer.SendNemiInfFile(L"C:\\none");
  printer.SendSpoolPrintOut(L"user", L"id", L"client");
  EXPECT_EQ(printer.GetServerTime(L""), CTime());

  CString name;
  CString cache = L"cached";
  std::int64_t time = 0;
  wchar_t address[] = L"10.0.0.1";
  EXPECT_EQ(CUtilLink::ReverseIP(address), L"1.0.0.10.IN-ADDR.ARPA");
  EXPECT_NE(CUtilLink::GetFQDN(L"no address", name), 0);
  EXPECT_NE(CUtilLink::GetFQDN(L"no address", "127.0.0.1", name), 0);
  CUtilLink::ConformFQDN(L"no address", name, cache, 0, 0, time);
  int count = 0;
  CUtilLink::FreeDNSList(CUtilLink::AllocDNSList(count));
}

TEST_F(SharedLibraryTest, Foundation) {
  EXPECT_EQ(CUtil::GetSpecialFolderPath(26), CUtil::GetSpecialFolderPath(35));
  EXPECT_EQ(CUtil::GetIniString(L"a", L"b", L"C:\\none"), L"");
  EXPECT_EQ(CUtil::GetIniInt(L"a", L"b", L"C:\\none", 7), 7);
  EXPECT_EQ(CUtil::ConvertToUnicode(65001, "a"), L"a");
  EXPECT_EQ(CUtil::ConvertToDBParamString(L"a"), L"a");
  CString text = L"C:\\a.b";
  CUtil::GetFileName(text);
  CUtil::GetCsvItem(L"c", text);
  EXPECT_FALSE(text.empty() || CUtil::GetExePath().empty());
  CUtil::AscStringCheck(L"a", 1);
  CUtil::GetExtPos(text);
  EXPECT_EQ(CUtil::SetFileAccess(L"C:\\none", L"users", 0), 0);
  EXPECT_EQ(CUtil::IsWin2000() + CUtil::IsXp() + CUtil::IsVista(), 1) << CUtil::GetOSType();
  CUtil::isExpiredDays(1, 1);
  CUtil::isUserRegistExpired(L"a", L"b", L"1", 1);
  CUtil::GetLogonDateTimeFromLSA();
  int error = 0;
  EXPECT_EQ(CUtil::ExtractPatternString(L"abc", L"(b)", text, error), 1);
  EXPECT_EQ(CUtil::ExtractPatternString(L"abc", L"(b)", text, error, text), 1);
  wchar_t buffer[260] = L"a";
  wchar_t id[260];
  CUtil::SepareteImaglogID(buffer, id);
  CUtil::GetImageLogIDDelimiter(id);
  CUtil::IsWin8orLater(&error);
  CStringArray list;
  CUtil::GetIPList(list);
  GetFileList2(L"C:", L"*", list);
  EXPECT_EQ(IsMatchStatusMain(2, 1, 2, -1), 1);
  EXPECT_EQ(ReleaseManageFileMutex(GetManageFileMutex(L"a name")), nullptr);
  EXPECT_EQ(ProbeMutex(L"a name", true), WaitResult::kAcquired);
  EXPECT_EQ(PathToNative(PathFromNative("/a/b")), "/a/b");

  SetLastError(7);
  EXPECT_EQ(GetLastError(), 7U);
  Log4cxxMgr::LogOutDetail(5, 1, L"f", 1, L"text");
  CEventLogMgr::EventLogOut(kEventError, L"text");
  CEventLogMgr::EventLogOutShared(kEventWarning, L"text");
  WriteProgramLog({});
  EXPECT_GE(sink_->lines, 1);
  EXPECT_EQ(sink_->events, 2);
}

}  // namespace
}  // namespace vk::tq
