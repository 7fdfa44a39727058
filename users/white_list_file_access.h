/// The printer exclusion list: the printers that the suite leaves alone.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "platform/types.h"

namespace vk::tq {

/// A list in memory of entries of a kind and a name, read from and written to "WhiteList.dat".
///
/// The kind is a decimal number as text, read as _wtoi reads it (a text without one is 0); it
/// chooses the attribute of a printer that the name is held against:
///
///   0           the first, as a whole without regard to case; or, when the name has a "*" in it,
///               as a text that begins with what stands before the first "*", with regard to case.
///               White space at both ends of the name is no part of it. A name that is empty or
///               begins with "*" matches nothing.
///   1, 2, 3     the second, the third, and the fourth, which is the driver's name: the name as it
///               stands, with regard to case, is contained in it. An empty name is contained in
///               every text.
///   any other   nothing
///
/// On disk: two lines for each entry, kind and name, each with CR LF at its end, enciphered by
/// CCrypto::CryptingStringWriter. A CR or LF alone is an ordinary character of a name; a name with
/// both, one after the other, does not come back as it was.
///
/// No mutex is taken here: callers hold GetPrinterWhiteListMutex around Read and Write. An object
/// serves one thread at a time. No operation throws, except for want of memory.
class TQ_EXPORT CWhiteListFileAccess {
 public:
  CWhiteListFileAccess() = default;
  ~CWhiteListFileAccess() = default;

  /// Appends the entries of the file in a directory, which is given without a backslash at its end,
  /// and sets m_bMatchAll to 0. A last name needs no line end; a kind that no line end follows is
  /// no entry.
  ///
  /// 1, or 0 with one line from "CWhiteListFileAccess::Read":
  ///   110800010, level 2   there is no file
  ///   110800020, level 5   it cannot be read
  ///   110800030, level 5   exception, such as a key file that is not valid; with the last error
  int Read(const CString& directory);

  /// Writes all entries to the file, in place; the directory is not made. 1, or 0 without a line;
  /// before the first byte has been written, the old file is left as it was.
  int Write(const CString& directory) const;

  /// Appends an entry, as it is.
  void Add(const CString& kind, const CString& name);

  /// Whether an entry matches a printer with these attributes, 1 or 0. The suite's own printer,
  /// whose driver's name contains "Velkorandia Tessa Loquin Driver", never matches, not even with
  /// m_bMatchAll.
  int IsWhitePrinter(const CString& first, const CString& second, const CString& third,
                     const CString& driver_name) const;

  /// The kinds and the names of the entries, in file order. Entries are added by Add and Read
  /// alone, which also prepare them for IsWhitePrinter.
  const CStringArray& GetKinds() const { return m_arrKinds; }
  const CStringArray& GetNames() const { return m_arrNames; }

 private:
  enum class Match : unsigned char { kContained, kWhole, kPrefix };

  /// An entry that can match: what is left of it to do for a question.
  struct Rule {
    Match match;
    unsigned char attribute;  ///< which of the four is looked at
    std::size_t name;         ///< index of the name; `size` characters from `begin` on count
    std::size_t begin;
    std::size_t size;
  };

  void Prepare(std::size_t index);
  bool Matches(const Rule& rule, std::wstring_view attribute) const;

  CStringArray m_arrKinds;
  CStringArray m_arrNames;

 public:
  /// While it is not 0, every printer but the suite's own counts as listed. For programs to set.
  int m_bMatchAll = 0;

 private:
  std::vector<Rule> rules_;
};

}  // namespace vk::tq
