#include "jobs/manage_file_access.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/file.h"
#include "platform/text.h"
#include "storage/crypto.h"
#include "storage/xml.h"
#include "support/lock_holder.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kRecord[] = "manage_file_log.txt";

// The elements of a numbered file, in their order there; spoolsize follows them.
#define TQ(name) {L## #name, &MANAGE_FILE::name},
// clang-format off
constexpr std::pair<const wchar_t*, CString MANAGE_FILE::*> kElements[] = {
    TQ(NotifyName) TQ(ip) TQ(printerno) TQ(userno) TQ(userid) TQ(accountname) TQ(printuserno)
    TQ(usergroupid) TQ(color) TQ(number) TQ(jobid) TQ(comment) TQ(portname) TQ(deviceuse)
    TQ(printername) TQ(tavocopy) TQ(copiedjobid) TQ(tavocopyerr)
};
// clang-format on
#undef TQ

MANAGE_FILE FullRecord() {
  MANAGE_FILE record;
  int n = 0;
  for (const auto& [name, field] : kElements) {
    record.*field = L" 値<" + std::to_wstring(++n) + L"> & \"髙①～\"\r\n\tend ";
  }
  record.tavocopy = L"1";
  record.tavocopyerr = L"2";
  record.spoolsize = -2147483647;
  return record;
}

class ManageFileAccessTest : public ProductTest {
 protected:
  ManageFileAccessTest() {
    WriteKeyFile();
    fs::create_directories(native("jobs"));
  }

  std::wstring Base(std::wstring_view name = L"B") const {
    return path(L"jobs\\" + std::wstring(name));
  }
  std::string File(std::string_view name) const { return native("jobs/" + std::string(name)); }
  std::vector<std::string> Family() const { return ListNative(native("jobs")); }
  void Put(std::string_view name, std::string_view bytes = "") const {
    WriteNative(File(name), bytes);
  }
  CManageFileAccess Job(std::wstring_view name = L"B", int status = 0) const {
    CManageFileAccess job(Base(name).c_str());
    job.GetManageData().ManageStatus = status;
    return job;
  }

  // A job with one comment, at a status.
  void MakeJob(int status, const std::wstring& comment = L"注釈") {
    CManageFileAccess job = Job(L"B", status);
    job.GetManageData().comment = comment;
    ASSERT_EQ(1, job.WriteAll());
    log_.Clear();
  }
};

TEST_F(ManageFileAccessTest, AnObjectBindsToTheNumberedFileWhateverTheExtension) {
  Put("B.dat", "x");
  Put("B.096");
  for (const wchar_t* name : {L"B", L"B.dat", L"B.tar"}) {
    EXPECT_EQ(Base(L"B.096"), Job(name).GetInfoFileName()) << ToUtf8(name);
  }
  EXPECT_EQ(Base(L"B.096"), CManageFileAccess(FromUtf8(File("B")).c_str()).GetInfoFileName());
  EXPECT_EQ(Base(L"dir.d\\name.000"), Job(L"dir.d\\name").GetInfoFileName());
  CManageFileAccess nothing(nullptr);
  EXPECT_TRUE(nothing.GetInfoFileName().empty());
  EXPECT_EQ(0, nothing.ReadAll());
}

TEST_F(ManageFileAccessTest, NamesAreTakenToTheLetter) {
  for (const char* other : {"aXb.001", "a1.001", "hidden.001", "x.001"}) Put(other);
  for (const wchar_t* name : {L"印刷 ジョブ ", L"a[1-9]", L"*", L"100%d", L".hidden", L"x.y"}) {
    SCOPED_TRACE(ToUtf8(name));
    // A point in the name is taken for an extension unless another one follows.
    const std::wstring bound = std::wstring(name) + L".000";
    CManageFileAccess job = Job(bound, 96);
    job.GetManageData().comment = name;
    ASSERT_EQ(1, job.WriteAll());
    CManageFileAccess reader = Job(bound);
    EXPECT_EQ(1, reader.ReadAll());
    EXPECT_EQ(name, reader.GetManageData().comment);
    EXPECT_EQ(1, reader.Delete());
    EXPECT_THAT(Family(), ElementsAre("a1.001", "aXb.001", "hidden.001", "x.001"));
  }
}

TEST_F(ManageFileAccessTest, WhatCouldNotBeFoundAgainIsNotWritten) {
  Put(".profile", "somebody's");
  for (const auto& name : {std::wstring(L".job"), std::wstring(), std::wstring(256, L'n')}) {
    CManageFileAccess job = Job(name, 5);
    EXPECT_EQ(0, job.WriteAll()) << ToUtf8(name);
    EXPECT_EQ(0, job.WriteStatus()) << ToUtf8(name);
    EXPECT_EQ(1, job.Delete()) << ToUtf8(name);
    EXPECT_THAT(Family(), ElementsAre(".profile"));
  }
  MakeJob(5);
  for (const int status : {1000, -1}) {
    EXPECT_EQ(0, Job(L"B", status).WriteStatus());
    EXPECT_THAT(Family(), ElementsAre(".profile", "B.005"));
  }
}

TEST_F(ManageFileAccessTest, ARecordComesBackWhole) {
  MANAGE_FILE wrote = FullRecord();
  wrote.ManageStatus = 5;
  CManageFileAccess writer = Job();
  writer.SetManageData(wrote);
  Tell(writer.WriteAll());
  CManageFileAccess reader = Job();
  Tell(reader.ReadAll());
  EXPECT_EQ(told_, Recorded(kRecord));
  const MANAGE_FILE& read = reader.GetManageData();
  CStringArray names;
  CStringArray texts;
  for (const auto& [name, field] : kElements) {
    EXPECT_EQ(wrote.*field, read.*field) << ToUtf8(name);
    names.Add(name);
    texts.Add(wrote.*field);
  }
  EXPECT_EQ(wrote.spoolsize, read.spoolsize);
  EXPECT_EQ(5, read.ManageStatus);

  names.Add(L"spoolsize");
  texts.Add(L"-2147483647");
  CString xml;
  ASSERT_EQ(0, CCrypto().CryptingStringReader(Base(L"B.005"), xml));
  EXPECT_EQ(CXml(L"Velkorandia", L"ManageInfo").CreateXmlString01(names, texts), xml);
  reader.InitManageData();
  EXPECT_EQ(GetFileStatus(Base(L"B.005"))->last_write(), read.FileTime) << "is not reset";
  EXPECT_EQ(L"", read.comment);
}

TEST_F(ManageFileAccessTest, ElementsAreReadAsTheyAre) {
  const std::pair<const wchar_t*, const wchar_t*> kCases[] = {
      {L"</ManageInfo> no XML", L"0 0 before 0"},
      {L"<tavocopy>2</tavocopy><tavocopyerr>2</tavocopyerr>", L"0 2 before 0"},
      {L"<tavocopy>1</tavocopy><tavocopyerr>3</tavocopyerr>", L"1 0 before 0"},
      {L"<copiedjobid/><spoolsize> 99999999999ab</spoolsize>", L"0 0  2147483647"},
  };
  for (const auto& [elements, read] : kCases) {
    const CString text =
        Format(L"<Velkorandia><ManageInfo>%s</ManageInfo></Velkorandia>", elements);
    ASSERT_EQ(0, CCrypto().CryptingStringWriter(text, Base(L"B.005")));
    CManageFileAccess job = Job();
    MANAGE_FILE& record = job.GetManageData();
    record.copiedjobid = L"before";
    record.spoolsize = 77;
    EXPECT_EQ(1, job.ReadInformation());
    EXPECT_EQ(read, record.tavocopy + L" " + record.tavocopyerr + L" " + record.copiedjobid + L" " +
                        std::to_wstring(record.spoolsize));
  }
}

TEST_F(ManageFileAccessTest, TheStatusIsReadWhereverItLies) {
  const char* const ini = "[Information]\r\nManageStatus=42\r\nPrinterIpAddress=10.0.0.1\r\n";
  // The extension, the status file and the second one; the result, the status and the address.
  const std::tuple<const char*, const char*, const char*, const wchar_t*> kCases[] = {
      {"ab7", "5", nullptr, L"1 0 "},
      {"099", "\xC8", ini, L"1 200 "},
      {"099", ini, "[Information]\r\nManageStatus=7\r\n", L"1 42 "},
      {"099", nullptr, ini, L"1 42 10.0.0.1"},
      {"099", nullptr, nullptr, L"1 99 "},
      {"099", "xx", nullptr, L"0 99 "},
      {"099", "[Information]\nManageStatus=-1\n", nullptr, L"0 99 "}};
  for (const auto& [extension, dat, dat2, expected] : kCases) {
    fs::remove_all(native("jobs"));
    Put(std::string("B.") + extension);
    if (dat != nullptr) Put("B.dat", dat);
    if (dat2 != nullptr) Put("B.dat2", dat2);
    CManageFileAccess job = Job();
    job.GetInfoFileName() = Base(L"B." + FromUtf8(extension));
    const int result = job.ReadStatus();
    const MANAGE_FILE& read = job.GetManageData();
    EXPECT_EQ(expected, Format(L"%d %d %s", result, read.ManageStatus, read.PrinterIpAddress));
    Tell(result);
  }
  EXPECT_EQ(told_, Recorded(kRecord));

  // A directory in the file's place. The information is read all the same.
  fs::remove_all(native("jobs"));
  fs::create_directories(File("B.dat"));
  MakeJob(99, L"the comment");
  CManageFileAccess job = Job();
  EXPECT_EQ(0, job.ReadAll());
  EXPECT_EQ(L"the comment", job.GetManageData().comment);
  EXPECT_EQ(120600070, log_.lines().front().number);
}

TEST_F(ManageFileAccessTest, AStatusFrom95To99AlsoWritesTheStatusFile) {
  MakeJob(1);
  CManageFileAccess job = Job();
  MANAGE_FILE& record = job.GetManageData();
  for (const int status : {94, 95, 99, 100}) {
    record.ManageStatus = status;
    ASSERT_EQ(1, job.WriteStatus());
    EXPECT_EQ(ExistsNative(File("B.dat")), status == 95 || status == 99) << status;
    fs::remove(File("B.dat"));
  }
  record.ErrorMessage = L"用紙\r\nがあり\nません。" + std::wstring(1, L'\0') + L"cut";
  record.RetryDatetime = L"2026/11/24 10:00:00";
  record.RetryCount = 3;
  record.LocalTimeoutUnsentAuthPrint = 11;
  record.ManageStatus = 96;
  log_.Clear();
  for (const int flag : {1, 2}) {
    record.AuthPrintFlag = flag;
    Tell(job.WriteStatus());
    told_ += ReadNative(File("B.dat"));
  }
  EXPECT_EQ(told_, Recorded(kRecord));
  // The flag of WriteAll sends the reader to the status file; another status leaves it as it is.
  ASSERT_EQ(1, job.WriteAll(1));
  record.ManageStatus = 5;
  ASSERT_EQ(1, job.WriteAll(1));
  EXPECT_THAT(Family(), ElementsAre("B.099", "B.dat"));
  EXPECT_EQ(1, job.ReadStatus());
  EXPECT_EQ(96, record.ManageStatus);
}

TEST_F(ManageFileAccessTest, ARenameNeverReplacesAnotherFile) {
  MakeJob(1);
  Put("B.096", "somebody else's");
  CManageFileAccess job = Job(L"B", 96);
  job.GetInfoFileName() = Base(L"B.001");
  Tell(job.WriteStatus());
  EXPECT_EQ(told_, Recorded(kRecord));
  EXPECT_EQ("somebody else's", ReadNative(File("B.096")));
}

TEST_F(ManageFileAccessTest, AnOldObjectDoesNotSeeAMoveOfAnother) {
  MakeJob(5);
  CManageFileAccess old = Job();
  ASSERT_EQ(1, Job(L"B", 6).WriteStatus());
  EXPECT_EQ(1, old.ReadStatus());
  EXPECT_EQ(5, old.GetManageData().ManageStatus);
  EXPECT_EQ(0, old.ReadInformation() + old.WriteStatus());
  EXPECT_EQ(1, Job(L"B", 7).WriteInformation()) << "under the present name";
  EXPECT_THAT(Family(), ElementsAre("B.006"));
}

TEST_F(ManageFileAccessTest, DeleteReportsTheErrorTextOnTheWay) {
  MakeJob(5);
  Put("B.DAT", "[Information]\r\nErrorMessage=\" 紙切れです。【対処】紙を入れ,蓋を閉じる。 \"\r\n");
  Put("B.dat2", "[Information]\r\nErrorMessage=never read\r\n");
  for (const char* other : {"B", "Bc.001", "b.001"}) Put(other, "of no job, or another");
  Put("B.a/inside");  // a directory in the family comes last, and stays
  Tell(Job().Delete());
  EXPECT_EQ(told_, Recorded(kRecord));
  EXPECT_THAT(Family(), ElementsAre("B", "B.a", "Bc.001", "b.001"));
}

TEST_F(ManageFileAccessTest, AJobIsFoundInAFolderThatMayNotBeListed) {
  MakeJob(105);
  fs::create_directory(File("B.007"));
  for (const std::string& name : {temp_.native(), File("B.105")}) chmod(name.c_str(), 0777);
  chmod(native("jobs").c_str(), 0333);
  ChildProcess child([&] {
    if (geteuid() == 0 && setuid(65534) != 0) return 98;  // nothing is forbidden to root
    if (Job(L"B", 6).WriteAll() != 1) return 1;
    return Job(L"new", 7).WriteAll() == 1 ? 0 : 2;
  });
  EXPECT_EQ(0, child.Wait());
  chmod(native("jobs").c_str(), 0777);
  EXPECT_THAT(Family(), ElementsAre("B.006", "B.007", "new.007"));
}

TEST_F(ManageFileAccessTest, WhatIsMissingIsReported) {
  CManageFileAccess job = Job();
  Tell(job.IsExist());
  Tell(job.ReadAll());
  Tell(job.WriteStatus());
  Tell(job.Delete());
  Tell(job.ReadInformation());
  EXPECT_THAT(Family(), IsEmpty());
  fs::remove_all(native("jobs"));
  Tell(job.Delete());
  EXPECT_EQ(told_, Recorded(kRecord));
}

TEST_F(ManageFileAccessTest, WhatCannotBeWrittenLeavesTheOldRecord) {
  MakeJob(5, L"old");
  const std::string old = ReadNative(File("B.005"));
  CManageFileAccess job = Job(L"B", 97);
  job.GetManageData().comment = L"no XML: \x1";
  Tell(job.WriteAll());
  EXPECT_EQ(told_, Recorded(kRecord));
  EXPECT_THAT(Family(), ElementsAre("B.005"));
  EXPECT_EQ(old, ReadNative(File("B.005")));
}

TEST_F(ManageFileAccessTest, WithoutTheLockNothingIsDone) {
  MakeJob(5);
  const LockHolder holder(L"Global\\KITORA_QTL_JOB_MANAGE");
  const ScopedLockTimeout shorter(50);
  CManageFileAccess job = Job(L"B", 6);
  using Access = CManageFileAccess;
  for (const auto operation : std::initializer_list<int (Access::*)()>{
           &Access::ReadStatus, &Access::WriteStatus, &Access::ReadAll, &Access::ReadInformation,
           &Access::WriteInformation, &Access::WriteAll, &Access::Delete}) {
    Tell((job.*operation)());
  }
  Tell(job.IsExist());
  EXPECT_EQ(told_, Recorded(kRecord));
  EXPECT_THAT(Family(), ElementsAre("B.005"));
}

}  // namespace
}  // namespace vk::tq::testing
