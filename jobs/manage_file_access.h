/// The files of one print job.
#pragma once

#include "foundation/file_lock.h"
#include "jobs/manage_file.h"
#include "platform/types.h"

namespace vk::tq {

/// The door to the family of files that stands for one print job.
///
/// All files of a job have a common base path B. The numbered file B.NNN holds the job's
/// information, enciphered; its extension is the status, so a change of status is a rename, and a
/// directory listing shows the state of all jobs. An extension of 099 means that the status lies in
/// the status file B.dat, or if there is none, in B.dat2. See docs/file-formats.md.
///
/// An object holds B's numbered name and a record, and no handle. The constructor looks for the
/// numbered file once; to see a status that another process has set, make a new object. In a folder
/// that may be used but not listed it asks for one name after another. Where the search fails for
/// want of descriptors or memory, or at the device, each operation makes it anew, and fails as long
/// as it does. The search is not locked: whoever writes what he has read, while others may rename,
/// takes the mutex that is named below with GetManageFileMutex before he makes the object. An
/// object belongs to one thread.
///
/// Results are 1 for success and 0 for failure, and nothing is thrown. "Locked" operations hold the
/// mutex "Global\KITORA_QTL_JOB_MANAGE" from start to end, one lock for all jobs of the machine,
/// and wait up to 60000 ms for it; without it they do nothing and give 0, with a line at level 5
/// (120600200, 120600210). So does the first operation after a process that ended while it held the
/// lock: it gives the lock back in a sound state, and the next attempt succeeds. A failure leaves a
/// line at level 5 with a number from 120600010 on and "CManageFileAccess::" and the operation as
/// its function; an exception that reaches a public operation leaves one at level 4.
class TQ_EXPORT CManageFileAccess : public CObject, private LockOperations {
 public:
  /// The wait for the lock, in milliseconds.
  static constexpr int FILE_LOCK_TIMEOUT = kFileLockTimeout;

  /// Binds the object to a job. `name` is the job's path with any extension or none: the object
  /// ends up on the job's existing numbered file, and on B.000 when there is none. The record has
  /// its defaults, so ManageStatus is 0 until a read. With null the object has no name.
  ///
  /// What follows the last point of the name is taken for an extension: "v1.2" and "v1.3" are the
  /// job "v1". A path without a name in its last component, or with a name or directory of more
  /// than 255 characters, stands for no job: nothing is written for it.
  explicit CManageFileAccess(const wchar_t* name);
  ~CManageFileAccess() override;
  CManageFileAccess(const CManageFileAccess&) = default;
  CManageFileAccess& operator=(const CManageFileAccess&) = default;

  /// Resets the record, but not FileTime, to the defaults of MANAGE_FILE.
  void InitManageData();

  /// 1 when any file of the family exists. Not locked.
  int IsExist();

  /// Removes the whole family. An error message that a .dat file holds goes to the event log
  /// (0x80003000) before: one sentence a line, with the remedy section set apart. Nothing to remove
  /// is a success, with a line at level 3. When a member cannot be removed, as a directory that is
  /// named like one, or its error message cannot be read for the moment, it and the remaining files
  /// stay: numbered files go first, directories come last. Locked.
  int Delete();

  /// Takes the status from the name, or with the extension 099 from the status file: a file of
  /// exactly one byte is the status itself, any other holds it in section Information, key
  /// ManageStatus. B.dat2 also gives PrinterIpAddress. 0 when B.dat holds no status, or when either
  /// cannot be read for the moment; ManageStatus is then 99. Locked.
  int ReadStatus();

  /// Makes the record's status visible: renames the numbered file, and with a status of 95 to 99
  /// writes the status file and lets the groups "users" and "power users" use it. A name that
  /// another file has is never replaced: the old name stays, and the result is 0, as for a status
  /// outside 0 to 999. The keys of the status file are those of the record alone: no read fills
  /// them. A status file that cannot be written does not make the change fail. Locked.
  int WriteStatus();

  /// Reads the numbered file into the record. An element that is missing leaves its field as it
  /// was; spoolsize is 0 then. tavocopy becomes "0" unless it is "1", tavocopyerr unless it is "1"
  /// or "2". Text that is no XML, such as what another key file or a torn file gives, counts as a
  /// document without elements: the result is 1 all the same, and a field that the caller emptied
  /// before tells whether anything was found. Locked.
  int ReadInformation();

  /// Writes the record's information into the numbered file under its present name. What cannot be
  /// made or enciphered leaves the old file as it was. Locked.
  int WriteInformation();

  /// ReadStatus and ReadInformation under one lock; both are tried. 0 when no file of the job
  /// exists, without a line, or when its folder is missing.
  int ReadAll();

  /// WriteInformation, then the rename and status file of WriteStatus, under one lock: whoever sees
  /// the new extension finds the new contents. A process that is killed before the rename leaves
  /// the new contents under the old extension; one that is killed between rename and status file
  /// can leave an extension of 099 with the status of an older status file, or 99. With a flag that
  /// is not 0 the new extension is 099, whatever the status.
  int WriteAll();
  int WriteAll(int flag);

  /// The record, to read and change directly; nothing of it reaches the disk before a write.
  MANAGE_FILE& GetManageData() { return record_; }
  void SetManageData(const MANAGE_FILE& record) { record_ = record; }

  /// The full name of the numbered file.
  CString& GetInfoFileName() { return info_file_name_; }
  /// Empty, unless the caller fills it: no operation assigns it.
  CString& GetStatusFileName() { return status_file_name_; }

 private:
  // The caller of each of these holds the lock.
  int ReadManageFileStatus();
  int ReadManageFileStatusINI();
  int WriteManageFileStatus();
  int WriteManageFileStatus(int flag);
  int ReadManageFileInformation();
  int WriteManageFileInformation();

  HANDLE GetMutex(SECURITY_ATTRIBUTES* attributes);

  /// ReadManageFileStatus, and when that gives 0, ReadManageFileStatusINI.
  int ReadEitherStatus();
  void WriteStatusFile(const CString& path);
  void Bind();
  /// What each operation asks for before it relies on the name.
  void RequireBinding();
  template <class Work>
  int RunWithJobLock(const ExceptionLine& line, const Work& work);

  CString status_file_name_;
  CString info_file_name_;
  bool is_bound_ = true;  ///< false when the search for the numbered file has failed
  MANAGE_FILE record_;
};

}  // namespace vk::tq
