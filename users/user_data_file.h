/// What the two user data files have in common: one small record about one user, kept between the
/// operations in an object and on disk in an enciphered XML file.
#pragma once

#include <functional>
#include <optional>
#include <span>

#include "foundation/file_lock.h"
#include "platform/types.h"

namespace vk::tq {

/// What tells one kind of user data file from another.
template <class Record>
struct UserDataFileKind {
  struct Field {
    const wchar_t* element;  ///< the XML element that holds it
    CString Record::*member;
  };

  const wchar_t* file_name;
  std::span<const Field> fields;  ///< in the order of the elements
  bool expires;  ///< whether ReadAll and Delete take a stale file for a missing one

  /// The functions that the log lines name.
  const wchar_t* constructor;
  const wchar_t* read_all;
  const wchar_t* write_all;
  const wchar_t* delete_file;

  /// The texts of the log lines.
  const wchar_t* keep_seconds;    ///< with %d for the seconds
  const wchar_t* not_deciphered;  ///< 130301
  const wchar_t* not_enciphered;  ///< 130302
  const wchar_t* no_xml;          ///< 130305
  const wchar_t* write_broke;     ///< 130306
  const wchar_t* not_parsed;      ///< 130307
  const wchar_t* read_broke;      ///< 130308
  const wchar_t* delete_broke;    ///< 130309
  const wchar_t* no_path;         ///< 130310
  const wchar_t* no_file;         ///< 130311
};

/// The base of CUserDataFileAccess and CSharedUserDataFileAccess.
///
/// On disk: the text `Velkorandia` / `UserData` / one element for each field, as
/// CXml::CreateXmlString01 makes it, enciphered by CCrypto::CryptingStringWriter. The record is not
/// interpreted: what was set is what is read back, whatever characters it holds that XML can.
///
/// ReadAll, WriteAll and Delete hold the lock of the file for their whole work, across processes,
/// and wait for it for 60000 ms at most. No operation throws. An object serves one thread at a
/// time.
///
/// An operation that fails gives 0 and leaves one line at level 5 (130309: level 4) with the
/// class's own text; the lines marked with a star carry the last error as code:
///
///   130301   ReadAll    the file cannot be read
///   130302   WriteAll   the file cannot be written; second text: the errno value
///   130303*  all        the lock cannot be opened
///   130304*  all        the lock was not free in time, or its last owner ended without a release
///   130305   WriteAll   the record cannot be put into XML
///   130306*  WriteAll   exception, such as a key file that is not valid
///   130307   ReadAll    the XML cannot be read
///   130308*  ReadAll    exception
///   130309*  Delete     the file cannot be removed
///   130310   ReadAll    there is no path
///   130311   ReadAll    there is no file
template <class Record>
class TQ_EXPORT UserDataFile : public CObject, protected LockOperations {
 public:
  /// Reads the file into the record. A text that is no XML gives a record of empty fields, and an
  /// element that is missing an empty field. On failure the record is unchanged.
  int ReadAll();

  /// Writes the record to the file, in place, and makes the directory with all its parents when it
  /// is missing. A process that is killed leaves the old or the new record. A directory that cannot
  /// be made gives 0 without a line.
  int WriteAll();

  /// Removes the file. 1 as well when there is none; the lock is not taken then.
  int Delete();

  /// Chooses the data folder of all users: GetSpecialFolderPath(35) +
  /// "\ORV-INC\Velkorandia\Tessaloquin\data\". Nothing is made on disk.
  void SetServiceDataDirectry();

  /// The record, to be read and changed.
  Record& GetUserFileData() { return m_userData; }
  void SetUserFileData(const Record& data) { m_userData = data; }

  CString& GetUserID() { return m_userData.UserID; }
  CString& GetUserAccount() { return m_userData.UserAcount; }
  CString& GetPrintUserNo() { return m_userData.PrintUserNo; }
  CString& GetUserGroupNo() { return m_userData.UserGroupNo; }

  /// A null text is an empty one.
  void SetUserID(const wchar_t* text) { Set(m_userData.UserID, text); }
  void SetUserAccount(const wchar_t* text) { Set(m_userData.UserAcount, text); }
  void SetPrintUserNo(const wchar_t* text) { Set(m_userData.PrintUserNo, text); }
  void SetUserGroupNo(const wchar_t* text) { Set(m_userData.UserGroupNo, text); }

 protected:
  /// Reads m_nKeepSeconds from the common Client.ini and logs it at level 2. The kind is kept by
  /// reference.
  explicit UserDataFile(const UserDataFileKind<Record>& kind);

  /// Runs an operation under the lock of the file, as LockOperations::RunLocked does.
  using Work = std::function<void(int&)>;
  virtual int RunUnderLock(const ExceptionLine& line, const Work& work,
                           int source_line = __builtin_LINE()) = 0;

  /// 1 when there is a file, and, if it has to be fresh, when its last write is m_nKeepSeconds ago
  /// at most, in whole seconds. A last write in the future counts as fresh. Takes no lock.
  int IsThere(bool has_to_be_fresh) const;
  /// The same; nothing when the file's status cannot be told.
  std::optional<bool> Presence(bool has_to_be_fresh) const;

  /// Chooses the product's data folder below one of the special folders.
  void SetProductDirectory(int special_folder);
  /// Chooses a directory, which ends in a backslash.
  void SetDirectory(CString directory);

  static void Set(CString& field, const wchar_t* text) { field = text == nullptr ? L"" : text; }

  CString m_strDataDir;   ///< ends in a backslash
  CString m_strFilePath;  ///< m_strDataDir and the file's name
  Record m_userData;
  /// How long a file counts as fresh, in seconds: "SharedTimeout" of the section "Setting", or 10.
  /// Any number is taken; a negative one lets only files of the future pass.
  int m_nKeepSeconds;

 private:
  void ReadRecord(int& result);
  void WriteRecord(int& result) const;
  void RemoveRecord(int& result) const;
  bool MakeDirectory() const;

  const UserDataFileKind<Record>& kind_;
};

}  // namespace vk::tq
