/// Reading and writing the small XML documents of the job and user files.
#pragma once

#include "platform/types.h"
#include "storage/row_array.h"

namespace vk::tq {

class XmlDocument;
class XmlElement;

/// Knows the two outer levels of a document, a root element and record elements in it, and reads
/// and writes the leaf elements of the records by name. It holds names, never a document: each
/// operation takes a text, and drops the document that it made of it. An object belongs to one
/// thread.
///
/// Texts are wide; the encoding that a declaration names has no effect on them. White space between
/// elements is no content, and white space in a leaf is kept to the character (XML 1.0, Fifth
/// Edition; docs/file-formats.md shows the form). For a reading operation, a text that does not
/// parse is a document without elements. Results are 0 for success and 1 for failure, and finding
/// nothing is a success.
///
/// Root, record and element names are names without a prefix (NCNames of Namespaces in XML 1.0). In
/// a reading operation a name may also be a path of names joined with "/"; anything else is a
/// failure. In a writing one, a value with a character that XML cannot hold is a failure too.
///
/// A reading operation that fails leaves two lines: at level 3 its own number and message, with a
/// description of the error, and at level 2, number 130102, "XMLデータ：" with the whole text. A
/// writing operation leaves the first alone. Where an array of values is too short, and for any
/// other exception, the placeholders of the message stay empty.
///
/// Files are written in place (docs/decisions/in-place-writing.md), and locked meanwhile: no other
/// writer comes in between, and a reader of this library finds the old or the new document. One that
/// another program writes for more than 10 s cannot be written. InsertXMLValue does not hold the lock
/// from its reading to its writing: of two at one time, one can be lost.
class TQ_EXPORT CXml {
 public:
  explicit CXml(CString root_name = L"Velkorandia", CString record_name = L"QTL");

  // ---- Reading ----

  /// The text of the first element of that name in any record. Without one, value keeps what it
  /// held. Failure: 130101.
  int SelectXMLStringValue01(CString xml, CString name, CString& value);

  /// The same below another parent than the record: a path of element names joined with "/".
  /// Failure: 130103.
  int SelectXMLStringValue(const CString& xml, const CString& parent_path, const CString& name,
                           CString& value);

  /// Appends the text of every element of that name. Failure: 130101.
  int SelectXMLStringValue(const CString& xml, const CString& name, CStringArray& values);

  /// For every element of those names, sets the map's entry for its name to its text; the last of
  /// one name wins, and a name that finds nothing makes no entry. The text is parsed once. Failure:
  /// 130104.
  int SelectXMLStringValue(const CString& xml, const CStringArray& names,
                           CMapStringToString& values);

  /// The same, but the first element of a name wins, as in SelectXMLStringValue01: for a caller
  /// that would otherwise have the text parsed once for each name. Failure: 130101.
  int SelectFirstXMLStringValue(const CString& xml, const CStringArray& names,
                                CMapStringToString& values);

  /// Appends the text of every element of those names, grouped by name in the order of the names.
  /// Failure: 130101.
  int SelectXMLStringValue03(CString xml, const CStringArray& names, CStringArray& values);

  /// Appends one row for every record, with the names and texts of its child elements. Failure:
  /// 130105.
  int SelectXmlData(CString xml, RowArray* rows);

  /// The text of one column of one row; empty when the row has no such column. No rows at all, or a
  /// row number beyond the last, leave a line at level 6 (130113, 130114) and throw its message as
  /// a `wchar_t*`; a negative row throws CInvalidArgException.
  static CString GetRowData(RowArray* rows, int row, CString key);

  // ---- Writing ----

  /// A new document of one record with an element for each name and value, in their order. Failure:
  /// an empty text, and 130106.
  CString CreateXmlString01(const CStringArray& names, const CStringArray& values);

  /// A new document with one record for each row. Failure: an empty text, and 130106.
  CString CreateXmlString(RowArray& rows);

  /// The same, also saved to a file, indented and in Shift_JIS. On failure (130106, or 130108 when
  /// the file cannot be written) the result is 1, and xml and an existing file are unchanged.
  int CreateXmlString(CString path, RowArray& rows, CString& xml);

  /// Adds an element at the end of every record of a text. A text that does not parse is left as it
  /// is: 1, and 130111, as for any other failure.
  int InsertXMLValueText(CString& xml, const CString& name, const CString& value);
  /// Each pair in turn, also behind one that failed. 1 when one failed; 130112 for a values array
  /// that is shorter than names, after the pairs before it.
  int InsertXMLValueText(CString& xml, const CStringArray& names, const CStringArray& values);

  /// Adds an element at the end of every record of a plain XML file and saves it indented, in
  /// Shift_JIS. A file that is missing or does not parse is left as it is: 1, and 130111. So is one
  /// that cannot be written: 1, and 130108.
  int InsertXMLValue(const CString& path, const CString& name, const CString& value);
  /// Each pair in turn, also behind one that failed; 1 when one failed. A values array that is
  /// shorter than names throws CInvalidArgException after the pairs before it have been saved.
  int InsertXMLValue(const CString& path, const CStringArray& names, const CStringArray& values);

  /// Replaces the texts of the named elements of the first record; names that it lacks are passed
  /// over. Without a record: 1, and no line. A text that does not parse: 1, and 130111. xml is
  /// unchanged then.
  int UpdateXMLValueText(CString& xml, const CStringArray& names, const CStringArray& values);

 private:
  friend class XmlTestAccess;

  static XmlElement AddNode(XmlDocument& document, XmlElement& parent, const CString& name,
                            const CString& value);
  static void AddNodes(XmlDocument& document, XmlElement& parent, const CStringArray& names,
                       const CStringArray& values);
  void AddRows(XmlDocument& document, const RowArray& rows);
  int SaveIndentXML(CString path, XmlDocument& document);
  void WriteDescriptionXML(XmlDocument& document, XmlElement& parent, const CStringArray& names,
                           const CStringArray& values);

  CString m_strRootName;
  CString m_strRecordName;
  CString m_strRecordPath;
};

}  // namespace vk::tq
