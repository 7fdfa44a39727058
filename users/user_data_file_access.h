/// The user data file: who the user of this PC is.
#pragma once

#include "users/user_data_file.h"

namespace vk::tq {

/// The record, with each field named like its XML element.
struct TQ_EXPORT t_user_file {
  CString UserID;
  CString UserAcount;
  CString PrintUserNo;
  CString UserGroupNo;
  /// The logon time at the last registration, as CUtil::GetLogonDateTimeFromLSA gives it.
  CString LastWindowsLogonDateTime;
  /// The tick count of the last registration. CUtil::isUserRegistExpired judges the two.
  CString LastRegistUserTickCount;
};

extern template class UserDataFile<t_user_file>;

/// Access to "DATA.XML". The operations on file and record, their results and log lines are those
/// of UserDataFile; here a file of any age is read and deleted, and nothing deletes a file when it
/// ages.
///
/// The lock is "KITORA_QTL_USER_DATA", once in each logon session and open to every account.
class TQ_EXPORT CUserDataFileAccess : public UserDataFile<t_user_file> {
 public:
  /// Starts with an empty record and the user's own data folder.
  CUserDataFileAccess();

  /// Mode 1: 1 when the file exists. Any other mode: 1 when it exists and is fresh.
  int IsExist(unsigned char mode) const { return IsThere(mode != 1); }
  int IsExist() const { return IsExist(1); }

  /// Chooses a directory, with or without a backslash at its end. Nothing is made on disk.
  void SetDataDirectry(const wchar_t* path);
  /// Chooses the user's own data folder: GetSpecialFolderPath(26) +
  /// "\ORV-INC\Velkorandia\Tessaloquin\data\".
  void SetUserDataDirectry();
  /// The directory in use, with a backslash at its end. To be read only: SetDataDirectry changes it
  /// together with the file's path.
  const CString& GetDataDirectry() const { return m_strDataDir; }

  CString& GetLastWindowsLogonDateTime() { return m_userData.LastWindowsLogonDateTime; }
  CString& GetLastRegistUserTickCount() { return m_userData.LastRegistUserTickCount; }
  void SetLastWindowsLogonDateTime(const wchar_t* text) {
    Set(m_userData.LastWindowsLogonDateTime, text);
  }
  void SetLastRegistUserTickCount(const wchar_t* text) {
    Set(m_userData.LastRegistUserTickCount, text);
  }

  /// Takes the lock of the user data file, or a mutex of the caller's name, and waits for it for
  /// 60000 ms. Null on failure, with line 130303 or 130304. A null name is like an empty one, which
  /// names one mutex like any other.
  static HANDLE GetMutex(SECURITY_ATTRIBUTES* attributes);
  static HANDLE GetMutex(SECURITY_ATTRIBUTES* attributes, const wchar_t* name);
  /// Releases and closes it.
  static void RelMutex(HANDLE mutex);

  /// Makes attributes that allow everybody everything, and frees them again; see LockOperations.
  static int CreateNullDACL(SECURITY_ATTRIBUTES* attributes);
  static int DestroyNullDACL(SECURITY_ATTRIBUTES* attributes);

 private:
  int RunUnderLock(const ExceptionLine& line, const Work& work, int source_line) override;
};

}  // namespace vk::tq
