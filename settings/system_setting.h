/// The site-wide system settings.
#pragma once

#include <string_view>

#include "platform/stdio_file.h"
#include "platform/types.h"

namespace vk::tq {

/// Reads the system settings from a comma-separated text file and offers each through a getter. An
/// object belongs to one thread at a time; there is one load for each.
///
/// Each line of the file is a row of fields, separated by commas and optionally quoted with double
/// quotes: the item key, a number, a text. A row whose key is none of the items is passed over;
/// nothing is trimmed; of several rows of one item the last wins. The first blank line ends the
/// file. Numbers are read as `_wtoi` does, and a row that is too short gives 0 or an empty text:
/// the default is not kept. A quoted field ends with its line at the latest.
class TQ_EXPORT CSystemSetting : public CStdioFile {
 public:
  /// The path of the file and the flags to open it with. All settings hold their defaults; the file
  /// stays closed.
  CSystemSetting(const wchar_t* path, unsigned int flags);

  /// Opens the file, which stays open, and loads all rows. 0 when it was opened and read to its
  /// end, -1 when it could not be opened: then the settings keep their defaults. -1 as well when it
  /// could not be read further: then the rows before are loaded. The last error says why. The
  /// current row is the last one then, none if there was none.
  ///
  /// Log, as "CSystemSetting::LoadFile": "START" and, unless the result is -1, "END" at level 0;
  /// each row's key at level 1, number 101300010; at the end each setting at level 2, number
  /// 101300020, with the values in one column.
  int LoadFile();

  /// A getter for each item of system_setting_items.h, for example `int GetEmergencyFlag() const`
  /// and `CString GetNupSetting() const`. They are valid before and after LoadFile and cannot fail.
#define TQ_NUMBER(item, getter, type, ...) \
  type getter() const { return getter##_; }
#define TQ_TEXT(item, getter, ...) \
  CString getter() const { return getter##_; }
#define TQ_TRAY(...)
#include "settings/system_setting_items.h"

  /// The use value of tray 1, 2 or 3; -1 for any other number. The call is logged at level 2,
  /// number 101300110.
  int GetUseTray(int tray) const;
  /// The display name of tray 1, 2 or 3; empty for any other number. The call is logged likewise.
  CString GetNameTray(int tray) const;

 protected:
  /// Reads the next line into the current row. 0, with an empty row, at the end of the file or at a
  /// blank line.
  int ReadCSV();

  /// Writes a text and a line feed. Close tells whether all could be written.
  void WriteCSV(const wchar_t* text);

  /// A field of the current row, counted from 0. 0 and an empty text when there is none.
  int GetDataStr(CString& text, int field) const;

  /// Copies a field, cut to `limit` characters (at most 255), and a terminator into a buffer, which
  /// has room for one more than the limit. The number of characters copied: with a limit of 0 the
  /// terminator alone. 0 as well, and the buffer is left alone, when there is no such field, it is
  /// empty or the limit is negative.
  int GetDataStr(wchar_t* buffer, int limit, int field) const;

  /// A field as a number. 0 when there is no such field, with a line at level 1, number 101306.
  int GetDataNum(int field) const;

  /// How many fields of the current row are not empty.
  int GetSize() const;

 private:
  static constexpr wchar_t SEPARATOR_CHAR = L',';
  static constexpr wchar_t QUOTE_CHAR = L'"';

  struct Item;
  struct Items;

  bool ReadRow();
  int SplitLine(std::wstring_view line);
  CString& EmptyField(int field);
  void StoreRow();
  void StoreItem(const Item& item);
  void LogSettings() const;

  CString path_;
  unsigned int flags_;
#define TQ_NUMBER(item, getter, type, default_value, ...) type getter##_ = default_value;
#define TQ_TEXT(item, getter, default_value, ...) CString getter##_ = default_value;
#define TQ_TRAY(item, tray, use, use_label, name, name_label) \
  int GetUseTray##tray##_ = use;                              \
  CString GetNameTray##tray##_ = name;
#include "settings/system_setting_items.h"
  CStringArray row_;
};

}  // namespace vk::tq
