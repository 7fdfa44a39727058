/// The allowed users list: may the user of a print job go on, and under which account?
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>

#include "platform/types.h"

namespace vk::tq {

class Profile;

/// Holds the list in memory and answers from there. The only instance comes from GetInstance, which
/// loads the list anew when the file has changed.
///
/// The list is "EnableUsers.dat" in the configuration directory, enciphered by
/// CCrypto::CryptFileMake, or else "EnableUsers.ini", plain. It comes in two forms:
///
/// - Sectioned: an INI file with the sections `ChangeUsers`, `LogOnlyUsers` and
///   `PcLogonQueryUsers`, whose entries are job user = account. The names of one section are read
///   as far as they fit 1024 characters with a NUL behind each and one more at the end, and of each
///   value 1023 characters; a name that does not fit whole is not read. Of two entries of one name
///   the first counts.
/// - Plain: a file without any section. Every line is job user = account and belongs to
///   `ChangeUsers`; the line is split at its first "=", and of two lines for one name the last
///   counts. A line without "=" matches nobody, and neither does an empty one, but the list is not
///   empty then.
///
/// In both forms the file begins with the byte-order mark of UTF-16LE or UTF-8, or is in the ANSI
/// code page. It is read once, whatever its size. NULs at its end are no part of the text, and an
/// enciphered text ends at its first NUL: behind that stand the filling of the last cipher block,
/// and what a writer that was killed has left of an older list.
///
/// Names are told apart without regard to case, in every script; accounts keep their case. An
/// account may be empty.
///
/// A list that is missing or cannot be read is an empty list, with one line from
/// "CEnableUsersAccessor::CEnableUsersAccessor", number 0: level 2 when there is no file, level 4
/// when it cannot be deciphered (with the result of DecryptFileMake), opened or read (with the last
/// error), or when an exception ends the reading.
///
/// An enciphered list is deciphered into a temporary file that only the calling user can open, and
/// that is removed before the constructor returns, whatever happens; only where there is no memory
/// at all, not even for the name, or the process is killed meanwhile, it stays.
///
/// There is no lock: callers make their calls one at a time, and a pointer from GetInstance is
/// valid until the next GetInstance. A list may change at any time: when it does while it is read,
/// it is read again, up to eight times, and then counts as one that another program has open (error
/// 32). So a list that is replaced by renaming another one to its name is always read whole. One
/// that is written in place with pauses of more than 16 ms may be read as far as it has got; the
/// next GetInstance sees that it has changed. A list that was written within the last 16 ms is read
/// when they are over, since two changes within that time can have one time stamp.
class TQ_EXPORT CEnableUsersAccessor {
 public:
  CEnableUsersAccessor(const CEnableUsersAccessor&) = delete;
  CEnableUsersAccessor& operator=(const CEnableUsersAccessor&) = delete;

  /// The instance for GetSpecialFolderPath(35) + "\ORV-INC\Velkorandia\Tessaloquin\config".
  static CEnableUsersAccessor* GetInstance();

  /// The instance. The first call makes it for a configuration directory, given without a backslash
  /// at its end. A later call looks at the last-write time of the list in use, to the nanosecond;
  /// when it is not that of the loaded list, the instance is destroyed and a new one is made for
  /// the directory of this call.
  ///
  /// The list is opened, asked for its time and closed. Where the system knows files that are open
  /// without sharing, a list that another program has open cannot be asked; here it can. A list
  /// that cannot be opened, also because it was removed, leaves the instance as it is. When loading
  /// failed, every call tries again for as long as the file can be opened.
  static CEnableUsersAccessor* GetInstance(const CString& directory);

  /// Asks the three lists in turn: 1 found in `ChangeUsers`, 2 in `LogOnlyUsers`, 3 in
  /// `PcLogonQueryUsers`, 0 in none; `account` is that of the lookup that found the user, and empty
  /// with 0. Each lookup leaves its own log line.
  int GetEnableUserType(const CString& job_user, const CString& current_user,
                        CString& account) const;

  // The lookups give 1 for found and 0 for not found, and leave one line at level 2, number 0, that
  // tells the decision. `account` may be the same object as another argument.

  /// Looks into `ChangeUsers`. Found: the account of the entry, or the current login user when that
  /// is empty. An empty list: 0, and the account is the job user. Otherwise 0 and no account.
  int GetTQLoginAccount(const CString& job_user, const CString& current_user,
                        CString& account) const;

  /// Looks into `LogOnlyUsers`. Found: the account of the entry, or the job user in upper case when
  /// that is empty. An empty list: 0, and the account is the job user. Otherwise 0 and no account.
  int GetLogOnlyUserAccount(const CString& job_user, CString& account) const;

  /// Looks into `PcLogonQueryUsers`. Found: the account of the entry, which may be empty. An entry
  /// with the name "*" stands for every job user who has none of his own. Otherwise 0 and no
  /// account.
  int GetPcLogonQueryUserAccount(const CString& job_user, CString& account) const;

 private:
  friend class EnableUsersAccessorPeer;  // makes a test start without an instance

  // A lookup needs no copy of the name in upper case.
  struct HashName {
    std::size_t operator()(const CString& name) const;
  };
  struct EqualName {
    bool operator()(const CString& left, const CString& right) const;
  };
  /// From the name in upper case to the account.
  using UserMap = std::unordered_map<CString, CString, HashName, EqualName>;

  explicit CEnableUsersAccessor(const CString& directory);
  ~CEnableUsersAccessor() = default;

  void Load(const CString& directory);
  bool FindList(const CString& directory, bool& is_enciphered);
  bool ReadList(bool is_enciphered);
  bool ReadEntries(const CString& path, bool is_enciphered);
  void ReadSections(const Profile& profile);
  void ReadLines(std::wstring_view text);
  void DropEntries();

  /// The log texts of the two lookups that give every user an account. The first %s is the job
  /// user, the second the account.
  struct LookupTexts {
    const wchar_t* function;
    const wchar_t* no_list;
    const wchar_t* unknown;
    const wchar_t* defined;  ///< with the account of the entry
    const wchar_t* current;  ///< with that of the current user
  };
  /// Without a current user it is the job user in upper case.
  static int LookUp(const UserMap& users, const LookupTexts& texts, const CString& job_user,
                    const CString* current_user, CString& account);

  static CEnableUsersAccessor* s_pInstance;

  CString m_strListPath;
  /// Nanoseconds since 1970 of the last write to what was loaded; 0 when loading failed.
  std::int64_t m_ftLastWrite = 0;
  UserMap m_mapChangeUsers;
  UserMap m_mapLogOnlyUsers;
  UserMap m_mapPcLogonQueryUsers;
};

}  // namespace vk::tq
