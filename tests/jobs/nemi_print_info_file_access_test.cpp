#include "jobs/nemi_print_info_file_access.h"

#include <climits>
#include <filesystem>
#include <thread>

#include "platform/error.h"
#include "storage/crypto.h"
#include "storage/xml.h"
#include "support/lock_holder.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t kLock[] = L"KITORA_QTL_JOB_INFO_NEMI";
constexpr char kRecord[] = "nemi_print_info_log.txt";

#define TQ(name) {L## #name, &NEMI_INF_FILE::name},
// clang-format off
constexpr std::pair<const wchar_t*, CString NEMI_INF_FILE::*> kElements[] = {
    TQ(ID) TQ(DocumentName) TQ(UserName) TQ(NotifyName) TQ(PaperSize) TQ(PaperSizeName)
    TQ(LandScape) TQ(PrintKind) TQ(NupOperator) TQ(NUpName) TQ(NUp) TQ(Copies) TQ(CreationDate)
    TQ(Duplex) TQ(TonerSaver) TQ(Feed) TQ(FeedName) TQ(Color) TQ(PageCount) TQ(TotalPageCount)
    TQ(ColorPageCount) TQ(ColorTotalPageCount) TQ(MonoPageCount) TQ(MonoTotalPageCount)
    TQ(Tumble) TQ(SharedServer) TQ(SharedPrinterIp) TQ(JobId) TQ(UserId) TQ(AccessKey)
    TQ(PrintUserNo) TQ(UserGroupNo) TQ(ClientName) TQ(ClientIp) TQ(PrinterNo) TQ(StatusNo)
    TQ(LocalJobNo) TQ(LocalAddJobTime) TQ(Emergency) TQ(CertFlag) TQ(CountLimitWarn)
    TQ(ColorLimitWarn) TQ(RegistTime) TQ(Comment) TQ(PortName) TQ(DeviceUse) TQ(ImageLogID)
};
// clang-format on
#undef TQ

NEMI_INF_FILE FullRecord() {
  NEMI_INF_FILE record;
  int n = 0;
  for (const auto& [name, field] : kElements) {
    record.*field = L" 値<" + std::to_wstring(++n) + L"> & \"髙①～\"\tend ";
  }
  record.FilePath = L"C:\\not\\stored";
  return record;
}

class NemiPrintInfoFileAccessTest : public ProductTest {
 protected:
  NemiPrintInfoFileAccessTest() {
    WriteKeyFile();
    for (const char* folder : {"jobs", "sent"}) fs::create_directory(native(folder));
  }

  CString Job() const { return path(L"jobs\\job.xml"); }
  CString Sent() const { return path(L"sent"); }

  void Write(const NEMI_INF_FILE& record) {
    CNemiPrintInfoFileAccess file(Job().c_str());
    file.SetNemiInfData(record);
    ASSERT_EQ(1, file.WriteAll());
  }
};

TEST_F(NemiPrintInfoFileAccessTest, WhatIsWrittenReadsBackButForTwoFields) {
  NEMI_INF_FILE expected = FullRecord();
  Write(expected);
  CNemiPrintInfoFileAccess reader(Job().c_str());
  reader.GetNemiInfData().NUpName = expected.NUpName = L"kept";
  expected.FilePath = Job();
  EXPECT_EQ(1, reader.ReadAll());
  EXPECT_THAT(log_.texts(), ::testing::IsEmpty());
  EXPECT_EQ(expected, reader.GetNemiInfData());
  CStringArray names;
  CStringArray texts;
  for (const auto& [name, field] : kElements) {
    names.Add(name);
    texts.Add(FullRecord().*field);
  }
  CString xml;
  ASSERT_EQ(0, CCrypto().CryptingStringReader(Job(), xml));
  EXPECT_EQ(CXml(L"Velkorandia", L"QTL").CreateXmlString01(names, texts), xml);

  // Missing elements clear their fields.
  expected = NEMI_INF_FILE();
  expected.FilePath = Job();
  expected.ID = L"1";
  expected.NUpName = L"kept";
  const CString text = L"<Velkorandia><QTL><ID>1</ID><FilePath>x</FilePath></QTL></Velkorandia>";
  for (const CString& written : {text, CString(L"no XML")}) {
    ASSERT_EQ(0, CCrypto().CryptingStringWriter(written, Job()));
    ASSERT_EQ(1, reader.ReadAll());
    EXPECT_EQ(expected, reader.GetNemiInfData());
    expected.ID.clear();
  }
}

TEST_F(NemiPrintInfoFileAccessTest, FailuresChangeNeitherTheRecordNorTheFile) {
  Write(FullRecord());
  const std::string before = ReadNative(native("jobs/job.xml"));
  // A directory is no text, cannot be removed as a file, and is not replaced.
  CNemiPrintInfoFileAccess directory(path(L"jobs").c_str());
  Tell(directory.ReadAll());
  Tell(directory.Delete(0));
  CNemiPrintInfoFileAccess file(Job().c_str());
  fs::create_directories(native("sent/job.xml"));
  Tell(file.Move(Sent().c_str()));
  file.GetNemiInfData().Comment = L"\x1";  // no character of XML
  Tell(file.WriteAll());
  file.GetNemiInfData().Comment = L"new";
  WriteKeyFile(std::string(34, 'k'));
  SetLastError(4711);
  Tell(file.WriteAll() + file.ReadAll());
  EXPECT_EQ(told_, Recorded(kRecord));
  EXPECT_EQ(L"new", file.GetNemiInfData().Comment);
  EXPECT_EQ(before, ReadNative(native("jobs/job.xml")));
}

TEST_F(NemiPrintInfoFileAccessTest, AMissingPathOrFileIsTold) {
  CNemiPrintInfoFileAccess file(Job().c_str());
  Tell(file.IsExist());
  Tell(file.ReadAll());
  Tell(file.Delete(0));
  Tell(file.Move(Sent().c_str()));
  Tell(file.Move(nullptr));
  const LockHolder holder(kLock);  // no lock is asked for without a path
  CNemiPrintInfoFileAccess nothing(nullptr);
  Tell(nothing.ReadAll());
  Tell(nothing.WriteAll());
  Tell(nothing.Delete(3));
  Tell(nothing.Move(L""));
  EXPECT_EQ(told_, Recorded(kRecord));
}

TEST_F(NemiPrintInfoFileAccessTest, MoveGivesTheFileTheExtensionXmlAndReplaces) {
  for (const auto& [name, target] : {std::pair<std::string, std::string>("job", "job.xml"),
                                     {"a.b.tmp", "a.b.xml"},
                                     {"文書 1.XML", "文書 1.xml"}}) {
    WriteNative(native("sent/" + target), "old");
    WriteNative(native("jobs/" + name), name);
    // A path of this machine is taken as well.
    CNemiPrintInfoFileAccess file(FromUtf8(native("jobs/" + name)).c_str());
    EXPECT_EQ(1, file.Move(FromUtf8(native("sent")).c_str()));
    EXPECT_EQ(0, file.IsExist()) << "the object still names the old place";
    EXPECT_EQ(name, ReadNative(native("sent/" + target)));
  }
  EXPECT_EQ(3U, ListNative(native("sent")).size());
  EXPECT_EQ(1, CNemiPrintInfoFileAccess(path(L"sent\\job.xml").c_str()).Delete(0));
  EXPECT_FALSE(ExistsNative(native("sent/job.xml")));
  EXPECT_THAT(log_.texts(), ::testing::IsEmpty());
}

TEST_F(NemiPrintInfoFileAccessTest, AHeldLockFailsEveryOperationUntilItIsFree) {
  Write(FullRecord());
  const std::string before = ReadNative(native("jobs/job.xml"));
  LockHolder holder(kLock);
  const ScopedLockTimeout timeout(20);
  CNemiPrintInfoFileAccess file(Job().c_str());
  Tell(file.IsExist());
  Tell(file.ReadAll());
  Tell(file.WriteAll());
  Tell(file.Move(Sent().c_str()));
  for (const int retry : {INT_MIN, 0, 4}) Tell(file.Delete(retry));
  EXPECT_EQ(told_, Recorded(kRecord));
  EXPECT_EQ(before, ReadNative(native("jobs/job.xml")));
  std::thread release([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    holder.Release();
  });
  EXPECT_EQ(1, file.Delete(INT_MAX));
  release.join();
}

}  // namespace
}  // namespace vk::tq::testing
