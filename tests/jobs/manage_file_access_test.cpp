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
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Lines = std::vector<LogLine>;

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

LogLine Line(int level, int number, const wchar_t* operation, const std::wstring& text,
             std::optional<std::wstring> second = {}, std::optional<int> code = {}) {
  return {level, number, CString(L"CManageFileAccess::") + operation, text, second, code};
}

LogLine RenameFailed(int code) {
  return Line(5, 120600140, L"WriteManageFileStatus",
              L"管理ファイル１(ステータス)の書き込み処理で予期せぬエラーが発生しました。", {},
              code);
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

  // An operation's result, and every line that it left.
  void Expect(int expected, const Lines& lines, int result) {
    EXPECT_EQ(expected, result);
    EXPECT_EQ(lines, log_.lines());
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
  Expect(1,
         {Line(2, 120600180, L"WriteManageFileInformation",
               L"管理ファイル２(情報)を書き込みます。[strDeviceUse:" + wrote.deviceuse + L"]")},
         writer.WriteAll());

  CManageFileAccess reader = Job();
  Expect(1,
         {Line(2, 0, L"ReadManageFileInformation", L"管理ファイル２(情報)を読み込みました。",
               Base(L"B.005"))},
         reader.ReadAll());
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
  }
  const wchar_t* const why = L"管理ファイル１(ステータス)の管理ステータスの取得に失敗しました。";
  const LogLine line = Line(5, 120600310, L"ReadManageFileStatusINI", why, Base(L"B.dat"));
  EXPECT_EQ(log_.lines(5), (Lines{line, line})) << "of the last two";

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
  for (const auto& [flag, unsent, told] :
       {std::tuple{1, "11", L"監視時間(86)：11を設定、"}, {2, "30", L"監視時間(81)：30を設定、"}}) {
    record.AuthPrintFlag = flag;
    log_.Clear();
    ASSERT_EQ(1, job.WriteStatus());
    EXPECT_EQ("[Setting]\r\nAuthPrintFlag=" + std::to_string(flag) +
                  "\r\nLocalTimeoutUnsent=" + unsent +
                  "\r\nAuthPrintTimeout=30\r\nLogPrintTimeout=30\r\nLogPrintRetryInterval=0\r\n"
                  "LogPrintRetryMaxCount=0\r\n[Information]\r\nManageStatus=96\r\n"
                  "RetryDatetime=2026/11/24 10:00:00\r\nRetryCount=3\r\n"
                  "ErrorMessage=用紙 があり ません。\r\n",
              ReadNative(File("B.dat")));
    EXPECT_THAT(log_.lines()[1].message, HasSubstr(told));
  }
  EXPECT_EQ(Line(2, 0, L"WriteManageFileStatus",
                 L"管理ファイル1（ステータス）を作成しました。管理ファイル名：" + Base(L"B.dat")),
            log_.lines()[0]);
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
  Expect(0, {RenameFailed(183)}, job.WriteStatus());
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
  Lines lines;
  for (const wchar_t* name : {L"B.005", L"B.DAT", L"B.dat2"}) {
    const CString text = L"管理ファイルを削除しました。管理ファイル = " + Base(name);
    lines.push_back(Line(2, 120600050, L"Delete", text));
  }
  const wchar_t* const why = L"削除処理で予期せぬエラーが発生しました。";
  lines.push_back(Line(5, 120600060, L"Delete", why, {}, 5));
  EXPECT_EQ(0, Job().Delete());
  EXPECT_EQ(lines, log_.lines());
  EXPECT_THAT(Family(), ElementsAre("B", "B.a", "Bc.001", "b.001"));
  const wchar_t* const event = L"紙切れです。\r\n\r\n【対処】\r\n紙を入れ\r\n蓋を閉じる。\r\n";
  EXPECT_THAT(log_.events(), ElementsAre(Event{0x80003000, event, true}));
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
  Expect(0, {}, job.IsExist());
  Expect(0, {}, job.ReadAll());
  Expect(0, {RenameFailed(2)}, job.WriteStatus());
  Expect(1, {Line(3, 120600040, L"Delete", L"削除：管理ファイルは存在しません。")}, job.Delete());
  Expect(0,
         {Line(5, 120600160, L"ReadManageFileInformation", L"管理ファイル２(情報)が存在しません。",
               Base(L"B.000"))},
         job.ReadInformation());
  EXPECT_THAT(Family(), IsEmpty());
  fs::remove_all(native("jobs"));
  Expect(0, {Line(5, 120600030, L"Delete", L"ファイルの一覧取得に失敗しました。", {}, 3)},
         job.Delete());
}

TEST_F(ManageFileAccessTest, WhatCannotBeWrittenLeavesTheOldRecord) {
  MakeJob(5, L"old");
  const std::string old = ReadNative(File("B.005"));
  CManageFileAccess job = Job(L"B", 97);
  job.GetManageData().comment = L"no XML: \x1";
  EXPECT_EQ(0, job.WriteAll());
  EXPECT_EQ(log_.lines(5), (Lines{Line(5, 120600180, L"WriteManageFileInformation",
                                       L"管理ファイル２(情報)の書き込みに失敗しました。")}));
  EXPECT_THAT(Family(), ElementsAre("B.005"));
  EXPECT_EQ(old, ReadNative(File("B.005")));
}

TEST_F(ManageFileAccessTest, WithoutTheLockNothingIsDone) {
  MakeJob(5);
  const LockHolder holder(L"Global\\KITORA_QTL_JOB_MANAGE");
  const ScopedLockTimeout shorter(50);
  CManageFileAccess job = Job(L"B", 6);
  const Lines lines = {Line(5, 120600210, L"GetMutex", L"管理ファイルのロックに失敗しました。")};
  using Access = CManageFileAccess;
  for (const auto operation : std::initializer_list<int (Access::*)()>{
           &Access::ReadStatus, &Access::WriteStatus, &Access::ReadAll, &Access::ReadInformation,
           &Access::WriteInformation, &Access::WriteAll, &Access::Delete}) {
    Expect(0, lines, (job.*operation)());
  }
  Expect(1, {}, job.IsExist());
  EXPECT_THAT(Family(), ElementsAre("B.005"));
}

}  // namespace
}  // namespace vk::tq::testing
