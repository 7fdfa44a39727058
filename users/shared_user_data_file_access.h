/// The shared-PC user data file: who is working at a PC that several users share.
#pragma once

#include "users/user_data_file.h"

namespace vk::tq {

/// The record, with each field named like its XML element.
struct TQ_EXPORT t_shared_user_file {
  CString UserID;
  CString UserAcount;
  CString PrintUserNo;
  CString UserGroupNo;
};

extern template class UserDataFile<t_shared_user_file>;

/// Access to "Shared.XML" in the data folder of all users. The operations on file and record, their
/// results and log lines are those of UserDataFile, with one difference: the data is short-lived. A
/// file whose last write is more than m_nKeepSeconds ago counts as missing, so ReadAll fails with
/// 130311, and Delete gives 1 and leaves it on disk. WriteAll renews its life.
///
/// The lock is "KITORA_QTL_SHARED_USER_DATA", once in each logon session. It belongs to the account
/// that made it: a process of another account is refused it (130303, code 5) as long as one has it
/// open.
class TQ_EXPORT CSharedUserDataFileAccess : public UserDataFile<t_shared_user_file> {
 public:
  /// Starts with an empty record and the data folder of all users.
  CSharedUserDataFileAccess();

  /// 1 when the file exists and is fresh. Takes no lock.
  int IsExist() const { return IsThere(true); }

 private:
  int RunUnderLock(const ExceptionLine& line, const Work& work, int source_line) override;
  HANDLE GetMutex();
  using LockOperations::RelMutex;
};

}  // namespace vk::tq
