#include "jobs/nemi_print_info_file_access.h"

#include <unistd.h>

#include <climits>
#include <filesystem>
#include <thread>

#include "platform/error.h"
#include "platform/file.h"
#include "storage/crypto.h"
#include "storage/xml.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr wchar_t kLock[] = L"KITORA_QTL_JOB_INFO_NEMI";
constexpr wchar_t kNoPath[] = L"ネミ印刷情報ファイルへのパスが未設定です。";
constexpr wchar_t kNoFile[] = L"ネミ印刷情報ファイルが存在しません。";
constexpr wchar_t kNoLock[] = L"ネミ印刷情報ファイルへのロックが取得できませんでした。";

// The elements of a file in their order there, and their fields.
struct Element {
  const wchar_t* name;
  CString NEMI_INF_FILE::*field;
};
#define TQ(name) {L## #name, &NEMI_INF_FILE::name},
// clang-format off
constexpr Element kElements[] = {
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
  for (const Element& element : kElements) {
    record.*element.field = L" 値<" + std::to_wstring(++n) + L"> & \"髙①～\"\tend ";
  }
  record.FilePath = L"C:\\not\\stored";
  return record;
}

class NemiPrintInfoFileAccessTest : public ProductTest {
 protected:
  NemiPrintInfoFileAccessTest() {
    WriteKeyFile();
    fs::create_directories(native("jobs"));
    fs::create_directories(native("sent"));
  }

  CString Job() const { return path(L"jobs\\job.xml"); }
  CString Sent() const { return path(L"sent"); }

  void Write(const NEMI_INF_FILE& record, const CString& path) {
    CNemiPrintInfoFileAccess file(path.c_str());
    file.SetNemiInfData(record);
    ASSERT_EQ(1, file.WriteAll());
  }

  static LogLine Line(int number, const wchar_t* operation, const CString& text,
                      std::optional<int> code = {}) {
    return {5, number, CString(L"CNemiPrintInfoFileAccess::") + operation, text, {}, code};
  }
  static LogLine Timeout() { return Line(100908, L"GetMutex", kNoLock); }
};

// Another process that holds the lock until it is told to give it back.
class LockHolder {
 public:
  LockHolder()
      : child_([this] {
          HANDLE mutex = GetManageFileMutex(kLock);
          if (mutex == nullptr) return 1;
          held_.Open();
          released_.Wait(60'000);
          ReleaseManageFileMutex(mutex);
          return 0;
        }) {
    if (!held_.Wait(60'000)) ADD_FAILURE() << "the lock is not held";
  }
  void Release() { released_.Open(); }
  ~LockHolder() {
    Release();  // a lock must not be left abandoned: other tests ask for it
    EXPECT_EQ(0, child_.Wait());
  }

 private:
  Gate held_;
  Gate released_;
  ChildProcess child_;
};

TEST_F(NemiPrintInfoFileAccessTest, WhatIsWrittenReadsBackButForTwoFields) {
  const NEMI_INF_FILE written = FullRecord();
  Write(written, Job());
  CNemiPrintInfoFileAccess reader(Job().c_str());
  EXPECT_EQ(NEMI_INF_FILE(), reader.GetNemiInfData());
  reader.GetNemiInfData().NUpName = L"kept";
  ASSERT_EQ(1, reader.ReadAll());
  NEMI_INF_FILE expected = written;
  expected.NUpName = L"kept";
  expected.FilePath = Job();
  for (const Element& element : kElements) {
    EXPECT_EQ(expected.*element.field, reader.GetNemiInfData().*element.field)
        << ToUtf8(element.name);
  }
  EXPECT_EQ(expected, reader.GetNemiInfData());
  EXPECT_THAT(log_.lines(), IsEmpty());

  const CNemiPrintInfoFileAccess copy = reader;
  CNemiPrintInfoFileAccess assigned(L"");
  assigned = copy;
  EXPECT_EQ(expected, assigned.GetNemiInfData());
  EXPECT_EQ(1, assigned.IsExist());
}

TEST_F(NemiPrintInfoFileAccessTest, ElementsStandInTheOrderOfTheFile) {
  NEMI_INF_FILE record;
  CStringArray names;
  CStringArray values;
  for (const Element& element : kElements) {
    record.*element.field = element.name;
    names.Add(element.name);
    values.Add(element.name);
  }
  record.FilePath = L"not stored";
  Write(record, Job());
  CString xml;
  ASSERT_EQ(0, CCrypto().CryptingStringReader(Job(), xml));
  EXPECT_EQ(CXml(L"Velkorandia", L"QTL").CreateXmlString01(names, values), xml);
}

TEST_F(NemiPrintInfoFileAccessTest, MissingElementsClearTheirFields) {
  const auto put = [&](const CString& text) {
    ASSERT_EQ(0, CCrypto().CryptingStringWriter(text, Job()));
  };
  put(L"<Velkorandia><QTL><ID>1</ID><Unknown>x</Unknown><FilePath>x</FilePath></QTL>"
      L"</Velkorandia>");
  CNemiPrintInfoFileAccess file(Job().c_str());
  file.SetNemiInfData(FullRecord());
  ASSERT_EQ(1, file.ReadAll());
  NEMI_INF_FILE expected;
  expected.ID = L"1";
  expected.NUpName = FullRecord().NUpName;
  expected.FilePath = Job();
  EXPECT_EQ(expected, file.GetNemiInfData());

  put(L"no XML");
  ASSERT_EQ(1, file.ReadAll());
  expected.ID.clear();
  EXPECT_EQ(expected, file.GetNemiInfData());
}

TEST_F(NemiPrintInfoFileAccessTest, FailedReadsLeaveTheRecord) {
  CNemiPrintInfoFileAccess file(path(L"jobs").c_str());  // a directory exists, but is no text
  file.SetNemiInfData(FullRecord());
  EXPECT_EQ(0, file.ReadAll());
  EXPECT_THAT(log_.lines(), ElementsAre(Line(100902, L"ReadAll",
                                             L"ネミ印刷情報ファイルの復号化に失敗しました。")));
  EXPECT_EQ(FullRecord(), file.GetNemiInfData());
}

TEST_F(NemiPrintInfoFileAccessTest, UnusableKeyFileIsAnExceptionAndChangesNothing) {
  Write(FullRecord(), Job());
  const std::string before = ReadNative(native("jobs/job.xml"));
  WriteKeyFile(std::string(34, 'k'));
  CNemiPrintInfoFileAccess file(Job().c_str());
  SetLastError(kErrorInvalidData);
  EXPECT_EQ(0, file.ReadAll());
  EXPECT_EQ(0, file.WriteAll());
  EXPECT_EQ(NEMI_INF_FILE(), file.GetNemiInfData());
  EXPECT_EQ(before, ReadNative(native("jobs/job.xml")));
  const auto lines = log_.lines();
  ASSERT_EQ(2U, lines.size());
  EXPECT_EQ(
      Line(100909, L"ReadAll",
           L"ネミ印刷情報ファイルの読み込み処理で予期せぬエラーが発生しました。", lines[0].code),
      lines[0]);
  EXPECT_EQ(Line(101007, L"WriteAll",
                 L"ネミ印刷情報ファイルの保存処理で予期せぬエラーが発生しました。", lines[1].code),
            lines[1]);
  EXPECT_TRUE(lines[0].code && lines[1].code);
}

TEST_F(NemiPrintInfoFileAccessTest, WriteThatFailsKeepsTheOldFile) {
  const LogLine failure = Line(100822, L"WriteAll", L"ネミ情報の書き込みに失敗しました。");
  Write(FullRecord(), Job());
  const std::string before = ReadNative(native("jobs/job.xml"));
  NEMI_INF_FILE record = FullRecord();
  record.Comment = L"\x1";  // no character of XML
  CNemiPrintInfoFileAccess file(Job().c_str());
  file.SetNemiInfData(record);
  EXPECT_EQ(0, file.WriteAll());
  EXPECT_THAT(log_.lines(5), ElementsAre(failure));
  EXPECT_EQ(before, ReadNative(native("jobs/job.xml")));

  log_.Clear();
  EXPECT_EQ(0, CNemiPrintInfoFileAccess(path(L"none\\job.xml").c_str()).WriteAll());
  EXPECT_EQ(0, CNemiPrintInfoFileAccess(path(L"jobs").c_str()).WriteAll());
  EXPECT_THAT(log_.lines(), ElementsAre(failure, failure));
  EXPECT_THAT(ListNative(native("jobs")), ElementsAre("job.xml"));
}

TEST_F(NemiPrintInfoFileAccessTest, EmptyPathTakesNoLock) {
  const LockHolder holder;
  for (const wchar_t* none : {L"", static_cast<const wchar_t*>(nullptr)}) {
    log_.Clear();
    CNemiPrintInfoFileAccess file(none);
    EXPECT_EQ(0, file.ReadAll());
    EXPECT_EQ(0, file.WriteAll());
    EXPECT_EQ(0, file.Delete(3));
    EXPECT_EQ(0, file.Move(L""));
    EXPECT_THAT(log_.lines(),
                ElementsAre(Line(100911, L"ReadAll", kNoPath), Line(101012, L"WriteAll", kNoPath),
                            Line(100912, L"Delete", kNoPath), Line(101013, L"Move", kNoPath)));
  }
}

TEST_F(NemiPrintInfoFileAccessTest, MissingFileIsToldAndCountsAsDeleted) {
  CNemiPrintInfoFileAccess file(Job().c_str());
  EXPECT_EQ(0, file.IsExist());
  EXPECT_EQ(0, file.ReadAll());
  EXPECT_EQ(1, file.Delete(0));
  EXPECT_EQ(0, file.Move(Sent().c_str()));
  EXPECT_EQ(0, file.Move(path(L"none").c_str()));
  EXPECT_EQ(0, file.Move(nullptr));
  const LogLine no_folder = Line(101013, L"Move", L"移動先フォルダが存在しません。");
  EXPECT_THAT(log_.lines(),
              ElementsAre(Line(100903, L"ReadAll", kNoFile), Line(100905, L"Delete", kNoFile),
                          Line(101001, L"Move", kNoFile), no_folder, no_folder));
}

TEST_F(NemiPrintInfoFileAccessTest, DeleteRemovesTheFileOrTellsWhyNot) {
  for (const int retry : {-1, 0, 7, INT_MAX, INT_MIN}) {
    Write(FullRecord(), Job());
    EXPECT_EQ(1, CNemiPrintInfoFileAccess(Job().c_str()).Delete(retry));
    EXPECT_THAT(ListNative(native("jobs")), IsEmpty());
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_EQ(0, CNemiPrintInfoFileAccess(path(L"jobs").c_str()).Delete(0));
  EXPECT_THAT(log_.lines(),
              ElementsAre(Line(100910, L"Delete",
                               L"ネミ印刷情報ファイルの削除処理で予期せぬエラーが発生しました。",
                               static_cast<int>(kErrorAccessDenied))));
}

TEST_F(NemiPrintInfoFileAccessTest, MoveGivesTheFileTheExtensionXmlAndReplaces) {
  struct Case {
    const wchar_t* name;
    const char* target;
  };
  for (const Case& c :
       {Case{L"job.xml", "job.xml"}, Case{L"job.dat", "job.xml"}, Case{L"job", "job.xml"},
        Case{L"a.b.tmp", "a.b.xml"}, Case{L"文書 1.XML", "文書 1.xml"}, Case{L".xml", ".xml"}}) {
    WriteNative(native("sent/" + std::string(c.target)), "old");
    NEMI_INF_FILE record;
    record.DocumentName = c.name;
    const CString from = path(CString(L"jobs\\") + c.name);
    Write(record, from);
    CNemiPrintInfoFileAccess file(from.c_str());
    ASSERT_EQ(1, file.Move(Sent().c_str())) << c.target;
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_THAT(ListNative(native("jobs")), IsEmpty());
    EXPECT_THAT(ListNative(native("sent")), ElementsAre(c.target));

    CNemiPrintInfoFileAccess moved(path(L"sent\\" + FromUtf8(c.target)).c_str());
    ASSERT_EQ(1, moved.ReadAll());
    EXPECT_EQ(c.name, moved.GetNemiInfData().DocumentName);
    EXPECT_EQ(0, file.ReadAll()) << "the object still names the old place";
    EXPECT_THAT(log_.lines(), ElementsAre(Line(100903, L"ReadAll", kNoFile)));
    EXPECT_EQ(1, moved.Delete(0));
    log_.Clear();
  }
}

TEST_F(NemiPrintInfoFileAccessTest, FailedMoveLeavesThreeLinesAndTheFile) {
  Write(FullRecord(), Job());
  fs::create_directories(native("sent/job.xml"));
  EXPECT_EQ(0, CNemiPrintInfoFileAccess(Job().c_str()).Move(Sent().c_str()));
  EXPECT_THAT(log_.lines(),
              ElementsAre(Line(101006, L"Move", L"ネミ印刷情報ファイルの移動に失敗しました。",
                               static_cast<int>(kErrorAccessDenied)),
                          Line(101006, L"Move", L"移動元[" + Job() + L"]"),
                          Line(101006, L"Move", L"移動先[" + Sent() + L"\\job.xml]")));
  EXPECT_EQ(1, CNemiPrintInfoFileAccess(Job().c_str()).ReadAll());
}

TEST_F(NemiPrintInfoFileAccessTest, SlashesAreTakenAsWell) {
  const CString slashes = FromUtf8(native("jobs/job.dat"));
  Write(FullRecord(), slashes);
  CNemiPrintInfoFileAccess file(slashes.c_str());
  ASSERT_EQ(1, file.ReadAll());
  EXPECT_EQ(path(L"jobs\\job.dat"), file.GetNemiInfData().FilePath);
  EXPECT_EQ(1, file.Move(FromUtf8(native("sent")).c_str()));
  EXPECT_THAT(ListNative(native("sent")), ElementsAre("job.xml"));
}

TEST_F(NemiPrintInfoFileAccessTest, HeldLockFailsEveryOperation) {
  Write(FullRecord(), Job());
  const std::string before = ReadNative(native("jobs/job.xml"));
  const LogLine test = Line(100920, L"IsExist", kNoLock);
  const LockHolder holder;
  const ScopedLockTimeout timeout(20);
  CNemiPrintInfoFileAccess file(Job().c_str());

  EXPECT_EQ(1, file.IsExist());
  EXPECT_THAT(log_.lines(), ElementsAre(Timeout(), test));
  log_.Clear();
  EXPECT_EQ(0, file.ReadAll());
  EXPECT_THAT(log_.lines(),
              ElementsAre(Timeout(), test, Timeout(), Line(100904, L"ReadAll", kNoLock)));
  log_.Clear();
  EXPECT_EQ(0, file.WriteAll());
  EXPECT_THAT(log_.lines(), ElementsAre(Timeout(), Line(101002, L"WriteAll", kNoLock)));
  log_.Clear();
  EXPECT_EQ(0, file.Move(Sent().c_str()));
  EXPECT_THAT(log_.lines(), ElementsAre(Timeout(), Line(100921, L"IsExist", kNoLock), Timeout(),
                                        test, Timeout(), Line(101002, L"Move", kNoLock)));
  EXPECT_EQ(NEMI_INF_FILE(), file.GetNemiInfData());
  EXPECT_EQ(before, ReadNative(native("jobs/job.xml")));
}

TEST_F(NemiPrintInfoFileAccessTest, DeleteMakesItsAttemptsAtAHeldLock) {
  Write(FullRecord(), Job());
  const LockHolder holder;
  const ScopedLockTimeout timeout(20);
  for (const auto& [retry, attempts] : {std::pair{-1, 1}, {0, 1}, {1, 2}, {4, 5}}) {
    log_.Clear();
    EXPECT_EQ(0, CNemiPrintInfoFileAccess(Job().c_str()).Delete(retry));
    std::vector<LogLine> expected(static_cast<std::size_t>(attempts), Timeout());
    expected.insert(expected.begin(), {Timeout(), Line(100920, L"IsExist", kNoLock)});
    expected.push_back(Line(100906, L"Delete", kNoLock));
    EXPECT_EQ(expected, log_.lines()) << retry;
  }
  EXPECT_TRUE(ExistsNative(native("jobs/job.xml")));
}

TEST_F(NemiPrintInfoFileAccessTest, DeleteSucceedsOnceTheLockIsFree) {
  Write(FullRecord(), Job());
  LockHolder holder;
  const ScopedLockTimeout timeout(20);
  std::thread release([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    holder.Release();
  });
  EXPECT_EQ(1, CNemiPrintInfoFileAccess(Job().c_str()).Delete(INT_MAX));
  release.join();
  EXPECT_FALSE(ExistsNative(native("jobs/job.xml")));
  EXPECT_GE(log_.lines().size(), 3U);
  EXPECT_EQ(Timeout(), log_.lines().back());
}

}  // namespace
}  // namespace vk::tq::testing
