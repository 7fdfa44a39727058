/// Small XML documents in memory (Extensible Markup Language 1.0, Fifth Edition, with Namespaces).
///
/// Parsing is strict: a document with a document type declaration does not parse, nothing outside
/// the text is looked at, and no entity but the five that XML itself has is known. A document whose
/// elements are nested more than 256 deep does not parse; texts may be of any length below 2 GiB.
/// White space between elements is no content; inside an element without child elements it is kept
/// to the character. Nothing is printed.
///
/// What is written reads back equal, line ends included: a carriage return is written as a
/// character reference. The texts of a document are wiped when it goes.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/error.h"
#include "platform/secure_memory.h"

namespace vk::tq {

/// What a refused operation throws. The code is an HRESULT-like value.
class XmlError : public std::exception {
 public:
  static constexpr std::uint32_t kUnspecified =
      0x80004005;  ///< a path that is none; a failure without a name
  static constexpr std::uint32_t kOutOfMemory = 0x8007000E;
  static constexpr std::uint32_t kInvalidArgument = 0x80070057;  ///< no document, no parent
  static constexpr std::uint32_t kInvalidName = 0xC00CE504;      ///< not the name of an element
  static constexpr std::uint32_t kInvalidCharacter =
      0xC00CE508;  ///< a character that XML cannot hold

  explicit XmlError(std::uint32_t code) : code_(code) {}
  /// The last error as an XmlError, after an operation that failed with it.
  static XmlError FromLastError() { return XmlError(0x80070000 | (GetLastError() & 0xFFFF)); }

  std::uint32_t code() const { return code_; }
  const char* what() const noexcept override { return "XML"; }

  /// The system's text for the code, without a line break at its end. Where it has none, "IDispatch
  /// error #" and a number for the codes that an interface is free to define (above 0x80040200, up
  /// to 0x8004FFFF), and "Unknown error 0x" with the code for all others.
  std::wstring Description() const;

 private:
  std::uint32_t code_;
};

/// An element of a document; valid as long as the document lives.
class XmlElement {
 public:
  /// The name as the tag has it.
  std::wstring name() const;
  /// The text of the element and of everything in it.
  std::wstring text() const;
  /// The child elements in document order; comments and other nodes are passed over.
  std::vector<XmlElement> children() const;
  /// The elements at a path of element names joined with "/", from the children of this element
  /// down, in document order. Throws XmlError for a path that is none.
  std::vector<XmlElement> Select(std::wstring_view path) const;

  /// Replaces everything in the element by a text. Throws XmlError, and changes nothing, for a text
  /// that XML cannot hold.
  void SetText(std::wstring_view text);
  /// Adds a new element with a text at the end. Throws XmlError, and changes nothing, for a name or
  /// a text that XML cannot hold.
  XmlElement Append(std::wstring_view name, std::wstring_view text);

 private:
  friend class XmlDocument;
  explicit XmlElement(void* node) : node_(node) {}
  void* node_;
};

class XmlDocument {
 public:
  /// An empty document, without a root.
  XmlDocument();
  XmlDocument(const XmlDocument&) = delete;
  XmlDocument& operator=(const XmlDocument&) = delete;
  XmlDocument(XmlDocument&&) noexcept;
  XmlDocument& operator=(XmlDocument&&) = delete;
  ~XmlDocument();

  /// Replaces the document by a new one with a root element of that name. Throws XmlError for a
  /// name that is none.
  XmlElement CreateRoot(std::wstring_view name);

  /// Replaces the document by what the text holds; the encoding that its declaration names is
  /// ignored. False (13), and an empty document, when the text does not parse.
  bool Parse(std::wstring_view text);
  /// The same for the bytes of a file, in the encoding that its mark or its declaration names;
  /// UTF-8 without either. "Shift_JIS" is code page 932. The document ends at the file's first NUL,
  /// where a writer that was killed has left something behind it. False as well, with the file's
  /// error, when the file cannot be read.
  bool Load(const std::wstring& path);

  std::optional<XmlElement> root() const;

  /// The elements at a path of element names joined with "/", from the document down, in document
  /// order. Throws XmlError for a path that is none.
  std::vector<XmlElement> Select(std::wstring_view path) const;
  /// The same from the children of some elements of the document down, one after the other.
  std::vector<XmlElement> SelectBelow(const std::vector<XmlElement>& parents,
                                      std::wstring_view path) const;

  /// The whole document with no white space added, behind a line with a declaration of version 1.0.
  /// That line names "Shift_JIS", wherever the document came from: it says in what encoding the
  /// document would be saved, and Parse ignores it. A document without a root gives an empty text.
  std::wstring ToText() const;

  /// The whole document as bytes in code page 932, behind a line with the same declaration. A
  /// character that the code page lacks is written as a character reference; where XML allows none,
  /// in a name or a comment, XmlError is thrown. Elements are indented by two blanks for each
  /// level, lines end with a line feed; nothing is added inside an element that holds text.
  SecureBytes ToIndentedShiftJis() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vk::tq
