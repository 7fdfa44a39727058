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
using ::testing::ElementsAre;
using Lines = std::vector<LogLine>;

constexpr wchar_t kLock[] = L"KITORA_QTL_JOB_INFO_NEMI";
constexpr wchar_t kNoPath[] = L"ネミ印刷情報ファイルへのパスが未設定です。";
constexpr wchar_t kNoFile[] = L"ネミ印刷情報ファイルが存在しません。";
constexpr wchar_t kNoLock[] = L"ネミ印刷情報ファイルへのロックが取得できませんでした。";

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

LogLine Line(int number, const wchar_t* operation, const CString& text,
             std::optional<int> code = {}) {
  return {5, number, CString(L"CNemiPrintInfoFileAccess::") + operation, text, {}, code};
}
const LogLine kTimeout = Line(100908, L"GetMutex", kNoLock);

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

  // An operation's result, and every line that it left.
  void Expect(int expected, const Lines& lines, int result) {
    EXPECT_EQ(expected, result);
    EXPECT_EQ(lines, log_.lines());
    log_.Clear();
  }
};

TEST_F(NemiPrintInfoFileAccessTest, WhatIsWrittenReadsBackButForTwoFields) {
  NEMI_INF_FILE expected = FullRecord();
  Write(expected);
  CNemiPrintInfoFileAccess reader(Job().c_str());
  reader.GetNemiInfData().NUpName = expected.NUpName = L"kept";
  expected.FilePath = Job();
  Expect(1, {}, reader.ReadAll());
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
  const auto code = static_cast<int>(kErrorAccessDenied);
  // A directory is no text, cannot be removed as a file, and is not replaced.
  CNemiPrintInfoFileAccess directory(path(L"jobs").c_str());
  Expect(0, {Line(100902, L"ReadAll", L"ネミ印刷情報ファイルの復号化に失敗しました。")},
         directory.ReadAll());
  const wchar_t* const removing = L"ネミ印刷情報ファイルの削除処理で予期せぬエラーが発生しました。";
  Expect(0, {Line(100910, L"Delete", removing, code)}, directory.Delete(0));
  CNemiPrintInfoFileAccess file(Job().c_str());
  fs::create_directories(native("sent/job.xml"));
  Expect(0,
         {Line(101006, L"Move", L"ネミ印刷情報ファイルの移動に失敗しました。", code),
          Line(101006, L"Move", L"移動元[" + Job() + L"]"),
          Line(101006, L"Move", L"移動先[" + Sent() + L"\\job.xml]")},
         file.Move(Sent().c_str()));

  file.GetNemiInfData().Comment = L"\x1";  // no character of XML
  EXPECT_EQ(0, file.WriteAll());
  file.GetNemiInfData().Comment = L"new";
  WriteKeyFile(std::string(34, 'k'));
  SetLastError(4711);
  EXPECT_EQ(0, file.WriteAll() + file.ReadAll());
  const wchar_t* const writing = L"ネミ印刷情報ファイルの保存処理で予期せぬエラーが発生しました。";
  const wchar_t* const reading =
      L"ネミ印刷情報ファイルの読み込み処理で予期せぬエラーが発生しました。";
  EXPECT_THAT(log_.lines(5),
              ElementsAre(Line(100822, L"WriteAll", L"ネミ情報の書き込みに失敗しました。"),
                          Line(101007, L"WriteAll", writing, 4711),
                          Line(100909, L"ReadAll", reading, 4711)));
  EXPECT_EQ(L"new", file.GetNemiInfData().Comment);
  EXPECT_EQ(before, ReadNative(native("jobs/job.xml")));
}

TEST_F(NemiPrintInfoFileAccessTest, AMissingPathOrFileIsTold) {
  CNemiPrintInfoFileAccess file(Job().c_str());
  Expect(0, {}, file.IsExist());
  Expect(0, {Line(100903, L"ReadAll", kNoFile)}, file.ReadAll());
  Expect(1, {Line(100905, L"Delete", kNoFile)}, file.Delete(0));
  Expect(0, {Line(101001, L"Move", kNoFile)}, file.Move(Sent().c_str()));
  const LogLine no_folder = Line(101013, L"Move", L"移動先フォルダが存在しません。");
  Expect(0, {no_folder}, file.Move(nullptr));

  const LockHolder holder(kLock);  // no lock is asked for without a path
  CNemiPrintInfoFileAccess nothing(nullptr);
  Expect(0, {Line(100911, L"ReadAll", kNoPath)}, nothing.ReadAll());
  Expect(0, {Line(101012, L"WriteAll", kNoPath)}, nothing.WriteAll());
  Expect(0, {Line(100912, L"Delete", kNoPath)}, nothing.Delete(3));
  Expect(0, {Line(101013, L"Move", kNoPath)}, nothing.Move(L""));
}

TEST_F(NemiPrintInfoFileAccessTest, MoveGivesTheFileTheExtensionXmlAndReplaces) {
  for (const auto& [name, target] : {std::pair<std::string, std::string>("job", "job.xml"),
                                     {"a.b.tmp", "a.b.xml"},
                                     {"文書 1.XML", "文書 1.xml"}}) {
    WriteNative(native("sent/" + target), "old");
    WriteNative(native("jobs/" + name), name);
    // A path of this machine is taken as well.
    CNemiPrintInfoFileAccess file(FromUtf8(native("jobs/" + name)).c_str());
    Expect(1, {}, file.Move(FromUtf8(native("sent")).c_str()));
    EXPECT_EQ(0, file.IsExist()) << "the object still names the old place";
    EXPECT_EQ(name, ReadNative(native("sent/" + target)));
  }
  EXPECT_EQ(3U, ListNative(native("sent")).size());
  Expect(1, {}, CNemiPrintInfoFileAccess(path(L"sent\\job.xml").c_str()).Delete(0));
  EXPECT_FALSE(ExistsNative(native("sent/job.xml")));
}

TEST_F(NemiPrintInfoFileAccessTest, AHeldLockFailsEveryOperationUntilItIsFree) {
  Write(FullRecord());
  const std::string before = ReadNative(native("jobs/job.xml"));
  const LogLine test = Line(100920, L"IsExist", kNoLock);
  LockHolder holder(kLock);
  const ScopedLockTimeout timeout(20);
  CNemiPrintInfoFileAccess file(Job().c_str());
  Expect(1, {kTimeout, test}, file.IsExist());
  Expect(0, {kTimeout, test, kTimeout, Line(100904, L"ReadAll", kNoLock)}, file.ReadAll());
  Expect(0, {kTimeout, Line(101002, L"WriteAll", kNoLock)}, file.WriteAll());
  Expect(0,
         {kTimeout, Line(100921, L"IsExist", kNoLock), kTimeout, test, kTimeout,
          Line(101002, L"Move", kNoLock)},
         file.Move(Sent().c_str()));
  for (const auto& [retry, attempts] : {std::pair{INT_MIN, 1U}, {0, 1U}, {4, 5U}}) {
    Lines lines = {kTimeout, test};
    lines.resize(2 + attempts, kTimeout);
    lines.push_back(Line(100906, L"Delete", kNoLock));
    Expect(0, lines, file.Delete(retry));
  }
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
