// The files of a held job: its numbered file, its status file and its print information. What the
// operations tell stands in job_files_log.txt.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>

#include "jobs/manage_file_access.h"
#include "jobs/nemi_print_info_file_access.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/text.h"
#include "storage/crypto.h"
#include "support/lock_holder.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::PrintToString;
using Job = CManageFileAccess;
using Info = CNemiPrintInfoFileAccess;
using M = MANAGE_FILE;
using N = NEMI_INF_FILE;

// The texts of a numbered file and of print information, in their order there.
// clang-format off
constexpr CString M::*kJobTexts[] = {
    &M::NotifyName, &M::ip, &M::printerno, &M::userno, &M::userid, &M::accountname, &M::printuserno,
    &M::usergroupid, &M::color, &M::number, &M::jobid, &M::comment, &M::portname, &M::deviceuse,
    &M::printername, &M::tavocopy, &M::copiedjobid, &M::tavocopyerr
};
constexpr CString N::*kInfoTexts[] = {
    &N::ID, &N::DocumentName, &N::UserName, &N::NotifyName, &N::PaperSize, &N::PaperSizeName,
    &N::LandScape, &N::PrintKind, &N::NupOperator, &N::NUpName, &N::NUp, &N::Copies,
    &N::CreationDate, &N::Duplex, &N::TonerSaver, &N::Feed, &N::FeedName, &N::Color, &N::PageCount,
    &N::TotalPageCount, &N::ColorPageCount, &N::ColorTotalPageCount, &N::MonoPageCount,
    &N::MonoTotalPageCount, &N::Tumble, &N::SharedServer, &N::SharedPrinterIp, &N::JobId,
    &N::UserId, &N::AccessKey, &N::PrintUserNo, &N::UserGroupNo, &N::ClientName, &N::ClientIp,
    &N::PrinterNo, &N::StatusNo, &N::LocalJobNo, &N::LocalAddJobTime, &N::Emergency, &N::CertFlag,
    &N::CountLimitWarn, &N::ColorLimitWarn, &N::RegistTime, &N::Comment, &N::PortName,
    &N::DeviceUse, &N::ImageLogID
};
// clang-format on

// Each text holds its number, and what is easily lost.
template <class Record>
Record FullRecord(const auto& texts) {
  Record record;
  int number = 0;
  for (const auto text : texts) record.*text = Format(L" 値<%d> & \"髙①～\"\r\n\tend ", ++number);
  return record;
}

class JobFilesTest : public ProductTest {
 protected:
  JobFilesTest() {
    WriteKeyFile();
    for (const char* folder : {"jobs", "sent"}) fs::create_directory(native(folder));
  }

  CString Path(std::wstring_view name = L"B") const { return path(L"jobs\\" + CString(name)); }
  std::string File(std::string_view name) const { return native("jobs/" + std::string(name)); }
  std::vector<std::string> Family() const { return ListNative(native("jobs")); }
  void Put(std::string_view name, std::string_view bytes = "") const {
    WriteNative(File(name), bytes);
  }

  // A job as it is found.
  Job Find(std::wstring_view name = L"B") const { return Job(Path(name).c_str()); }
  // A job that is to be written.
  Job At(int status, std::wstring_view name = L"B", const wchar_t* comment = L"注釈") const {
    Job job = Find(name);
    job.GetManageData().ManageStatus = status;
    job.GetManageData().comment = comment;
    return job;
  }
  void MakeJob(int status) {
    ASSERT_EQ(1, At(status).WriteAll());
    log_.Clear();
  }

  // Adds what an enciphered file holds to what the test tells.
  void TellText(const CString& path) {
    CString text;
    ASSERT_EQ(0, CCrypto().CryptingStringReader(path, text));
    Tell(ToUtf8(text));
  }
  void ExpectTold() const { EXPECT_EQ(told_, Recorded("job_files_log.txt")); }
};

TEST_F(JobFilesTest, AnObjectBindsToTheNumberedFileWhateverTheExtension) {
  Put("B.dat", "x");
  Put("B.096");
  for (const CString& name : {Path(), Path(L"B.dat"), Path(L"B.tar"), FromUtf8(File("B"))}) {
    EXPECT_EQ(Path(L"B.096"), Job(name.c_str()).GetInfoFileName()) << ToUtf8(name);
  }
  EXPECT_EQ(Path(L"dir.d\\name.000"), Find(L"dir.d\\name").GetInfoFileName());
  EXPECT_EQ(L"", Job(nullptr).GetInfoFileName());
  EXPECT_EQ(0, Job(nullptr).ReadAll());
}

TEST_F(JobFilesTest, NamesAreTakenToTheLetter) {
  for (const char* other : {"aXb.001", "a1.001", "hidden.001", "x.001"}) Put(other);
  for (const wchar_t* name : {L"印刷 ジョブ ", L"a[1-9]", L"*", L"100%d", L".hidden", L"x.y"}) {
    SCOPED_TRACE(ToUtf8(name));
    // A point in the name is taken for an extension unless another one follows.
    const CString bound = CString(name) + L".000";
    ASSERT_EQ(1, At(96, bound, name).WriteAll());
    Job reader = Find(bound);
    EXPECT_EQ(1, reader.ReadAll());
    EXPECT_EQ(name, reader.GetManageData().comment);
    EXPECT_EQ(1, reader.Delete());
    EXPECT_THAT(Family(), ElementsAre("a1.001", "aXb.001", "hidden.001", "x.001"));
  }
}

TEST_F(JobFilesTest, WhatCouldNotBeFoundAgainIsNotWritten) {
  Put(".profile", "somebody's");
  for (const CString& name : {CString(L".job"), CString(), CString(256, L'n')}) {
    EXPECT_EQ(0, At(5, name).WriteAll() + At(5, name).WriteStatus()) << ToUtf8(name);
    EXPECT_EQ(1, Find(name).Delete()) << ToUtf8(name);
    EXPECT_THAT(Family(), ElementsAre(".profile"));
  }
  MakeJob(5);
  EXPECT_EQ(0, At(1000).WriteStatus() + At(-1).WriteStatus());
  EXPECT_THAT(Family(), ElementsAre(".profile", "B.005"));
}

TEST_F(JobFilesTest, AJobComesBackWhole) {
  M wrote = FullRecord<M>(kJobTexts);
  wrote.tavocopy = L"1";
  wrote.tavocopyerr = L"2";
  wrote.spoolsize = -2147483647;
  wrote.ManageStatus = 5;
  Job writer = Find();
  writer.SetManageData(wrote);
  Tell(writer.WriteAll());
  TellText(Path(L"B.005"));
  Job reader = Find();
  Tell(reader.ReadAll());
  ExpectTold();
  const M& read = reader.GetManageData();
  for (const auto text : kJobTexts) EXPECT_EQ(wrote.*text, read.*text);
  EXPECT_EQ(wrote.spoolsize, read.spoolsize);
  EXPECT_EQ(5, read.ManageStatus);
  reader.InitManageData();
  EXPECT_EQ(GetFileStatus(Path(L"B.005"))->last_write(), read.FileTime) << "is not reset";
  // A flag is one; a missing element leaves its field as it was, and an empty one clears it.
  reader.GetManageData().ip = reader.GetManageData().comment = L"before";
  const CString text =
      L"<Velkorandia><ManageInfo><tavocopy>2</tavocopy><tavocopyerr>3</tavocopyerr><ip/>"
      L"<spoolsize> 99999999999ab</spoolsize></ManageInfo></Velkorandia>";
  ASSERT_EQ(0, CCrypto().CryptingStringWriter(text, Path(L"B.005")));
  EXPECT_EQ(1, reader.ReadInformation());
  EXPECT_EQ(L"0 0  before 2147483647", Format(L"%s %s %s %s %d", read.tavocopy, read.tavocopyerr,
                                              read.ip, read.comment, read.spoolsize));
}

TEST_F(JobFilesTest, TheStatusIsReadWhereverItLies) {
  const char* const ini = "[Information]\r\nManageStatus=42\r\nPrinterIpAddress=10.0.0.1\r\n";
  // The extension, the status file and the second one.
  const std::tuple<const char*, const char*, const char*> kCases[] = {
      {"ab7", "5", nullptr},
      {"099", "\xC8", ini},
      {"099", ini, "[Information]\r\nManageStatus=7\r\n"},
      {"099", nullptr, ini},
      {"099", nullptr, nullptr},
      {"099", "xx", nullptr},
      {"099", "[Information]\nManageStatus=-1\n", nullptr}};
  for (const auto& [extension, dat, dat2] : kCases) {
    fs::remove_all(native("jobs"));
    Put(std::string("B.") + extension);
    if (dat != nullptr) Put("B.dat", dat);
    if (dat2 != nullptr) Put("B.dat2", dat2);
    Job job = Find();
    job.GetInfoFileName() = Path(L"B." + FromUtf8(extension));
    const int result = job.ReadStatus();
    const M& read = job.GetManageData();
    Tell(ToUtf8(Format(L"%d %d [%s]", result, read.ManageStatus, read.PrinterIpAddress)));
  }
  ExpectTold();
}

TEST_F(JobFilesTest, AStatusFrom95To99AlsoWritesTheStatusFile) {
  MakeJob(1);
  Job job = Find();
  M& record = job.GetManageData();
  for (const int status : {94, 95, 99, 100}) {
    record.ManageStatus = status;
    ASSERT_EQ(1, job.WriteStatus());
    EXPECT_EQ(ExistsNative(File("B.dat")), status == 95 || status == 99) << status;
    fs::remove(File("B.dat"));
  }
  record.ErrorMessage = L"用紙\r\nがあり\nません。" + CString(1, L'\0') + L"cut";
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
  ExpectTold();
  // The flag of WriteAll sends the reader to the status file; another status leaves it as it is.
  ASSERT_EQ(1, job.WriteAll(1));
  record.ManageStatus = 5;
  ASSERT_EQ(1, job.WriteAll(1));
  EXPECT_THAT(Family(), ElementsAre("B.099", "B.dat"));
  EXPECT_EQ(1, job.ReadStatus());
  EXPECT_EQ(96, record.ManageStatus);
}

TEST_F(JobFilesTest, AnOldObjectDoesNotSeeAMoveOfAnother) {
  MakeJob(5);
  Job old = Find();
  ASSERT_EQ(1, At(6).WriteStatus());
  EXPECT_EQ(1, old.ReadStatus());
  EXPECT_EQ(5, old.GetManageData().ManageStatus);
  EXPECT_EQ(0, old.ReadInformation() + old.WriteStatus());
  EXPECT_EQ(1, At(7).WriteInformation()) << "under the present name";
  EXPECT_THAT(Family(), ElementsAre("B.006"));
}

TEST_F(JobFilesTest, DeleteReportsTheErrorTextOnTheWay) {
  MakeJob(5);
  Put("B.DAT", "[Information]\r\nErrorMessage=\" 紙切れです。【対処】紙を入れ,蓋を閉じる。 \"\r\n");
  Put("B.dat2", "[Information]\r\nErrorMessage=never read\r\n");
  for (const char* other : {"B", "Bc.001", "b.001"}) Put(other, "of no job, or another");
  Put("B.a/inside");  // a directory in the family comes last, and stays
  Tell(Find().Delete());
  ExpectTold();
  EXPECT_THAT(Family(), ElementsAre("B", "B.a", "Bc.001", "b.001"));
}

TEST_F(JobFilesTest, AJobIsFoundInAFolderThatMayNotBeListed) {
  MakeJob(105);
  fs::create_directory(File("B.007"));
  for (const std::string& name : {temp_.native(), File("B.105")}) chmod(name.c_str(), 0777);
  chmod(native("jobs").c_str(), 0333);
  ChildProcess child([&] {
    if (geteuid() == 0 && setuid(65534) != 0) return 98;  // nothing is forbidden to root
    return At(6).WriteAll() + At(7, L"new").WriteAll();
  });
  EXPECT_EQ(2, child.Wait());
  chmod(native("jobs").c_str(), 0777);
  EXPECT_THAT(Family(), ElementsAre("B.006", "B.007", "new.007"));
}

TEST_F(JobFilesTest, FailuresLoseNothingOfAJob) {
  MakeJob(5);
  const std::string old = ReadNative(File("B.005"));
  Put("B.096", "somebody else's");
  Job job = At(96);
  job.GetInfoFileName() = Path(L"B.005");
  Tell(job.WriteStatus());
  job.GetManageData().comment = L"no XML: \x1";
  Tell(job.WriteAll());
  EXPECT_THAT(Family(), ElementsAre("B.005", "B.096"));
  EXPECT_EQ(old + "somebody else's", ReadNative(File("B.005")) + ReadNative(File("B.096")));

  Job missing = At(5, L"missing");
  Tell(PrintToString(std::vector{missing.IsExist(), missing.ReadAll(), missing.WriteStatus(),
                                 missing.Delete(), missing.ReadInformation()}));
  fs::remove_all(native("jobs"));
  Tell(missing.Delete());
  ExpectTold();
}

TEST_F(JobFilesTest, InformationComesBackButForTwoFields) {
  N expected = FullRecord<N>(kInfoTexts);
  expected.FilePath = L"C:\\not\\stored";
  const CString path = Path(L"job.xml");
  Info writer(path.c_str());
  writer.SetNemiInfData(expected);
  Tell(writer.WriteAll());
  TellText(path);
  Info reader(path.c_str());
  reader.GetNemiInfData().NUpName = expected.NUpName = L"kept";
  expected.FilePath = path;
  Tell(reader.ReadAll());
  EXPECT_EQ(expected, reader.GetNemiInfData());
  ExpectTold();
  // Missing elements clear their fields.
  expected = N();
  expected.FilePath = path;
  expected.ID = L"1";
  expected.NUpName = L"kept";
  const CString text = L"<Velkorandia><QTL><ID>1</ID><FilePath>x</FilePath></QTL></Velkorandia>";
  ASSERT_EQ(0, CCrypto().CryptingStringWriter(text, path));
  ASSERT_EQ(1, reader.ReadAll());
  EXPECT_EQ(expected, reader.GetNemiInfData());
}

TEST_F(JobFilesTest, FailuresLoseNothingOfTheInformation) {
  const CString sent = path(L"sent");
  Info file(Path(L"job.xml").c_str());
  Tell(PrintToString(std::vector{file.IsExist(), file.ReadAll(), file.Delete(0),
                                 file.Move(sent.c_str()), file.Move(nullptr)}));
  // A directory is no text, cannot be removed as a file, and is not replaced.
  Info directory(path(L"jobs").c_str());
  Tell(PrintToString(std::vector{directory.ReadAll(), directory.Delete(0)}));
  ASSERT_EQ(1, file.WriteAll());
  const std::string before = ReadNative(File("job.xml"));
  fs::create_directories(native("sent/job.xml"));
  Tell(file.Move(sent.c_str()));
  file.GetNemiInfData().Comment = L"\x1";  // no character of XML
  Tell(file.WriteAll());
  file.GetNemiInfData().Comment = L"new";
  WriteKeyFile(std::string(34, 'k'));
  SetLastError(4711);
  Tell(PrintToString(std::vector{file.WriteAll(), file.ReadAll()}));
  EXPECT_EQ(L"new", file.GetNemiInfData().Comment);
  EXPECT_EQ(before, ReadNative(File("job.xml")));
  const LockHolder holder(L"KITORA_QTL_JOB_INFO_NEMI");  // not asked for without a path
  Info nothing(nullptr);
  Tell(PrintToString(
      std::vector{nothing.ReadAll(), nothing.WriteAll(), nothing.Delete(3), nothing.Move(L"")}));
  ExpectTold();
}

TEST_F(JobFilesTest, MoveGivesTheFileTheExtensionXmlAndReplaces) {
  for (const auto& [name, target] : {std::pair<std::string, std::string>("job", "job.xml"),
                                     {"a.b.tmp", "a.b.xml"},
                                     {"文書 1.XML", "文書 1.xml"}}) {
    WriteNative(native("sent/" + target), "old");
    Put(name, name);
    // A path of this machine is taken as well.
    Info file(FromUtf8(File(name)).c_str());
    EXPECT_EQ(1, file.Move(FromUtf8(native("sent")).c_str()));
    EXPECT_EQ(0, file.IsExist()) << "the object still names the old place";
    EXPECT_EQ(name, ReadNative(native("sent/" + target)));
  }
  EXPECT_EQ(1, Info(path(L"sent\\job.xml").c_str()).Delete(0));
  EXPECT_THAT(ListNative(native("sent")), ElementsAre("a.b.xml", "文書 1.xml"));
  EXPECT_EQ("", log_.text());
}

TEST_F(JobFilesTest, WithoutTheLockNothingIsDone) {
  MakeJob(5);
  Put("job.xml", "information");
  const LockHolder job_holder(L"Global\\KITORA_QTL_JOB_MANAGE");
  LockHolder info_holder(L"KITORA_QTL_JOB_INFO_NEMI");
  const ScopedLockTimeout shorter(20);
  Job job = At(6);
  Tell(PrintToString(std::vector{job.IsExist(), job.ReadStatus(), job.WriteStatus(), job.ReadAll(),
                                 job.ReadInformation(), job.WriteInformation(), job.WriteAll(),
                                 job.Delete()}));
  Info file(Path(L"job.xml").c_str());
  Tell(PrintToString(std::vector{file.IsExist(), file.ReadAll(), file.WriteAll(),
                                 file.Move(path(L"sent").c_str())}));
  for (const int retry : {INT_MIN, 0, 4}) Tell(file.Delete(retry));
  ExpectTold();
  EXPECT_THAT(Family(), ElementsAre("B.005", "job.xml"));
  EXPECT_EQ("information", ReadNative(File("job.xml")));
  info_holder.Release();
  EXPECT_EQ(1, file.Delete(INT_MAX));
}

}  // namespace
}  // namespace vk::tq::testing
