/// The static utilities of the library.
#pragma once

#include "platform/types.h"

namespace vk::tq {

/// A class without state: every operation is static, may run on any thread, and throws nothing of
/// its own.
class TQ_EXPORT CUtil {
 public:
  /// The path of a shell folder, without a backslash at its end: 35 is the application data of all
  /// users, 26 that of the user. Any other number gives "C:\Documents and Settings\All
  /// Users\Application Data". Never empty.
  static CString GetSpecialFolderPath(int folder);

  /// Drive and directory of the running program, with the last backslash; empty when they cannot be
  /// had.
  static CString GetExePath();

  /// A value of an INI file, at most 259 characters; empty when it is missing.
  static CString GetIniString(const CString& section, const CString& key, const CString& file);

  /// The integer that a value of an INI file begins with; the default when the key is missing.
  static int GetIniInt(const CString& section, const CString& key, const CString& file,
                       int default_value);

  /// Narrow text of a code page (0: the ANSI code page, 932, 65001, ...) as wide text, up to the
  /// first NUL. Empty when the text is null or there is no such code page.
  static CString ConvertToUnicode(int code_page, const char* text);

  /// Appends one field to a line in comma-separated form. An item with a line feed, a double quote
  /// or a comma is put between double quotes, with its own doubled. The comma in front depends on
  /// whether the line is empty, so an empty first field leaves no trace.
  static void GetCsvItem(const CString& item, CString& line);

  /// 1 when each of the first `length` characters lies from 33 to 126. A length below 1 gives 0,
  /// and so does a text that ends before.
  static int AscStringCheck(const wchar_t* text, int length);

  /// The text with & < > " % written as &amp; &lt; &gt; &quot; &#37;.
  static CString ConvertToDBParamString(const CString& text);

  /// The type of the system: 0 Windows 95, 1 98, 2 Me, 3 NT 4.0, 4 2000, 5 XP, 6 Server 2003, 7
  /// everything else.
  static unsigned long GetOSType();
  static int IsWin2000();  ///< 1 when the type is 4
  static int IsXp();       ///< 1 when the type is 5
  static int IsVista();    ///< 1 when the type is 7: on every later system as well

  /// The position of the point that the extension of a path begins with, or -1: the last point of
  /// the last component. A path whose directory, name or extension has 256 characters or more gives
  /// -1.
  static int GetExtPos(const CString& path);

  /// Reduces a path to the bare file name: cuts off what stands up to the last backslash, then the
  /// extension.
  static void GetFileName(CString& path);

  /// Gives an account full access to a file or directory, in front of what that inherits from its
  /// folder, and drops the account's own earlier entries.
  ///
  /// `account` is a user or group of this machine. Mode 1 is for files; any other mode also lets
  /// what is made in a directory inherit the access. 1 on success. On failure 0 and one line: level
  /// 2, number 0, "CUtil::SetFileAccess", with the last error as code and a text for the step that
  /// failed ("SID取得失敗" when there is no such account).
  static int SetFileAccess(const CString& path, const wchar_t* account, int mode);
};

/// The names of the files in a directory that match a pattern with * and ?; directories are left
/// out. The array is emptied first. An empty directory name gives 1 and an empty array; an empty
/// pattern stands for "*". 0 when nothing matches or the directory cannot be searched; unless the
/// error is 2 that leaves one line: level 5, number 140542, "GetFileList2", with the error as code,
/// "ファイルの一覧取得に失敗しました。".
TQ_EXPORT int GetFileList2(const CString& directory, const CString& pattern, CStringArray& files);

/// 1 when the status is one of the following numbers, which -1 ends. A status of -1 matches
/// nothing.
TQ_EXPORT int IsMatchStatusMain(int status, ...);

}  // namespace vk::tq
