#include "jobs/manage_file_access.h"

#include <optional>
#include <stdexcept>

#include "foundation/util.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/profile.h"
#include "platform/text.h"
#include "storage/stored_record.h"

namespace vk::tq {
namespace {

constexpr const wchar_t* kSpoolSizeElement = L"spoolsize";

constexpr const wchar_t* kRecordName = L"ManageInfo";

// The section of the status file that is read.
constexpr const wchar_t* kInformation = L"Information";

constexpr FileLock kJobLock = {
    L"Global\\KITORA_QTL_JOB_MANAGE",
    L"CManageFileAccess::GetMutex",
    120600200,
    L"管理ファイルへのロックが取得できませんでした。",
    120600210,
    L"管理ファイルのロックに失敗しました。",
    false,
};

// The extension that sends the reader to the status file.
constexpr int kStatusInFile = 99;

// What three digits hold.
constexpr int kHighestStatus = 999;

// The path without its extension.
CString BasePath(const CString& file_name) {
  const int point = CUtil::GetExtPos(file_name);
  return point < 0 ? file_name : file_name.substr(0, static_cast<std::size_t>(point));
}

// Whether a job's files can be told from others: a base without a last component would stand for every hidden file of a
// folder, and of one that is too long the extension could not be found again.
void RequireJobName(const CString& base) {
  constexpr std::size_t kRoom = 255;
  const PathPieces pieces = SplitPath(base);
  const std::size_t name_size = pieces.name.size() + pieces.extension.size();
  if (name_size > 0 && name_size <= kRoom && pieces.directory.size() <= kRoom) return;
  SetLastError(name_size == 0 ? kErrorInvalidName : kErrorFileNameTooLong);
  throw std::runtime_error("the path cannot stand for a job");
}

// Whether a path has the form of a file of a job: a base with a last component, and an extension.
bool IsFileOfJob(const CString& path) {
  const CString base = BasePath(path);
  const PathPieces pieces = SplitPath(base);
  return base.size() < path.size() && pieces.name.size() + pieces.extension.size() > 0;
}

// A reader takes the last three characters of a name: no other number can be told from it again.
void RequireStatusInName(int status) {
  if (status >= 0 && status <= kHighestStatus) return;
  SetLastError(kErrorInvalidParameter);
  throw std::runtime_error("the status does not fit three digits");
}

// The number in the last three characters of a file name.
int NumberOfName(const CString& name) {
  return ParseInt(name.size() > 3 ? name.substr(name.size() - 3) : name);
}

// The number of a job's file in a folder that may be used but not listed: each name is asked for.
// 0, with the last error set, when there is none.
int NumberByAsking(const CString& base) {
  for (int number = 0; number <= kHighestStatus; ++number) {
    const auto status = GetFileStatus(Format(L"%s.%03d", base, number));
    if (status && !status->is_directory) return number;
    if (!status && GetLastError() != kErrorFileNotFound) break;
  }
  return 0;
}

bool IsThere(const CString& path) {
  if (GetFileStatus(path)) return true;
  if (IsPassing(GetLastError())) throw std::runtime_error("a status file cannot be asked for");
  return false;
}

// A status file that may not be read is like an empty one, but not one that could not be read for
// the moment: a default would become the job's status, and an error text would go unreported.
Profile ReadStatusFile(const CString& path) {
  auto text = ReadProfileText(path);
  if (!text && IsPassing(GetLastError())) throw std::runtime_error("a status file cannot be read");
  return Profile::FromText(std::move(text).value_or(CString()));
}

constexpr const wchar_t* kReadStatus = L"CManageFileAccess::ReadManageFileStatus";

void LogStatusRead(const wchar_t* function, int line, int status, const CString& path) {
  Log4cxxMgr::LogOutDetail(
      2, 0, function, line,
      Format(L"管理ファイル１(ステータス)を読み込みました。管理ステータス：%d", status), path);
}

// The status file in its short form: exactly one byte, which is the status. 0 when it is not of
// that form.
int ReadOneByteStatus(const CString& path, std::int32_t& status) {
  InputFile file;
  if (!file.Open(path)) {
    Log4cxxMgr::LogOutDetail(
        5, 120600070, kReadStatus, __LINE__,
        Format(L"管理ファイル１(ステータス)のオープンに失敗しました。filename:%s, errno:%d", path,
               ErrnoFromError(GetLastError())));
    return 0;
  }
  const auto info = file.Status();
  const std::uint64_t size = info ? info->size : 0;
  unsigned char byte = 0;
  const auto got = size == 1 ? file.Read(&byte, 1) : std::nullopt;
  file.Close();  // no writer is to wait for a line of the log
  if (size != 1) {
    Log4cxxMgr::LogOutDetail(2, 0, kReadStatus, __LINE__,
                             Format(L"管理ファイル１(ステータス) ファイルサイズ：%d", size));
    return 0;
  }
  if (!got || *got != 1) {
    Log4cxxMgr::LogOutDetail(
        5, 120600090, kReadStatus, __LINE__,
        Format(L"管理ファイル１(ステータス)の読み込みに失敗しました errno = %d",
               got ? 0 : ErrnoFromError(GetLastError())),
        path);
    return got ? 1 : 0;
  }
  status = byte;
  LogStatusRead(kReadStatus, __LINE__, status, path);
  return 1;
}

bool IsUnsentOfAuthPrint(const MANAGE_FILE& record) { return record.AuthPrintFlag == 1; }

std::int32_t LocalTimeoutUnsent(const MANAGE_FILE& record) {
  return IsUnsentOfAuthPrint(record) ? record.LocalTimeoutUnsentAuthPrint
                                     : record.LocalTimeoutUnsentLogPrint;
}

CString ValueOf(const StatusFileKey& key, const MANAGE_FILE& record) {
  if (key.text != nullptr) return OnOneLine(record.*key.text);
  return Format(L"%d", key.number != nullptr ? record.*key.number : LocalTimeoutUnsent(record));
}

// One sentence a line, and the remedy section set apart.
CString EventText(CString message) {
  message = Trim(message);
  ReplaceAll(message, L"。", L"。\r\n");
  ReplaceAll(message, L",", L"\r\n");
  ReplaceAll(message, L"【対処】", L"\r\n【対処】\r\n");
  return message;
}

void ReportErrorMessage(const CString& status_file) {
  const CString message =
      ReadStatusFile(status_file).GetString(kInformation, L"ErrorMessage", L"", 512);
  if (!message.empty()) CEventLogMgr::EventLogOutShared(kEventWarning, EventText(message));
}

bool IsStatusFileName(const CString& name) {
  return name.size() >= 4 && EqualsNoCase(name.substr(name.size() - 4), L".dat");
}

void RemoveFamily(const CString& folder, const std::vector<FoundFile>& family) {
  for (const FoundFile& file : family) {
    const CString path = folder + file.name;
    if (IsStatusFileName(file.name)) ReportErrorMessage(path);
    if (!RemoveFile(path)) throw std::runtime_error("a file of the job cannot be removed");
    Log4cxxMgr::LogOutDetail(2, 120600050, L"CManageFileAccess::Delete", __LINE__,
                             Format(L"管理ファイルを削除しました。管理ファイル = %s", path));
  }
}

// Where the files of a base path lie, with a separator at its end.
CString FolderOf(const CString& base) {
  const PathPieces pieces = SplitPath(base);
  if (pieces.directory.empty() && pieces.drive.empty()) return L".\\";
  return CString(pieces.drive) + CString(pieces.directory);
}

void Normalise(CString& value, std::wstring_view allowed) {
  if (value.size() != 1 || allowed.find(value[0]) == std::wstring_view::npos) value = L"0";
}

}  // namespace

CManageFileAccess::CManageFileAccess(const wchar_t* name) {
  if (name == nullptr) return;
  info_file_name_ = InternalPath(name);
  Bind();
  InitManageData();
}

void CManageFileAccess::Bind() {
  const CString base = BasePath(info_file_name_);
  const auto first = FindFirstOfFamily(base);
  int number = first ? NumberOfName(first->name) : 0;
  if (!first && GetLastError() == kErrorAccessDenied) number = NumberByAsking(base);
  is_bound_ = first || !IsPassing(GetLastError());
  info_file_name_ = Format(L"%s.%03d", base, number);
}

void CManageFileAccess::RequireBinding() {
  if (!is_bound_) Bind();
  // Under the name of a new job a second numbered file would come to be.
  if (!is_bound_) throw std::runtime_error("the files of the job cannot be searched");
}

CManageFileAccess::~CManageFileAccess() { InitManageData(); }

void CManageFileAccess::InitManageData() {
  const CTime file_time = record_.FileTime;
  record_ = MANAGE_FILE();
  record_.FileTime = file_time;
}

HANDLE CManageFileAccess::GetMutex(SECURITY_ATTRIBUTES* attributes) {
  return TakeFileLock(kJobLock, attributes);
}

template <class Work>
int CManageFileAccess::RunWithJobLock(const ExceptionLine& line, const Work& work) {
  return RunLocked([this](SECURITY_ATTRIBUTES* attributes) { return GetMutex(attributes); }, 0,
                   line, work);
}

int CManageFileAccess::IsExist() {
  constexpr const wchar_t* kFunction = L"CManageFileAccess::IsExist";
  return RunGuarded(
      {5, 120600020, kFunction, L"管理ファイルの存在確認処理で予期せぬエラーが発生しました。",
       Detail::kNothing},
      [&](int& result) {
        // The numbered file is nearly always there, and asking for it needs no search.
        const bool is_there = IsFileOfJob(info_file_name_) && GetFileStatus(info_file_name_);
        if (is_there || FindFirstOfFamily(BasePath(info_file_name_))) {
          result = 1;
        } else if (GetLastError() != kErrorFileNotFound) {
          Log4cxxMgr::LogOutDetail(5, 120600010, kFunction, __LINE__,
                                   static_cast<int>(GetLastError()),
                                   L"ファイルの一覧取得に失敗しました。");
        }
      });
}

int CManageFileAccess::Delete() {
  constexpr const wchar_t* kFunction = L"CManageFileAccess::Delete";
  std::optional<ErrorCode> search_error;
  const int result = RunWithJobLock(
      {5, 120600060, kFunction, L"削除処理で予期せぬエラーが発生しました。"}, [&](int& removed) {
        const CString base = BasePath(info_file_name_);
        if (const auto family = FindFamily(base)) {
          RemoveFamily(FolderOf(base), *family);
          removed = 1;
        } else {
          search_error = GetLastError();
        }
      });
  // What the search gave is reported when the lock is free again.
  if (search_error == kErrorFileNotFound) {
    Log4cxxMgr::LogOutDetail(3, 120600040, kFunction, __LINE__,
                             L"削除：管理ファイルは存在しません。");
    return 1;
  }
  if (search_error) {
    Log4cxxMgr::LogOutDetail(5, 120600030, kFunction, __LINE__, static_cast<int>(*search_error),
                             L"ファイルの一覧取得に失敗しました。");
  }
  return result;
}

int CManageFileAccess::ReadStatus() {
  return RunWithJobLock({4, 0, L"CManageFileAccess::ReadStatus",
                         L"管理ファイル１(ステータス)の読み込み処理で例外が発生しました。"},
                        [&](int& result) { result = ReadEitherStatus(); });
}

int CManageFileAccess::WriteStatus() {
  return RunWithJobLock({4, 0, L"CManageFileAccess::WriteStatus",
                         L"管理ファイル１(ステータス)の書き込み処理で例外が発生しました。"},
                        [&](int& result) { result = WriteManageFileStatus(); });
}

int CManageFileAccess::ReadInformation() {
  return RunWithJobLock({4, 0, L"CManageFileAccess::ReadInformation",
                         L"管理ファイル２(情報)の読み込み処理で例外が発生しました。"},
                        [&](int& result) { result = ReadManageFileInformation(); });
}

int CManageFileAccess::WriteInformation() {
  return RunWithJobLock({4, 0, L"CManageFileAccess::WriteInformation",
                         L"管理ファイル２(情報)の書き込み処理で例外が発生しました。"},
                        [&](int& result) { result = WriteManageFileInformation(); });
}

int CManageFileAccess::ReadAll() {
  return RunWithJobLock({4, 0, L"CManageFileAccess::ReadAll",
                         L"管理ファイル(ステータス、情報)の読み込み処理で例外が発生しました。"},
                        [&](int& result) {
                          result = IsExist();
                          if (result != 1) return;
                          result = ReadEitherStatus();
                          if (ReadManageFileInformation() == 0) result = 0;
                        });
}

int CManageFileAccess::WriteAll() { return WriteAll(0); }

int CManageFileAccess::WriteAll(int flag) {
  return RunWithJobLock({4, 0, L"CManageFileAccess::WriteAll",
                         L"管理ファイル(ステータス、情報)の書き込み処理で例外が発生しました。"},
                        [&](int& result) {
                          result = WriteManageFileInformation();
                          if (result != 0) result = WriteManageFileStatus(flag);
                        });
}

int CManageFileAccess::ReadEitherStatus() {
  const int result = ReadManageFileStatus();
  return result != 0 ? result : ReadManageFileStatusINI();
}

int CManageFileAccess::ReadManageFileStatus() {
  CString path;
  return RunGuarded({5, 120600100, kReadStatus,
                     L"管理ファイル１(ステータス)の読み込み処理で予期せぬエラーが発生しました。",
                     Detail::kPath, &path},
                    [&](int& result) {
                      RequireBinding();
                      record_.ManageStatus = NumberOfName(info_file_name_);
                      result = 1;
                      if (record_.ManageStatus != kStatusInFile) return;
                      const CString base = BasePath(info_file_name_);
                      path = base + L".dat";
                      if (IsThere(path)) {
                        result = ReadOneByteStatus(path, record_.ManageStatus);
                        return;
                      }
                      path = base + L".dat2";
                      if (!IsThere(path)) return;
                      const Profile profile = ReadStatusFile(path);
                      record_.ManageStatus = profile.GetInt(kInformation, L"ManageStatus", 1);
                      record_.PrinterIpAddress =
                          profile.GetString(kInformation, L"PrinterIpAddress", L"", 1024);
                      LogStatusRead(kReadStatus, __LINE__, record_.ManageStatus, path);
                    });
}

int CManageFileAccess::ReadManageFileStatusINI() {
  constexpr const wchar_t* kFunction = L"CManageFileAccess::ReadManageFileStatusINI";
  CString path;
  return RunGuarded({5, 120600320, kFunction,
                     L"管理ファイル１(ステータス)の読み込み処理で予期せぬエラーが発生しました。",
                     Detail::kPath, &path},
                    [&](int& result) {
                      RequireBinding();
                      record_.ManageStatus = NumberOfName(info_file_name_);
                      result = 1;
                      if (record_.ManageStatus != kStatusInFile) return;
                      const CString base = BasePath(info_file_name_);
                      path = base + L".dat";
                      if (!IsThere(path)) {
                        // Whoever comes here with a B.dat2 has failed to read it.
                        result = IsThere(base + L".dat2") ? 0 : 1;
                        return;
                      }
                      const int status = Profile(path).GetInt(kInformation, L"ManageStatus", -1);
                      if (status == -1) {
                        Log4cxxMgr::LogOutDetail(
                            5, 120600310, kFunction, __LINE__,
                            L"管理ファイル１(ステータス)の管理ステータスの取得に失敗しました。",
                            path);
                        result = 0;
                        return;
                      }
                      record_.ManageStatus = status;
                      LogStatusRead(kFunction, __LINE__, status, path);
                    });
}

int CManageFileAccess::WriteManageFileStatus() { return WriteManageFileStatus(0); }

int CManageFileAccess::WriteManageFileStatus(int flag) {
  return RunGuarded({5, 120600140, L"CManageFileAccess::WriteManageFileStatus",
                     L"管理ファイル１(ステータス)の書き込み処理で予期せぬエラーが発生しました。"},
                    [&](int& result) {
                      RequireBinding();
                      const CString base = BasePath(info_file_name_);
                      RequireJobName(base);
                      if (flag == 0) RequireStatusInName(record_.ManageStatus);
                      const CString new_name = flag != 0
                                                   ? Format(L"%s.099", base)
                                                   : Format(L"%s.%03d", base, record_.ManageStatus);
                      // The rename comes first: the information travels with it, and when it fails
                      // no status file is written.
                      if (!RenameFile(info_file_name_, new_name)) {
                        throw std::runtime_error("the numbered file cannot be renamed");
                      }
                      info_file_name_ = new_name;
                      if (IsMatchStatusMain(record_.ManageStatus, 95, 96, 97, 98, 99, -1) == 1) {
                        WriteStatusFile(base + L".dat");
                      }
                      result = 1;
                    });
}

void CManageFileAccess::WriteStatusFile(const CString& path) {
  constexpr const wchar_t* kFunction = L"CManageFileAccess::WriteManageFileStatus";
  Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__,
                           L"管理ファイル1（ステータス）を作成しました。管理ファイル名：" + path);
  std::vector<ProfileValue> values;
  values.reserve(std::size(kStatusFileKeys));
  for (const StatusFileKey& key : kStatusFileKeys) {
    values.push_back({key.section, key.name, ValueOf(key, record_)});
  }
  // The status stands in the name already; a status file that cannot be written does not make the
  // change fail.
  WriteProfile(path, values);

  const wchar_t* unsent =
      IsUnsentOfAuthPrint(record_)
          ? L"送信初期状態監視時間にローカル認証プリントの送信初期状態監視時間(86)：%dを設定、"
          : L"送信初期状態監視時間にローカルログだけプリントの送信初期状態監視時間(81)：%dを設定、";
  Log4cxxMgr::LogOutDetail(
      2, 0, kFunction, __LINE__,
      Format(L"印刷出力方法：%d、", record_.AuthPrintFlag) +
          Format(unsent, LocalTimeoutUnsent(record_)) +
          Format(L"認証印刷のタイムアウト監視時間(18)：%d、", record_.AuthPrintTimeout) +
          Format(L"ログだけ印刷のタイムアウト監視時間(82)：%d、", record_.LogPrintTimeout) +
          Format(L"ログだけ印刷のリトライ間隔時間(83)：%d、", record_.LogPrintRetryInterval) +
          Format(L"ログだけ印刷の最大リトライ印刷回数(84)：%d、", record_.LogPrintRetryMaxCount) +
          Format(L"管理ステータス：%d", record_.ManageStatus));
  CUtil::SetFileAccess(path, L"users", 1);
  CUtil::SetFileAccess(path, L"power users", 1);
}

int CManageFileAccess::ReadManageFileInformation() {
  constexpr const wchar_t* kFunction = L"CManageFileAccess::ReadManageFileInformation";
  const auto read = [&](int& result) {
    RequireBinding();
    const auto status = GetFileStatus(info_file_name_);
    if (!status) {
      Log4cxxMgr::LogOutDetail(5, 120600160, kFunction, __LINE__,
                               L"管理ファイル２(情報)が存在しません。", info_file_name_);
      return;
    }
    StoredRecord stored(kRecordName);
    for (const ManageFileText& element : kManageFileTexts) stored.Add(element.name);
    stored.Add(kSpoolSizeElement);
    const auto outcome = stored.Read(info_file_name_, StoredRecord::Duplicates::kFirstCounts);
    if (outcome == StoredRecord::Result::kFileFailure) {
      Log4cxxMgr::LogOutDetail(5, 120600150, kFunction, __LINE__,
                               L"管理ファイル２(情報)の復号化に失敗しました。", info_file_name_);
      record_.FileTime = status->last_write();
      return;
    }
    if (outcome != StoredRecord::Result::kDone) throw std::runtime_error("no search in the record");
    // An element that is missing leaves its field as it was.
    for (const ManageFileText& element : kManageFileTexts) {
      if (const CString* text = stored.Find(element.name)) record_.*element.field = *text;
    }
    const CString* spool_size = stored.Find(kSpoolSizeElement);
    record_.spoolsize = spool_size != nullptr ? ParseInt(*spool_size) : 0;
    Normalise(record_.tavocopy, L"01");
    Normalise(record_.tavocopyerr, L"012");
    Log4cxxMgr::LogOutDetail(2, 0, kFunction, __LINE__, L"管理ファイル２(情報)を読み込みました。",
                             info_file_name_);
    record_.FileTime = status->last_write();
    result = 1;
  };
  return RunGuarded({5, 120600170, kFunction,
                     L"管理ファイル２(情報)の読み込み処理で予期せぬエラーが発生しました。",
                     Detail::kPath, &info_file_name_},
                    read);
}

int CManageFileAccess::WriteManageFileInformation() {
  constexpr const wchar_t* kFunction = L"CManageFileAccess::WriteManageFileInformation";
  const auto write = [&](int& result) {
    RequireBinding();
    RequireJobName(BasePath(info_file_name_));
    StoredRecord stored(kRecordName);
    for (const ManageFileText& element : kManageFileTexts) {
      stored.Add(element.name, record_.*element.field);
    }
    stored.Add(kSpoolSizeElement, Format(L"%d", record_.spoolsize));
    Log4cxxMgr::LogOutDetail(
        2, 120600180, kFunction, __LINE__,
        Format(L"管理ファイル２(情報)を書き込みます。[strDeviceUse:%s]", record_.deviceuse));
    if (stored.Write(info_file_name_) != StoredRecord::Result::kDone) {
      Log4cxxMgr::LogOutDetail(5, 120600180, kFunction, __LINE__,
                               L"管理ファイル２(情報)の書き込みに失敗しました。");
      return;
    }
    result = 1;
  };
  return RunGuarded(
      {5, 120600190, kFunction,
       L"管理ファイル２(情報)の書き込み処理で予期せぬエラーが発生しました。", Detail::kNothing},
      write);
}

}  // namespace vk::tq
