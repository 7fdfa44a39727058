#include "foundation/file_lock.h"

#include <atomic>

#include "platform/text.h"

namespace vk::tq {
namespace {

std::atomic<std::uint32_t> lock_timeout = kFileLockTimeout;

// A descriptor that is freed with its scope.
class ScopedDescriptor {
 public:
  explicit ScopedDescriptor(void* descriptor) : descriptor_(descriptor) {}
  ScopedDescriptor(const ScopedDescriptor&) = delete;
  ScopedDescriptor& operator=(const ScopedDescriptor&) = delete;
  ~ScopedDescriptor() { FreeDescriptor(descriptor_); }
  void* get() const { return descriptor_; }

 private:
  void* descriptor_;
};

// The locks that the programs of the suite take themselves, and what their failure lines say.
struct ProgramLock {
  const wchar_t* function;
  int level;
  int number;
  const wchar_t* label;
  const wchar_t* no_descriptor;
  const wchar_t* no_mutex;
  const wchar_t* timed_out;
};

constexpr ProgramLock kJobFilesLock = {
    L"GetManageFileMutex",
    4,
    100800531,
    L"管理ファイル(情報、ステータス)",
    L"の排他処理に失敗しました。(CfgSetupSecurityFolder) [%d]",
    L"の排他処理に失敗しました。(CreateMutex) [%d]",
    L"の排他処理に失敗しました。(タイムアウト) [%d]",
};

constexpr ProgramLock kWhiteListLock = {
    L"GetPrinterWhiteListMutex",
    5,
    100800530,
    L"",
    L"プリンタ除外リストファイルの排他処理に失敗しました。(CfgSetupSecurityFolder) [%d]",
    L"プリンタ除外リストファイルの排他処理に失敗しました。(CreateMutex) [%d]",
    L"プリンタ除外リストファイルの排他処理に失敗しました。(タイムアウト) [%d]",
};

constexpr const wchar_t* kEverybody = L"D:(A;OICI;GA;;;WD)";

HANDLE TakeProgramLock(const ProgramLock& lock, const CString& name) {
  const auto fail = [&](const wchar_t* format, int line) -> HANDLE {
    Log4cxxMgr::LogOutDetail(lock.level, lock.number, lock.function, line,
                             lock.label + Format(format, GetLastError()));
    return nullptr;
  };
  const ScopedDescriptor everybody(CreateDescriptorFromText(kEverybody));
  if (everybody.get() == nullptr) return fail(lock.no_descriptor, __LINE__);
  const SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), everybody.get(), 1};
  HANDLE mutex = CreateNamedMutex(&attributes, name);
  if (mutex == nullptr) return fail(lock.no_mutex, __LINE__);
  // Only a time-out counts as a failure: a mutex whose owner ended is taken over.
  if (WaitForNamedMutex(mutex, lock_timeout) != WaitResult::kTimeout) return mutex;
  CloseNamedMutex(mutex);
  return fail(lock.timed_out, __LINE__);
}

HANDLE ReleaseProgramLock(HANDLE mutex) {
  if (mutex != nullptr) {
    ReleaseNamedMutex(mutex);
    CloseNamedMutex(mutex);
  }
  return nullptr;
}

}  // namespace

HANDLE GetManageFileMutex(const CString& name) {
  ProgramLock lock = kJobFilesLock;
  if (name.empty()) {
    Log4cxxMgr::LogOutDetail(lock.level, lock.number, lock.function, __LINE__,
                             L"ミューテックス名が指定されていません。");
    return nullptr;
  }
  if (EqualsNoCase(name, L"Global\\KITORA_QTL_PRINT_MLTTHREAD"))
    lock.label = L"ネミジョブ投入スレッド";
  return TakeProgramLock(lock, name);
}

HANDLE ReleaseManageFileMutex(HANDLE mutex) { return ReleaseProgramLock(mutex); }

WaitResult ProbeMutex(const CString& name, bool is_for_everybody) {
  const ScopedDescriptor everybody(is_for_everybody ? CreateDescriptorFromText(kEverybody)
                                                    : nullptr);
  const SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), everybody.get(), 1};
  HANDLE mutex = CreateNamedMutex(is_for_everybody ? &attributes : nullptr, name);
  if (mutex == nullptr) return WaitResult::kFailed;
  const WaitResult result = WaitForNamedMutex(mutex, 0);
  if (result == WaitResult::kAcquired || result == WaitResult::kAbandoned) {
    ReleaseNamedMutex(mutex);
  }
  CloseNamedMutex(mutex);
  return result;
}

HANDLE GetPrinterWhiteListMutex() {
  return TakeProgramLock(kWhiteListLock, L"Global\\KITORA_QTL_WHITELIST_DAT_FILE");
}

HANDLE ReleasePrinterWhiteListMutex(HANDLE mutex) { return ReleaseProgramLock(mutex); }

HANDLE TakeFileLock(const FileLock& lock, const SECURITY_ATTRIBUTES* attributes) {
  const auto fail = [&](int number, const wchar_t* text, int line) {
    if (lock.has_code) {
      Log4cxxMgr::LogOutDetail(5, number, lock.function, line, static_cast<int>(GetLastError()),
                               text);
    } else {
      Log4cxxMgr::LogOutDetail(5, number, lock.function, line, text);
    }
  };
  HANDLE mutex = CreateNamedMutex(attributes, lock.name);
  if (mutex == nullptr) {
    fail(lock.open_number, lock.open_text, __LINE__);
    return nullptr;
  }
  const WaitResult result = WaitForNamedMutex(mutex, lock_timeout);
  if (result == WaitResult::kAcquired) return mutex;
  fail(lock.wait_number, lock.wait_text, __LINE__);
  // The wait made this thread the owner. Nobody else may stay blocked by an operation that counts
  // as failed.
  if (result == WaitResult::kAbandoned) ReleaseNamedMutex(mutex);
  CloseNamedMutex(mutex);
  return nullptr;
}

ScopedLockTimeout::ScopedLockTimeout(std::uint32_t milliseconds)
    : old_(lock_timeout.exchange(milliseconds)) {}

ScopedLockTimeout::~ScopedLockTimeout() { lock_timeout = old_; }

int LockOperations::CreateNullDACL(SECURITY_ATTRIBUTES* attributes) {
  if (attributes == nullptr) return 0;
  void* descriptor = CreateNullDaclDescriptor();
  if (descriptor == nullptr) return 0;
  *attributes = {sizeof(SECURITY_ATTRIBUTES), descriptor, 1};
  return 1;
}

int LockOperations::DestroyNullDACL(SECURITY_ATTRIBUTES* attributes) {
  if (attributes == nullptr || attributes->lpSecurityDescriptor == nullptr) return 0;
  FreeDescriptor(attributes->lpSecurityDescriptor);
  attributes->lpSecurityDescriptor = nullptr;
  return 1;
}

void LockOperations::LogException(const ExceptionLine& line, int source_line) noexcept {
  switch (line.detail) {
    case Detail::kLastError:
      return Log4cxxMgr::LogOutDetail(line.level, line.number, line.function, source_line,
                                      static_cast<int>(GetLastError()), line.text);
    case Detail::kPath:
      return Log4cxxMgr::LogOutDetail(line.level, line.number, line.function, source_line,
                                      line.text, *line.path);
    case Detail::kNothing:
      return Log4cxxMgr::LogOutDetail(line.level, line.number, line.function, source_line,
                                      line.text);
  }
}

void LockOperations::RelMutex(HANDLE mutex) {
  ReleaseNamedMutex(mutex);
  CloseNamedMutex(mutex);
}

}  // namespace vk::tq
