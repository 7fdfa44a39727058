/// The print information file of a job.
#pragma once

#include "foundation/file_lock.h"
#include "jobs/nemi_inf_file.h"
#include "platform/types.h"

namespace vk::tq {

/// Reads, writes, moves and deletes one print information file: an enciphered XML text with the
/// root "Velkorandia" and one record "QTL", which holds an element for each field of NEMI_INF_FILE.
///
/// An object holds a path and a record, and no handle. It belongs to one thread.
///
/// Results are 1 for success and 0 for failure, and nothing is thrown. An operation takes the mutex
/// "KITORA_QTL_JOB_INFO_NEMI", one lock for all print information files of a logon, anew and waits
/// up to 60000 ms for it; without the lock nothing changes on disk. ReadAll, Delete and Move test
/// under the lock that the file exists, give it back, and take it a second time, so the file can go
/// in between: that ends in the failure lines of the second step. With an empty path these three
/// and WriteAll give 0 and take no lock.
///
/// Every failure leaves a line with the operation as its function, at level 5; the exceptions of
/// IsExist have level 4 and number 0. 101006 and the lines of exceptions carry the last error:
///
///   | failure         | ReadAll | WriteAll | Delete | Move   | IsExist         |
///   |-----------------|---------|----------|--------|--------|-----------------|
///   | path empty      | 100911  | 101012   | 100912 | 101013 |                 |
///   | no such file    | 100903  |          | 100905 | 101001 |                 |
///   | no target folder|         |          |        | 101013 |                 |
///   | lock            | 100904  | 101002   | 100906 | 101002 | 100920, 100921  |
///   | the work itself | 100902  | 100822   |        | 101006 |                 |
///   | no XML          | 100901  |          |        |        |                 |
///   | exception       | 100909  | 101007   | 100910 | 101015 | 0               |
///
/// A lock that cannot be had leaves a line of `GetMutex` before: 100907 when it cannot be opened,
/// 100908 when the wait ends without it, or its last owner ended without a release.
class TQ_EXPORT CNemiPrintInfoFileAccess : private LockOperations {
 public:
  /// The wait for the lock, in milliseconds.
  static constexpr int FILE_LOCK_TIMEOUT = kFileLockTimeout;

  /// Binds the object to a path; null is like an empty one. The record is empty.
  explicit CNemiPrintInfoFileAccess(const wchar_t* path);

  /// Reads the file into the record: every field but NUpName, which keeps what it held. FilePath
  /// becomes the path; a field without an element becomes empty, so a text that is no XML empties
  /// them all. On failure the record stays as it was.
  int ReadAll();

  /// Writes the record, in place of what the file held. A record that makes no XML text, or cannot
  /// be enciphered or written (100822), leaves the old file as it was.
  int WriteAll();

  /// Removes the file. The lock is asked for `retry` times more after the first attempt, without a
  /// pause; a negative number is like 0. A file that is gone counts as removed: 1, with the line.
  int Delete(int retry);

  /// Moves the file into a directory, under its own name with the extension ".xml" in place of any
  /// other, and replaces a file of that name there. `directory` comes without a backslash at its
  /// end. It may lie in another file system; the call returns when the move is on disk. When it
  /// fails, the file is whole in its old place, and two lines more name source and target. The
  /// object still names the old path afterwards.
  int Move(const wchar_t* directory);

  /// 1 when the file or a directory of that name exists, and also when the lock cannot be had or
  /// something else fails: the caller goes on and meets that failure in its next step.
  int IsExist();

  /// The record, to read and change directly; nothing of it reaches the disk before a write.
  NEMI_INF_FILE& GetNemiInfData() { return record_; }
  void SetNemiInfData(const NEMI_INF_FILE& record) { record_ = record; }

 private:
  struct GuardedOperation;

  static HANDLE GetMutex(SECURITY_ATTRIBUTES* attributes);
  static int IsExist(const CString& path);
  static int TestUnderLock(const GuardedOperation& operation, const CString& path);
  static CString GetFileName(const wchar_t* path);
  int ReadRecord();
  int WriteRecord() const;
  int MoveTo(const CString& target) const;

  template <class Work>
  static int RunUnderLock(const GuardedOperation& operation, const Work& work, int retry = 0);

  CString file_name_;
  NEMI_INF_FILE record_;
};

}  // namespace vk::tq
