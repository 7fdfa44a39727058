#include "jobs/nemi_print_info_file_access.h"

#include <array>
#include <iterator>
#include <stdexcept>

#include "foundation/util.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"
#include "storage/stored_record.h"

namespace vk::tq {
namespace {

// The stored fields in the order of the file.
constexpr auto kWriteOrder = [] {
  std::array<const NemiField*, std::size(kNemiFields) - 1> order{};
  // GCC does not compare such a pointer with null at compile time under -fsanitize=undefined.
  std::array<bool, order.size()> is_taken{};
  for (const NemiField& field : kNemiFields) {
    if (field.written_at == 0) continue;
    const auto position = static_cast<std::size_t>(field.written_at) - 1;
    order.at(position) = &field;
    is_taken.at(position) = true;
  }
  for (const bool taken : is_taken) {
    if (!taken) throw "two fields have one position";
  }
  return order;
}();

constexpr FileLock kNemiLock = {
    L"KITORA_QTL_JOB_INFO_NEMI",
    L"CNemiPrintInfoFileAccess::GetMutex",
    100907,
    L"ネミ印刷情報ファイルへのロックが取得できませんでした。",
    100908,
    L"ネミ印刷情報ファイルへのロックが取得できませんでした。",
    false,
};

constexpr const wchar_t* kNoPath = L"ネミ印刷情報ファイルへのパスが未設定です。";
constexpr const wchar_t* kNoFile = L"ネミ印刷情報ファイルが存在しません。";
constexpr const wchar_t* kNoLock = L"ネミ印刷情報ファイルへのロックが取得できませんでした。";

int Failure(int number, const wchar_t* function, int line, std::wstring_view text) {
  Log4cxxMgr::LogOutDetail(5, number, function, line, text);
  return 0;
}

constexpr const wchar_t* kRecordName = L"QTL";

CString PathOf(const wchar_t* path) { return path == nullptr ? CString() : InternalPath(path); }

}  // namespace

// An operation under the lock, by what its failures leave.
struct CNemiPrintInfoFileAccess::GuardedOperation {
  ExceptionLine exception;
  int lock_number;
};

HANDLE CNemiPrintInfoFileAccess::GetMutex(SECURITY_ATTRIBUTES* attributes) {
  return TakeFileLock(kNemiLock, attributes);
}

template <class Work>
int CNemiPrintInfoFileAccess::RunUnderLock(const GuardedOperation& operation, const Work& work,
                                           int retry) {
  const auto take = [&](SECURITY_ATTRIBUTES* attributes) {
    HANDLE mutex = GetMutex(attributes);
    for (int made = 0; mutex == nullptr && made < retry; ++made) mutex = GetMutex(attributes);
    if (mutex == nullptr) {
      Failure(operation.lock_number, operation.exception.function, __LINE__, kNoLock);
    }
    return mutex;
  };
  return RunLocked(take, 0, operation.exception, work);
}

CNemiPrintInfoFileAccess::CNemiPrintInfoFileAccess(const wchar_t* path)
    : file_name_(PathOf(path)) {}

int CNemiPrintInfoFileAccess::ReadAll() {
  static constexpr GuardedOperation kRead = {
      {5, 100909, L"CNemiPrintInfoFileAccess::ReadAll",
       L"ネミ印刷情報ファイルの読み込み処理で予期せぬエラーが発生しました。"},
      100904};
  if (file_name_.empty()) return Failure(100911, kRead.exception.function, __LINE__, kNoPath);
  if (IsExist() == 0) return Failure(100903, kRead.exception.function, __LINE__, kNoFile);
  return RunUnderLock(kRead, [this](int& result) { result = ReadRecord(); });
}

int CNemiPrintInfoFileAccess::ReadRecord() {
  static constexpr wchar_t kFunction[] = L"CNemiPrintInfoFileAccess::ReadAll";
  StoredRecord stored(kRecordName);
  for (const NemiField& field : kNemiFields) {
    if (field.is_read) stored.Add(field.element);
  }
  switch (stored.Read(file_name_)) {
    case StoredRecord::Result::kFileFailure:
      return Failure(100902, kFunction, __LINE__, L"ネミ印刷情報ファイルの復号化に失敗しました。");
    case StoredRecord::Result::kNoXml:
      return Failure(100901, kFunction, __LINE__,
                     L"ネミ印刷情報ファイルの読み込みに失敗しました。");
    case StoredRecord::Result::kDone:
      break;
  }
  for (const NemiField& field : kNemiFields) {
    if (!field.is_read) continue;
    const CString* text = stored.Find(field.element);
    record_.*field.member = text != nullptr ? *text : CString();
  }
  record_.FilePath = file_name_;
  return 1;
}

int CNemiPrintInfoFileAccess::WriteAll() {
  static constexpr GuardedOperation kWrite = {
      {5, 101007, L"CNemiPrintInfoFileAccess::WriteAll",
       L"ネミ印刷情報ファイルの保存処理で予期せぬエラーが発生しました。"},
      101002};
  if (file_name_.empty()) return Failure(101012, kWrite.exception.function, __LINE__, kNoPath);
  return RunUnderLock(kWrite, [this](int& result) { result = WriteRecord(); });
}

int CNemiPrintInfoFileAccess::WriteRecord() const {
  StoredRecord stored(kRecordName);
  for (const NemiField* field : kWriteOrder) stored.Add(field->element, record_.*field->member);
  if (stored.Write(file_name_) == StoredRecord::Result::kDone) return 1;
  return Failure(100822, L"CNemiPrintInfoFileAccess::WriteAll", __LINE__,
                 L"ネミ情報の書き込みに失敗しました。");
}

int CNemiPrintInfoFileAccess::Delete(int retry) {
  static constexpr GuardedOperation kDelete = {
      {5, 100910, L"CNemiPrintInfoFileAccess::Delete",
       L"ネミ印刷情報ファイルの削除処理で予期せぬエラーが発生しました。"},
      100906};
  if (file_name_.empty()) return Failure(100912, kDelete.exception.function, __LINE__, kNoPath);
  if (IsExist() == 0) {
    Failure(100905, kDelete.exception.function, __LINE__, kNoFile);
    return 1;
  }
  const auto remove = [this](int& result) {
    if (!RemoveFile(file_name_)) throw std::runtime_error("the file cannot be removed");
    result = 1;
  };
  return RunUnderLock(kDelete, remove, retry);
}

int CNemiPrintInfoFileAccess::Move(const wchar_t* directory) {
  static constexpr GuardedOperation kMove = {
      {5, 101015, L"CNemiPrintInfoFileAccess::Move",
       L"ネミ印刷情報ファイルの移動処理で予期せぬエラーが発生しました。"},
      101002};
  const wchar_t* function = kMove.exception.function;
  return RunGuarded(kMove.exception, [&](int& result) {
    const CString target = PathOf(directory);
    if (file_name_.empty()) {
      Failure(101013, function, __LINE__, kNoPath);
    } else if (IsExist(target) == 0) {
      Failure(101013, function, __LINE__, L"移動先フォルダが存在しません。");
    } else if (IsExist() == 0) {
      Failure(101001, function, __LINE__, kNoFile);
    } else {
      result = RunUnderLock(kMove, [&](int& moved) {
        moved = MoveTo(target + L"\\" + GetFileName(file_name_.c_str()) + L".xml");
      });
    }
  });
}

int CNemiPrintInfoFileAccess::MoveTo(const CString& target) const {
  static constexpr wchar_t kFunction[] = L"CNemiPrintInfoFileAccess::Move";
  if (MoveFileReplacing(file_name_, target)) return 1;
  Log4cxxMgr::LogOutDetail(5, 101006, kFunction, __LINE__, static_cast<int>(GetLastError()),
                           L"ネミ印刷情報ファイルの移動に失敗しました。");
  Failure(101006, kFunction, __LINE__, L"移動元[" + file_name_ + L"]");
  return Failure(101006, kFunction, __LINE__, L"移動先[" + target + L"]");
}

int CNemiPrintInfoFileAccess::IsExist() {
  static constexpr GuardedOperation kTest = {
      {4, 0, L"CNemiPrintInfoFileAccess::IsExist",
       L"ネミ印刷情報ファイルの存在確認処理で例外が発生しました。"},
      100920};
  return TestUnderLock(kTest, file_name_);
}

int CNemiPrintInfoFileAccess::IsExist(const CString& path) {
  static constexpr GuardedOperation kTest = {
      {4, 0, L"CNemiPrintInfoFileAccess::IsExist",
       L"ネミ印刷情報ファイルの存在確認処理（直接指定）で例外が発生しました。"},
      100921};
  return TestUnderLock(kTest, path);
}

int CNemiPrintInfoFileAccess::TestUnderLock(const GuardedOperation& operation,
                                            const CString& path) {
  // What cannot be told, the caller meets in its next step.
  bool is_missing = false;
  RunUnderLock(operation,
               [&](int&) { is_missing = !GetFileStatus(path) && !IsPassing(GetLastError()); });
  return is_missing ? 0 : 1;
}

CString CNemiPrintInfoFileAccess::GetFileName(const wchar_t* path) {
  CString name = path;
  CUtil::GetFileName(name);
  return name;
}

}  // namespace vk::tq
