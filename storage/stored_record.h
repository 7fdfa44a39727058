/// A record as it lies on disk: texts by name, in an enciphered XML document of one record.
#pragma once

#include "platform/types.h"

namespace vk::tq {

/// What the file classes of jobs/ and users/ keep their records with. The document has the root
/// "Velkorandia" and one record element, with an element for each text; it is made and read by
/// CXml, and enciphered and deciphered by CCrypto, whose exceptions pass through. Nothing is logged
/// but what CXml logs. The texts are wiped when the object goes.
///
/// Writing: Add each name with its text, in the order of the elements; then Write.
/// Reading: Add each name; then Read, and Find what was there.
class StoredRecord {
 public:
  enum class Result {
    kDone,
    kNoXml,        ///< the texts make no document, or the document cannot be searched
    kFileFailure,  ///< the file cannot be read or written; last_errno tells why
  };

  explicit StoredRecord(const wchar_t* record_name) : record_name_(record_name) {}
  StoredRecord(const StoredRecord&) = delete;
  StoredRecord& operator=(const StoredRecord&) = delete;
  ~StoredRecord();

  void Add(const wchar_t* name) { names_.Add(name); }
  void Add(const wchar_t* name, const CString& text);

  /// What cannot be made or enciphered leaves the file as it was: an empty text never takes the
  /// place of a record.
  Result Write(const CString& path);

  /// Of several elements of one name, which one counts.
  enum class Duplicates { kLastCounts, kFirstCounts };

  /// A text that is no XML counts as a document without elements.
  Result Read(const CString& path, Duplicates duplicates = Duplicates::kLastCounts);

  /// The text of an element that Read has found; null when there was none.
  const CString* Find(const wchar_t* name) const;

  /// The errno value of the last file failure.
  int last_errno() const { return last_errno_; }

 private:
  const wchar_t* record_name_;
  CStringArray names_;
  CStringArray texts_;
  CMapStringToString found_;
  int last_errno_ = 0;
};

}  // namespace vk::tq
