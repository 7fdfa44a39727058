/// Display texts in the user's language.
#pragma once

#include <functional>
#include <map>
#include <string_view>

#include "platform/types.h"

namespace vk::tq {

/// Constructing one reads a language file into a table that the whole process shares and that stays
/// until it ends; from then on the static operations fetch texts by their keys, with no object in
/// hand. There is no lock: a program constructs its manager before any of its threads asks for a
/// text. Lookups alone may run on any number of threads.
///
/// The file is `lang_jp.dat` or `lang_en.dat` in the folder `lang` beside the running program:
/// UTF-8 text, one entry a line, key, "=", value, nothing trimmed. The first "=" ends the key. A
/// line without one, or that begins with it, is no entry; there are no comments, and a byte-order
/// mark would belong to the first key. Of several entries of one key the first wins. A line ends at
/// a line feed, and a carriage return in front of that is no part of it; a NUL ends what is seen of
/// a line. Bytes that are no UTF-8 become U+FFFD.
///
/// A missing file, a failed load or a missing key gives empty texts.
class TQ_EXPORT CLangageManager {
 public:
  /// Takes the first language, Japanese, and loads its file. A further object loads the file again:
  /// the table keeps what it holds and gains new keys, and whether GetLangResource gives texts
  /// follows the latest attempt.
  CLangageManager();

  /// Drive and directory of the running program, with the last backslash; empty when the platform
  /// gives no file name.
  CString GetAppPath();

  /// "lang_", the language word and ".dat".
  CString GetLangFileName();

  /// Loads the language file. When there is none: a line at level 5, number 130212, with the path;
  /// when the load fails: level 5, number 130211; both "CLangageManager::SetLangList".
  void SetLangList();

  /// Loads the file of that path into the table. 1, also when it cannot be opened or read to its
  /// end; 0 after an exception, with a line at level 3, number 130213,
  /// "CLangageManager::GetHashTbl", and what was loaded until then stays.
  int GetHashTbl(const wchar_t* path);

  /// The text of a key, compared by character codes, or of the key that a number is in decimal.
  /// Empty when it is missing or the latest load failed.
  static CString GetLangResource(const wchar_t* key);
  static CString GetLangResource(int key);

  /// The same, with each "<\n>" replaced by a carriage return and a line feed.
  static CString GetLangResourceDecodeNewLine(const wchar_t* key);
  static CString GetLangResourceDecodeNewLine(int key);

  /// The text of a key, whether the latest load failed or not.
  static CString GetDispMessage(const wchar_t* key);

 protected:
  /// 0: "jp", 1: "en", any other: no language word.
  int language_ = 0;

 private:
  friend class LangageManagerPeer;  // empties the table between the inputs of a fuzz target

  using MessageTable = std::map<CString, CString, std::less<>>;

  static MessageTable& Messages();
  static void AddEntry(std::string_view line);

  /// 1 when the latest SetLangList succeeded.
  static int is_loaded_;
};

}  // namespace vk::tq
