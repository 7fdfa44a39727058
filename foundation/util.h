/// The static utilities of the library.
#pragma once

#include "platform/types.h"

namespace vk::tq {

/// A class without state: every operation is static, may run on any thread, and throws nothing of
/// its own.
class TQ_EXPORT CUtil {
 public:
  /// The path of a shell folder, without a backslash at its end: 35 is the application data of all
  /// users, 26 that of the user. Any other number, and a folder that cannot be had, gives
  /// "C:\Documents and Settings\All Users\Application Data". Never empty.
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
  /// failed ("SID取得失敗" when there is no such account, or null is given).
  static int SetFileAccess(const CString& path, const wchar_t* account, int mode);

  // ---- Time and logon ----

  /// Whether more time has gone by than a registration may last: 1 expired, 0 not.
  ///
  /// `tick` is an earlier reading of the tick counter, in milliseconds; a reading that is greater
  /// than the present one was taken before the counter last wrapped at 32 bits. `days` below 10000
  /// is a number of days, at most 30; from 10000 up, a ten-thousandth of it, cut, is a number of
  /// minutes. A limit that is negative or does not fit 32 bits is 0xFFFFFFFF milliseconds. The
  /// limit itself is not yet expired.
  static int isExpiredDays(int days, std::uint64_t tick);

  /// Whether a registration has ended: 1 expired or not valid, 0 valid. `first` and `second` are
  /// the logon time that was stored and the present one: when either is empty, or they differ
  /// without regard to case, it has ended. `tick` is the tick count that was stored, in decimal
  /// digits; a text that is not wholly a number below 0xFFFFFFFF counts as expired, an empty one as
  /// 0. With `days` 999 nothing is looked at, the result is 0; with 0 only the logon counts.
  /// Otherwise isExpiredDays decides.
  static int isUserRegistExpired(const CString& first, const CString& second, const CString& tick,
                                 int days);

  /// The local time at which the user's login session began, as 14 digits (year, month, day, hour,
  /// minute, second), the same in every process of the session. Empty on failure, with one line:
  /// level 2, number 0, "CUtil::GetLogonDateTimeFromLSA", with the last error as code and a text
  /// for the step that failed.
  static CString GetLogonDateTimeFromLSA();

  // ---- Patterns ----

  /// The error of an empty pattern.
  static constexpr int ERR_REGEX_EMPTY = -1;

  /// The first place of a text that matches a regular expression of the ECMAScript grammar, case
  /// sensitive. 1, with the whole match as the result and error 0; a text without a match gives an
  /// empty result. An empty pattern gives 0, the source as the result and ERR_REGEX_EMPTY, without
  /// a line. A pattern ends at its first NUL.
  ///
  /// An error of the engine gives 0, the source as the result, the engine's code
  /// (std::regex_constants::error_type) as the error, its description as the message, and one line:
  /// level 5, number 0, "CUtil::ExtractPatternString",
  /// "文字列から正規表現パターンに一致した文字列を抽出する際にエラーが発生しました。(%d: %s)".
  /// No pattern and no text can exhaust the stack or run without end: the
  /// engine is stopped, with error_space, error_stack or error_complexity
  /// (docs/decisions/pattern-search.md).
  static int ExtractPatternString(const CString& source, const CString& pattern, CString& result,
                                  int& error);
  static int ExtractPatternString(const CString& source, const CString& pattern, CString& result,
                                  int& error, CString& message);

  // ---- Image log ids ----

  /// Cuts an image log id out of a text: the 36 characters in front of the first delimiter go to
  /// `id` (a buffer of at least 37 characters), and they and the delimiter are removed from the
  /// text, in place. 1 when that was done. 0, and nothing is changed, when a pointer is null, when
  /// the text has no delimiter or fewer than 36 characters in front of it, or when
  /// GetImageLogIDDelimiter gives 0; the last leaves a line: level 2, number 101414,
  /// "CUtil::SepareteImaglogID", "イメログID取得処理無効で実施。".
  static int SepareteImaglogID(wchar_t* text, wchar_t* id);

  /// The delimiter behind an image log id, put into a buffer of at least 64 characters: the
  /// registry value ImageLogIDDelimiter under
  /// "SOFTWARE\ORV-INC\Velkorandia\Tessaloquin\Option" of the local machine, with Wow6432Node
  /// behind SOFTWARE on an x64 processor. 1; or 0 and "#SI#" when the value is missing, empty or
  /// longer than 63 characters. 0 when the pointer is null.
  static int GetImageLogIDDelimiter(wchar_t* delimiter);

  // ---- The machine ----

  /// Appends the dotted IPv4 addresses of the machine's interfaces, the loopback interface
  /// included, in the system's order. 1, also when there is none. On failure 0 and one line: level
  /// 2, "CUtil::GetIPList", number 101413 when the number of addresses cannot be had or memory
  /// lacks, 101412 when the addresses cannot.
  static int GetIPList(CStringArray& addresses);

  /// 1 when the system's version is 6.2 or later. `not_workstation`, when it is not null, becomes 1
  /// on a system that is no workstation, else 0. Leaves one line at level 3, number 0,
  /// "CUtil::IsWin8orLater". When the version cannot be had: 0, `not_workstation` is left alone,
  /// and the line has level 5.
  static int IsWin8orLater(int* not_workstation);
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
