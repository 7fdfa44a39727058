#include "jobs/manage_file_access.h"

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "foundation/util.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/profile.h"
#include "platform/text.h"
#include "storage/crypto.h"
#include "storage/xml.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

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

  // A job with one comment, at a status.
  void MakeJob(int status, const std::wstring& comment = L"注釈") {
    CManageFileAccess job(Base().c_str());
    job.GetManageData().ManageStatus = status;
    job.GetManageData().comment = comment;
    ASSERT_EQ(1, job.WriteAll());
    log_.Clear();
  }
};

MANAGE_FILE FullRecord() {
  MANAGE_FILE record;
  int n = 0;
  for (CString MANAGE_FILE::*field :
       {&MANAGE_FILE::NotifyName, &MANAGE_FILE::ip, &MANAGE_FILE::printerno, &MANAGE_FILE::userno,
        &MANAGE_FILE::userid, &MANAGE_FILE::accountname, &MANAGE_FILE::printuserno,
        &MANAGE_FILE::usergroupid, &MANAGE_FILE::color, &MANAGE_FILE::number, &MANAGE_FILE::jobid,
        &MANAGE_FILE::comment, &MANAGE_FILE::portname, &MANAGE_FILE::deviceuse,
        &MANAGE_FILE::printername, &MANAGE_FILE::copiedjobid}) {
    record.*field = L" 値<" + std::to_wstring(++n) + L"> & \"髙①～\"\r\n\tend ";
  }
  record.tavocopy = L"1";
  record.tavocopyerr = L"2";
  record.spoolsize = -2147483647;
  return record;
}

TEST_F(ManageFileAccessTest, AnObjectBindsToTheNumberedFileWhateverTheExtension) {
  Put("B.dat", "x");
  Put("B.096");
  for (const wchar_t* name : {L"B", L"B.000", L"B.dat", L"B.tar"}) {
    CManageFileAccess job(Base(name).c_str());
    EXPECT_EQ(Base(L"B.096"), job.GetInfoFileName()) << ToUtf8(name);
    EXPECT_EQ(0, job.GetManageData().ManageStatus);
    EXPECT_EQ(1, job.ReadStatus());
    EXPECT_EQ(96, job.GetManageData().ManageStatus);
    EXPECT_TRUE(job.GetStatusFileName().empty());
  }
}

TEST_F(ManageFileAccessTest, ANameWithoutFilesStandsForB000) {
  CManageFileAccess job(Base().c_str());
  EXPECT_EQ(Base(L"B.000"), job.GetInfoFileName());
  EXPECT_EQ(0, job.IsExist());
  EXPECT_EQ(0, job.WriteStatus());
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{
                  5,
                  120600140,
                  L"CManageFileAccess::WriteManageFileStatus",
                  L"管理ファイル１(ステータス)の書き込み処理で予期せぬエラーが発生しました。",
                  {},
                  2}));
  log_.Clear();
  EXPECT_EQ(1, job.Delete());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{3, 120600040, L"CManageFileAccess::Delete",
                                                L"削除：管理ファイルは存在しません。"}));
  log_.Clear();
  EXPECT_EQ(0, job.ReadAll());
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_THAT(Family(), IsEmpty());
}

TEST_F(ManageFileAccessTest, AFolderThatIsMissingIsAFailure) {
  CManageFileAccess job(path(L"none\\B").c_str());
  EXPECT_EQ(0, job.IsExist());
  EXPECT_EQ(0, job.Delete());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{5,
                                                120600010,
                                                L"CManageFileAccess::IsExist",
                                                L"ファイルの一覧取得に失敗しました。",
                                                {},
                                                3},
                                        LogLine{5,
                                                120600030,
                                                L"CManageFileAccess::Delete",
                                                L"ファイルの一覧取得に失敗しました。",
                                                {},
                                                3}));
}

TEST_F(ManageFileAccessTest, NullGivesNoName) {
  CManageFileAccess job(nullptr);
  EXPECT_TRUE(job.GetInfoFileName().empty());
  EXPECT_EQ(0, job.ReadAll());
  EXPECT_EQ(1, job.Delete());
}

TEST_F(ManageFileAccessTest, TheDefaultsHoldThreeThirties) {
  CManageFileAccess job(Base().c_str());
  MANAGE_FILE record = FullRecord();
  record.FileTime = CTime(7);
  record.LogPrintTimeout = 5;
  job.SetManageData(record);
  EXPECT_EQ(CTime(7), job.GetManageData().FileTime);
  job.InitManageData();
  const MANAGE_FILE& reset = job.GetManageData();
  EXPECT_EQ(CTime(7), reset.FileTime);
  EXPECT_EQ(1, reset.AuthPrintFlag);
  EXPECT_EQ(0, reset.LocalTimeoutUnsentAuthPrint);
  EXPECT_EQ(30, reset.LocalTimeoutUnsentLogPrint);
  EXPECT_EQ(30, reset.AuthPrintTimeout);
  EXPECT_EQ(30, reset.LogPrintTimeout);
  EXPECT_EQ(0, reset.spoolsize);
  EXPECT_TRUE(reset.comment.empty());
}

TEST_F(ManageFileAccessTest, ARecordComesBackWhole) {
  CManageFileAccess writer(Base().c_str());
  writer.SetManageData(FullRecord());
  writer.GetManageData().ManageStatus = 5;
  ASSERT_EQ(1, writer.WriteAll());
  EXPECT_THAT(Family(), ElementsAre("B.005"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, 120600180, L"CManageFileAccess::WriteManageFileInformation",
                                  L"管理ファイル２(情報)を書き込みます。[strDeviceUse:" +
                                      FullRecord().deviceuse + L"]"}));
  log_.Clear();

  CManageFileAccess reader(Base().c_str());
  ASSERT_EQ(1, reader.ReadAll());
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, 0, L"CManageFileAccess::ReadManageFileInformation",
                                  L"管理ファイル２(情報)を読み込みました。", Base(L"B.005")}));
  const MANAGE_FILE& read = reader.GetManageData();
  const MANAGE_FILE wrote = FullRecord();
  EXPECT_EQ(5, read.ManageStatus);
  EXPECT_EQ(GetFileStatus(Base(L"B.005"))->last_write(), read.FileTime);
  EXPECT_EQ(wrote.NotifyName, read.NotifyName);
  EXPECT_EQ(wrote.comment, read.comment);
  EXPECT_EQ(wrote.printername, read.printername);
  EXPECT_EQ(wrote.copiedjobid, read.copiedjobid);
  EXPECT_EQ(L"1", read.tavocopy);
  EXPECT_EQ(L"2", read.tavocopyerr);
  EXPECT_EQ(wrote.spoolsize, read.spoolsize);

  CString xml;
  ASSERT_EQ(0, CCrypto().CryptingStringReader(Base(L"B.005"), xml));
  EXPECT_THAT(ToUtf8(xml),
              ::testing::MatchesRegex(
                  "<\\?xml version=\"1.0\" encoding=\"Shift_JIS\".*<Velkorandia><ManageInfo>"
                  "<NotifyName>.*</NotifyName><ip>.*</tavocopyerr><spoolsize>-2147483647"
                  "</spoolsize></ManageInfo></Velkorandia>\n?"));
}

TEST_F(ManageFileAccessTest, ElementsAreReadAsTheyAre) {
  const struct {
    const wchar_t* xml;
    const wchar_t* tavocopy;
    const wchar_t* tavocopyerr;
    const wchar_t* copiedjobid;
    int spoolsize;
  } kCases[] = {
      {L"", L"0", L"0", L"before", 0},
      {L"<tavocopy>2</tavocopy><tavocopyerr>2</tavocopyerr>", L"0", L"2", L"before", 0},
      {L"<tavocopy>1</tavocopy><tavocopyerr>3</tavocopyerr>", L"1", L"0", L"before", 0},
      {L"<copiedjobid/><spoolsize>12ab</spoolsize>", L"0", L"0", L"", 12},
      {L"<copiedjobid>1st</copiedjobid><copiedjobid>2nd</copiedjobid><spoolsize/>", L"0", L"0",
       L"1st", 0},
      {L"<spoolsize> 99999999999</spoolsize>", L"0", L"0", L"before", 2147483647},
  };
  for (const auto& test : kCases) {
    ASSERT_EQ(0,
              CCrypto().CryptingStringWriter(L"<Velkorandia><ManageInfo>" + std::wstring(test.xml) +
                                                 L"</ManageInfo></Velkorandia>",
                                             Base(L"B.005")));
    CManageFileAccess job(Base().c_str());
    job.GetManageData().copiedjobid = L"before";
    job.GetManageData().spoolsize = 77;
    EXPECT_EQ(1, job.ReadInformation());
    EXPECT_EQ(test.tavocopy, job.GetManageData().tavocopy) << ToUtf8(test.xml);
    EXPECT_EQ(test.tavocopyerr, job.GetManageData().tavocopyerr) << ToUtf8(test.xml);
    EXPECT_EQ(test.copiedjobid, job.GetManageData().copiedjobid) << ToUtf8(test.xml);
    EXPECT_EQ(test.spoolsize, job.GetManageData().spoolsize) << ToUtf8(test.xml);
  }
}

TEST_F(ManageFileAccessTest, TextThatIsNoXmlIsReadAsNothing) {
  ASSERT_EQ(0, CCrypto().CryptingStringWriter(L"no xml", Base(L"B.005")));
  CManageFileAccess job(Base().c_str());
  job.GetManageData().comment = L"before";
  EXPECT_EQ(1, job.ReadAll());
  EXPECT_EQ(L"before", job.GetManageData().comment);
  EXPECT_EQ(L"0", job.GetManageData().tavocopy);
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, 0, L"CManageFileAccess::ReadManageFileInformation",
                                  L"管理ファイル２(情報)を読み込みました。", Base(L"B.005")}));
}

TEST_F(ManageFileAccessTest, TheStatusIsReadWhereverItLies) {
  const std::string ini = "[Information]\r\nManageStatus=42\r\nPrinterIpAddress=10.0.0.1\r\n";
  const struct {
    const char* what;
    const char* extension;
    std::optional<std::string> dat;
    std::optional<std::string> dat2;
    int status;
    int result;
  } kCases[] = {
      {"the extension wins", "097", "5", {}, 97, 1},
      {"a letter extension", "ab7", {}, {}, 0, 1},
      {"one byte", "099", std::string("\xC8"), ini, 200, 1},
      {"the INI form", "099", ini, "[Information]\r\nManageStatus=7\r\n", 42, 1},
      {"an empty file", "099", "", {}, 99, 0},
      {"no key", "099", "xx", {}, 99, 0},
      {"a key of -1", "099", "[Information]\nManageStatus=-1\n", {}, 99, 0},
      {"the second file", "099", {}, ini, 42, 1},
      {"the second file without a key", "099", {}, "[Information]\n", 1, 1},
      {"neither", "099", {}, {}, 99, 1},
  };
  for (const auto& test : kCases) {
    fs::remove_all(native("jobs"));
    Put("B." + std::string(test.extension));
    if (test.dat) Put("B.dat", *test.dat);
    if (test.dat2) Put("B.dat2", *test.dat2);
    CManageFileAccess job(Base().c_str());
    job.GetInfoFileName() = Base(FromUtf8("B." + std::string(test.extension)));
    log_.Clear();
    EXPECT_EQ(test.result, job.ReadStatus()) << test.what;
    EXPECT_EQ(test.status, job.GetManageData().ManageStatus) << test.what;
    const bool is_second = !test.dat && test.dat2 == ini;
    EXPECT_EQ(is_second ? L"10.0.0.1" : L"", job.GetManageData().PrinterIpAddress) << test.what;
    if (test.result == 0) {
      EXPECT_THAT(
          log_.lines(),
          ElementsAre(LogLine{2, 0, L"CManageFileAccess::ReadManageFileStatus",
                              L"管理ファイル１(ステータス) ファイルサイズ：" +
                                  std::to_wstring(test.dat->size())},
                      LogLine{5, 120600310, L"CManageFileAccess::ReadManageFileStatusINI",
                              L"管理ファイル１(ステータス)の管理ステータスの取得に失敗しました。",
                              Base(L"B.dat")}))
          << test.what;
    }
  }
}

TEST_F(ManageFileAccessTest, ADirectoryInPlaceOfTheStatusFileIsAFailure) {
  Put("B.099");
  fs::create_directory(File("B.dat"));
  CManageFileAccess job(Base().c_str());
  EXPECT_EQ(0, job.ReadStatus());
  EXPECT_EQ(99, job.GetManageData().ManageStatus);
  ASSERT_FALSE(log_.lines().empty());
  EXPECT_EQ((LogLine{5, 120600070, L"CManageFileAccess::ReadManageFileStatus",
                     L"管理ファイル１(ステータス)のオープンに失敗しました。filename:" +
                         Base(L"B.dat") + L", errno:" + std::to_wstring(EACCES)}),
            log_.lines().front());
}

TEST_F(ManageFileAccessTest, AReadOfBothGoesOnWhenTheStatusFails) {
  MakeJob(99, L"the comment");
  Put("B.dat", "[Information]\r\n");
  CManageFileAccess job(Base().c_str());
  EXPECT_EQ(0, job.ReadAll());
  EXPECT_EQ(L"the comment", job.GetManageData().comment);
}

TEST_F(ManageFileAccessTest, AStatusFrom95To99AlsoWritesTheStatusFile) {
  MakeJob(94);
  EXPECT_THAT(Family(), ElementsAre("B.094"));
  CManageFileAccess job(Base().c_str());
  MANAGE_FILE& record = job.GetManageData();
  record.ErrorMessage = L"用紙がありません。";
  record.RetryDatetime = L"2026/11/24 10:00:00";
  record.RetryCount = 3;
  record.LocalTimeoutUnsentAuthPrint = 11;
  for (const int flag : {1, 2}) {
    record.ManageStatus = 96;
    record.AuthPrintFlag = flag;
    log_.Clear();
    ASSERT_EQ(1, job.WriteStatus());
    EXPECT_THAT(Family(), ElementsAre("B.096", "B.dat"));
    EXPECT_EQ("[Setting]\r\nAuthPrintFlag=" + std::to_string(flag) +
                  "\r\nLocalTimeoutUnsent=" + (flag == 1 ? "11" : "30") +
                  "\r\nAuthPrintTimeout=30\r\nLogPrintTimeout=30\r\nLogPrintRetryInterval=0\r\n"
                  "LogPrintRetryMaxCount=0\r\n[Information]\r\nManageStatus=96\r\n"
                  "RetryDatetime=2026/11/24 "
                  "10:00:00\r\nRetryCount=3\r\nErrorMessage=用紙がありません。\r\n",
              ReadNative(File("B.dat")));
    const std::wstring function = L"CManageFileAccess::WriteManageFileStatus";
    std::vector<LogLine> lines = log_.lines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(
        (LogLine{2, 0, function,
                 L"管理ファイル1（ステータス）を作成しました。管理ファイル名：" + Base(L"B.dat")}),
        lines[0]);
    EXPECT_EQ(
        (LogLine{
            2, 0, function,
            (flag == 1 ? L"印刷出力方法：1、送信初期状態監視時間にローカル認証プリントの送信初期状"
                         L"態監視時間(86)：11を設定、"
                       : L"印刷出力方法：2、送信初期状態監視時間にローカルログだけプリントの送信初"
                         L"期状態監視時間(81)：30を設定、") +
                std::wstring(L"認証印刷のタイムアウト監視時間(18)：30、ログだけ印刷のタイムアウト監"
                             L"視時間(82)：30、ログだけ印刷のリトライ間隔時間(83)：0、ログだけ印刷"
                             L"の最大リトライ印刷回数(84)：0、管理ステータス：96")}),
        lines[1]);
  }
  // Another status leaves the status file as it is.
  record.ManageStatus = 5;
  const std::string before = ReadNative(File("B.dat"));
  ASSERT_EQ(1, job.WriteStatus());
  EXPECT_THAT(Family(), ElementsAre("B.005", "B.dat"));
  EXPECT_EQ(before, ReadNative(File("B.dat")));
}

TEST_F(ManageFileAccessTest, AStatusFileHoldsEachTextOnOneLine) {
  CManageFileAccess job(Base().c_str());
  job.GetManageData().ManageStatus = 97;
  job.GetManageData().ErrorMessage = L"one\r\ntwo\nthree" + std::wstring(1, L'\0') + L"four";
  ASSERT_EQ(1, job.WriteAll(1));
  EXPECT_THAT(ReadNative(File("B.dat")),
              ::testing::HasSubstr("\r\nErrorMessage=one two three\r\n"));
  CManageFileAccess reader(Base().c_str());
  EXPECT_EQ(1, reader.ReadStatus());
  EXPECT_EQ(97, reader.GetManageData().ManageStatus);
}

TEST_F(ManageFileAccessTest, AStatusOfMoreThanThreeDigitsIsRefused) {
  MakeJob(5);
  for (const int status : {1000, -1}) {
    CManageFileAccess job(Base().c_str());
    job.GetManageData().ManageStatus = status;
    EXPECT_EQ(0, job.WriteStatus());
    EXPECT_THAT(Family(), ElementsAre("B.005"));
  }
}

TEST_F(ManageFileAccessTest, APathThatStandsForNoJobIsNotWritten) {
  Put(".profile", "somebody's");
  for (const std::wstring& name :
       {std::wstring(L".job"), std::wstring(L""), std::wstring(256, L'n')}) {
    CManageFileAccess job(Base(name).c_str());
    job.GetManageData().ManageStatus = 5;
    EXPECT_EQ(0, job.WriteAll()) << ToUtf8(name);
    EXPECT_EQ(0, job.WriteStatus()) << ToUtf8(name);
    EXPECT_EQ(1, job.Delete()) << ToUtf8(name);
    EXPECT_THAT(Family(), ElementsAre(".profile"));
  }
}

TEST_F(ManageFileAccessTest, TheFlagSendsTheReaderToTheStatusFile) {
  CManageFileAccess job(Base().c_str());
  job.GetManageData().ManageStatus = 96;
  ASSERT_EQ(1, job.WriteAll(1));
  EXPECT_THAT(Family(), ElementsAre("B.099", "B.dat"));
  CManageFileAccess reader(Base().c_str());
  EXPECT_EQ(1, reader.ReadStatus());
  EXPECT_EQ(96, reader.GetManageData().ManageStatus);
}

TEST_F(ManageFileAccessTest, ARenameNeverReplacesAnotherFile) {
  MakeJob(1);
  Put("B.096", "somebody else's");
  CManageFileAccess job(Base().c_str());
  job.GetInfoFileName() = Base(L"B.001");
  job.GetManageData().ManageStatus = 96;
  EXPECT_EQ(0, job.WriteStatus());
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{
                  5,
                  120600140,
                  L"CManageFileAccess::WriteManageFileStatus",
                  L"管理ファイル１(ステータス)の書き込み処理で予期せぬエラーが発生しました。",
                  {},
                  183}));
  EXPECT_EQ(Base(L"B.001"), job.GetInfoFileName());
  EXPECT_THAT(Family(), ElementsAre("B.001", "B.096"));
  EXPECT_EQ("somebody else's", ReadNative(File("B.096")));
  // Its own name is no other file.
  job.GetManageData().ManageStatus = 1;
  EXPECT_EQ(1, job.WriteStatus());
}

TEST_F(ManageFileAccessTest, DeleteReportsTheErrorTextOnTheWay) {
  MakeJob(5);
  Put("B.DAT", "[Information]\r\nErrorMessage=\" 紙切れです。【対処】紙を入れ,蓋を閉じる。 \"\r\n");
  Put("B.dat2", "[Information]\r\nErrorMessage=never read\r\n");
  Put("B", "bare");
  Put("Bc.001", "another job");
  Put("b.001", "another job");
  CManageFileAccess job(Base().c_str());
  EXPECT_EQ(1, job.Delete());
  EXPECT_THAT(Family(), ElementsAre("B", "Bc.001", "b.001"));
  EXPECT_THAT(
      log_.events(),
      ElementsAre(Event{0x80003000, L"紙切れです。\r\n\r\n【対処】\r\n紙を入れ\r\n蓋を閉じる。\r\n",
                        true}));
  std::vector<std::wstring> texts;
  for (const LogLine& line : log_.lines()) {
    EXPECT_EQ(2, line.level);
    EXPECT_EQ(120600050, line.number);
    texts.push_back(line.message);
  }
  EXPECT_THAT(texts, ElementsAre(L"管理ファイルを削除しました。管理ファイル = " + Base(L"B.005"),
                                 L"管理ファイルを削除しました。管理ファイル = " + Base(L"B.DAT"),
                                 L"管理ファイルを削除しました。管理ファイル = " + Base(L"B.dat2")));
}

TEST_F(ManageFileAccessTest, ADirectoryInTheFamilyKeepsDeleteFromTouchingAnything) {
  MakeJob(5);
  fs::create_directory(File("B.keep"));
  Put("B.keep/inside", "x");
  Put("B.dat", "[Information]\r\nErrorMessage=text\r\n");
  CManageFileAccess job(Base().c_str());
  EXPECT_EQ(Base(L"B.005"), job.GetInfoFileName());
  EXPECT_EQ(0, job.Delete());
  EXPECT_THAT(Family(), ElementsAre("B.005", "B.dat", "B.keep"));
  EXPECT_THAT(log_.events(), IsEmpty());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{5,
                                                120600060,
                                                L"CManageFileAccess::Delete",
                                                L"削除処理で予期せぬエラーが発生しました。",
                                                {},
                                                5}));
  EXPECT_EQ(1, CManageFileAccess(Base().c_str()).ReadAll()) << "the job is still whole";
}

TEST_F(ManageFileAccessTest, NamesAreTakenToTheLetter) {
  for (const wchar_t* name : {L"a b ", L"印刷 ジョブ", L"a[1-9]", L"*", L"100%d", L".hidden",
                              L"x.y", L"-n", L"ﾊﾝｶｸ'\""}) {
    fs::remove_all(native("jobs"));
    Put("aXb.001");
    Put("a1.001");
    Put("hidden.001");
    Put("x.001");
    const std::vector<std::string> others = Family();
    const std::wstring base = Base(name);
    // A point in the name is taken for an extension unless another one follows.
    const std::wstring bound = base + L".000";
    CManageFileAccess job(bound.c_str());
    job.GetManageData().ManageStatus = 96;
    job.GetManageData().comment = name;
    ASSERT_EQ(1, job.WriteAll()) << ToUtf8(name);
    CManageFileAccess reader(bound.c_str());
    EXPECT_EQ(1, reader.ReadAll()) << ToUtf8(name);
    EXPECT_EQ(96, reader.GetManageData().ManageStatus) << ToUtf8(name);
    EXPECT_EQ(name, reader.GetManageData().comment);
    EXPECT_EQ(1, reader.Delete());
    EXPECT_EQ(others, Family()) << ToUtf8(name);
  }
}

TEST_F(ManageFileAccessTest, APointInTheFolderIsNoExtension) {
  fs::create_directories(native("jobs/dir.d"));
  CManageFileAccess job(path(L"jobs\\dir.d\\name").c_str());
  EXPECT_EQ(path(L"jobs\\dir.d\\name.000"), job.GetInfoFileName());
  job.GetManageData().ManageStatus = 8;
  EXPECT_EQ(1, job.WriteAll());
  EXPECT_TRUE(ExistsNative(native("jobs/dir.d/name.008")));
  // Slashes serve as well as backslashes.
  EXPECT_EQ(path(L"jobs\\dir.d\\name.008"),
            CManageFileAccess(FromUtf8(native("jobs/dir.d/name")).c_str()).GetInfoFileName());
}

TEST_F(ManageFileAccessTest, WhatCannotBeWrittenLeavesTheOldRecord) {
  const std::wstring unwritable = std::wstring(L"a\x0001") + L"b";
  MakeJob(96, L"old");
  const std::string old = ReadNative(File("B.096"));
  const std::string old_status = ReadNative(File("B.dat"));

  CManageFileAccess job(Base().c_str());
  job.GetManageData().ManageStatus = 97;
  job.GetManageData().comment = unwritable;
  EXPECT_EQ(0, job.WriteAll()) << "no XML can hold this comment";
  EXPECT_THAT(log_.lines(5),
              Contains(LogLine{5, 120600180, L"CManageFileAccess::WriteManageFileInformation",
                               L"管理ファイル２(情報)の書き込みに失敗しました。"}));
  log_.Clear();
  job.GetManageData().comment = L"new";
  WriteKeyFile(std::string(34, 'k'));
  EXPECT_EQ(0, job.WriteAll()) << "the key file is too long";
  EXPECT_THAT(
      log_.lines(5),
      ElementsAre(LogLine{5, 120600190, L"CManageFileAccess::WriteManageFileInformation",
                          L"管理ファイル２(情報)の書き込み処理で予期せぬエラーが発生しました。"}));
  EXPECT_THAT(Family(), ElementsAre("B.096", "B.dat"));
  EXPECT_EQ(old, ReadNative(File("B.096")));
  EXPECT_EQ(old_status, ReadNative(File("B.dat")));
}

TEST_F(ManageFileAccessTest, AFullDiskLeavesTheOldRecord) {
  MakeJob(5, L"old");
  const std::string old = ReadNative(File("B.005"));
  ChildProcess child([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{8192, 8192};
    setrlimit(RLIMIT_FSIZE, &limit);
    CManageFileAccess job(Base().c_str());
    job.GetManageData().ManageStatus = 6;
    job.GetManageData().comment = std::wstring(20000, L'x');
    return job.WriteAll();
  });
  EXPECT_EQ(0, child.Wait());
  EXPECT_THAT(Family(), ElementsAre("B.005"));
  EXPECT_EQ(old, ReadNative(File("B.005")));
}

TEST_F(ManageFileAccessTest, AMissingOrUnreadableFileIsReported) {
  MakeJob(5);
  CManageFileAccess job(Base().c_str());
  fs::remove(File("B.005"));
  EXPECT_EQ(0, job.ReadInformation());
  fs::create_directory(File("B.005"));
  EXPECT_EQ(0, job.ReadInformation());
  const std::wstring function = L"CManageFileAccess::ReadManageFileInformation";
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(
          LogLine{5, 120600160, function, L"管理ファイル２(情報)が存在しません。", Base(L"B.005")},
          LogLine{5, 120600150, function, L"管理ファイル２(情報)の復号化に失敗しました。",
                  Base(L"B.005")}));
}

TEST_F(ManageFileAccessTest, WriteInformationKeepsTheName) {
  MakeJob(96);
  CManageFileAccess job(Base().c_str());
  job.GetManageData().ManageStatus = 5;
  job.GetManageData().comment = L"changed";
  EXPECT_EQ(1, job.WriteInformation());
  EXPECT_THAT(Family(), ElementsAre("B.096", "B.dat"));
  CManageFileAccess reader(Base().c_str());
  EXPECT_EQ(1, reader.ReadInformation());
  EXPECT_EQ(L"changed", reader.GetManageData().comment);
}

TEST_F(ManageFileAccessTest, AnOldObjectDoesNotSeeAMoveOfAnother) {
  MakeJob(5);
  CManageFileAccess old(Base().c_str());
  CManageFileAccess mover(Base().c_str());
  mover.GetManageData().ManageStatus = 6;
  ASSERT_EQ(1, mover.WriteStatus());
  EXPECT_EQ(1, old.ReadStatus());
  EXPECT_EQ(5, old.GetManageData().ManageStatus);
  EXPECT_EQ(0, old.ReadInformation());
  EXPECT_EQ(0, old.WriteStatus());
  EXPECT_THAT(Family(), ElementsAre("B.006"));
}

TEST_F(ManageFileAccessTest, WithoutTheLockNothingIsDone) {
  MakeJob(5);
  Gate held;
  Gate done;
  ChildProcess holder([&] {
    HANDLE lock = GetManageFileMutex(L"Global\\KITORA_QTL_JOB_MANAGE");
    held.Open();
    done.Wait();
    ReleaseManageFileMutex(lock);
    return 0;
  });
  ASSERT_TRUE(held.Wait());
  const ScopedLockTimeout shorter(50);
  CManageFileAccess job(Base().c_str());
  job.GetManageData().ManageStatus = 6;
  EXPECT_EQ(0, job.ReadStatus());
  EXPECT_EQ(0, job.WriteStatus());
  EXPECT_EQ(0, job.ReadAll());
  EXPECT_EQ(0, job.WriteAll());
  EXPECT_EQ(0, job.Delete());
  EXPECT_EQ(1, job.IsExist()) << "does not take the lock";
  const LogLine line{5, 120600210, L"CManageFileAccess::GetMutex",
                     L"管理ファイルのロックに失敗しました。"};
  EXPECT_THAT(log_.lines(), ElementsAre(line, line, line, line, line));
  EXPECT_THAT(Family(), ElementsAre("B.005"));
  done.Open();
  EXPECT_EQ(0, holder.Wait());
}

// Two processes fight for one name; each file that existed before is somewhere afterwards.
TEST_F(ManageFileAccessTest, ARaceForOneNameHasOneWinner) {
  for (int round = 0; round < 100; ++round) {
    fs::remove_all(native("jobs"));
    Put("B.001", "one");
    Put("B.002", "two");
    const auto rename = [&](const wchar_t* from) {
      return RenameFile(Base(from), Base(L"B.003")) ? 1 : 0;
    };
    ChildProcess other([&] { return rename(L"B.001"); });
    const int mine = rename(L"B.002");
    ASSERT_EQ(1, mine + other.Wait());
    ASSERT_EQ(2U, Family().size());
    EXPECT_EQ(mine == 1 ? "two" : "one", ReadNative(File("B.003")));
  }
}

}  // namespace
}  // namespace vk::tq::testing
