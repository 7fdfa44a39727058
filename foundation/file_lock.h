/// The locks that guard the files of the suite, and the discipline of an operation under one.
///
/// Each lock is a named mutex; no file name enters a lock's name, so one lock covers all jobs or
/// users. An operation takes its lock anew and gives it back on every way out. The wait is 60000 ms
/// and is made once.
#pragma once

#include <cstdint>
#include <type_traits>

#include "foundation/log.h"
#include "platform/error.h"
#include "platform/named_mutex.h"
#include "platform/types.h"

namespace vk::tq {

// ---- For programs that use the library. No class of the library calls these. ----

/// Takes the mutex of that name for everybody ("D:(A;OICI;GA;;;WD)"), and waits for it for 60000
/// ms. A mutex whose owner ended without a release is taken over. Null when it cannot be
/// opened or the time is up, with one line at level 4, number 100800531, "GetManageFileMutex". A
/// wait that fails in another way (kFailed) does not count: without a line it gives a handle that
/// owns nothing. The name "Global\KITORA_QTL_PRINT_MLTTHREAD" stands for the thread that feeds jobs
/// in; any other name counts as the job management files.
TQ_EXPORT HANDLE GetManageFileMutex(const CString& name);

/// Releases and closes the mutex. Null does nothing. Always null.
TQ_EXPORT HANDLE ReleaseManageFileMutex(HANDLE mutex);

/// Whether somebody holds the mutex of that name: takes it without a wait and gives it back at once.
/// kTimeout when it is held; kAbandoned when its last owner ended without a release, which nobody is
/// told after this; kFailed, with the last error set, when it cannot be opened. No lines. One that
/// does not exist is made for everybody, or for the calling user alone and only meanwhile.
TQ_EXPORT WaitResult ProbeMutex(const CString& name, bool is_for_everybody);

/// Takes "Global\KITORA_QTL_WHITELIST_DAT_FILE" as GetManageFileMutex does; it guards the printer
/// exclusion list. The failure lines have level 5, number 100800530, "GetPrinterWhiteListMutex".
TQ_EXPORT HANDLE GetPrinterWhiteListMutex();

/// As ReleaseManageFileMutex.
TQ_EXPORT HANDLE ReleasePrinterWhiteListMutex(HANDLE mutex);

// ---- For the file classes of the library. ----

/// The wait of every lock, in milliseconds.
inline constexpr int kFileLockTimeout = 60000;

/// One lock, and the lines that its failures leave at level 5.
struct FileLock {
  const wchar_t* name;
  const wchar_t* function;  ///< "Class::GetMutex"
  int open_number;          ///< when the mutex cannot be opened
  const wchar_t* open_text;
  int wait_number;  ///< when the wait ends without it, or its last owner ended without a release
  const wchar_t* wait_text;
  bool has_code;  ///< whether the lines carry the last error
};

/// Opens the mutex and waits for it once. Anything but a sound acquisition is a failure: a line,
/// and null. A mutex whose owner ended is given back at once, so that the next one to ask gets a
/// sound lock.
HANDLE TakeFileLock(const FileLock& lock, const SECURITY_ATTRIBUTES* attributes);

/// Replaces the wait of every lock for a scope. For tests that would otherwise last minutes.
class ScopedLockTimeout {
 public:
  explicit ScopedLockTimeout(std::uint32_t milliseconds);
  ScopedLockTimeout(const ScopedLockTimeout&) = delete;
  ScopedLockTimeout& operator=(const ScopedLockTimeout&) = delete;
  ~ScopedLockTimeout();

 private:
  std::uint32_t old_;
};

/// The lock operations that the file classes have in common.
class LockOperations {
 protected:
  /// Puts a descriptor into the record that allows everybody everything, with the inherit flag set.
  /// 1, or 0 when that fails; the record is then left alone.
  static int CreateNullDACL(SECURITY_ATTRIBUTES* attributes);
  /// Frees the record's descriptor and clears its pointer. 0 when the record or its descriptor is
  /// null, else 1.
  static int DestroyNullDACL(SECURITY_ATTRIBUTES* attributes);
  /// Releases and closes the mutex.
  static void RelMutex(HANDLE mutex);

  /// What stands in the log when an operation ends in an exception, and what the line carries: the
  /// last error as its code, a path as its second text, or nothing more.
  enum class Detail { kLastError, kPath, kNothing };
  struct ExceptionLine {
    int level;
    int number;
    const wchar_t* function;
    const wchar_t* text;
    Detail detail = Detail::kLastError;
    const CString* path = nullptr;
  };

  /// Runs an operation under a lock: makes attributes for everybody, takes the lock, does the work,
  /// and gives both back on every way out.
  ///
  /// `take` is a function of the attributes' address that gives a handle or null, or a function of
  /// nothing when the mutex has its attributes by default; none are made then. `work` is a function
  /// of a reference to the result, which starts at 0; whatever it stores last is the result, also
  /// when it then throws: that leaves the line. Without the lock the result is `without_lock`. When
  /// the attributes cannot be made, the mutex is opened with those that it has by default.
  template <class Take, class Work>
  static int RunLocked(const Take& take, int without_lock, const ExceptionLine& line,
                       const Work& work, int source_line = __builtin_LINE()) {
    constexpr bool kByDefault = std::is_invocable_v<Take>;
    [[maybe_unused]] std::conditional_t<kByDefault, NoAttributes, Attributes> attributes;
    Held held;
    const auto take_and_work = [&](int& result) {
      if constexpr (kByDefault) {
        held.mutex = take();
      } else {
        held.mutex = take(attributes.get());
      }
      if (held.mutex == nullptr) {
        result = without_lock;
      } else {
        work(result);
      }
    };
    int result = 0;
    Catch(line, source_line, take_and_work, result);
    return result;
  }

  /// Runs an operation whose caller holds the lock: an exception leaves the line and gives 0.
  template <class Work>
  static int RunGuarded(const ExceptionLine& line, const Work& work,
                        int source_line = __builtin_LINE()) {
    int result = 0;
    return Catch(line, source_line, work, result) ? result : 0;
  }

 private:
  static void LogException(const ExceptionLine& line, int source_line) noexcept;

  template <class Work>
  static bool Catch(const ExceptionLine& line, int source_line, const Work& work, int& result) {
    try {
      work(result);
      return true;
    } catch (...) {
      LogException(line, source_line);
      return false;
    }
  }

  class Attributes {
   public:
    Attributes() { CreateNullDACL(&record_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() { DestroyNullDACL(&record_); }
    SECURITY_ATTRIBUTES* get() { return &record_; }

   private:
    SECURITY_ATTRIBUTES record_;
  };

  struct NoAttributes {};

  struct Held {
    HANDLE mutex = nullptr;
    Held() = default;
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    ~Held() {
      if (mutex != nullptr) RelMutex(mutex);
    }
  };
};

}  // namespace vk::tq
