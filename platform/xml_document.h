/// Small XML documents in memory (Extensible Markup Language 1.0, Fifth Edition, with Namespaces).
///
/// Parsing is strict: a document with a document type declaration does not parse, nothing outside
/// the text is looked at. White space between elements is no content; inside an element without
/// child elements it is kept to the character. Nothing is printed.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
      0xC00CE508;                                           ///< a character that XML cannot hold
  static constexpr std::uint32_t kWriteFault = 0x8003001D;  ///< a file that cannot be written

  explicit XmlError(std::uint32_t code) : code_(code) {}
  std::uint32_t code() const { return code_; }
  const char* what() const noexcept override { return "XML"; }

 private:
  std::uint32_t code_;
};

/// An element of a document; valid as long as the document lives.
class XmlElement {
 public:
  std::wstring name() const;
  /// The text of the element and of everything in it.
  std::wstring text() const;
  /// The child elements in document order; comments and other nodes are passed over.
  std::vector<XmlElement> children() const;

  /// Replaces everything in the element by a text.
  void SetText(std::wstring_view text);
  /// Adds a new element with a text at the end. Throws XmlError for a name or a text that XML
  /// cannot hold.
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
  XmlDocument(XmlDocument&&) noexcept;
  XmlDocument& operator=(XmlDocument&&) noexcept;
  ~XmlDocument();

  /// Replaces the document by a new one with a root element of that name. Throws XmlError for a
  /// name that is none.
  XmlElement CreateRoot(std::wstring_view name);

  /// Replaces the document by what the text holds; the encoding that its declaration names is
  /// ignored. False, and an empty document, when the text does not parse.
  bool Parse(std::wstring_view text);
  /// The same for the bytes of a file, in the encoding that its mark or its declaration names.
  /// "Shift_JIS" is code page 932. False as well when the file cannot be read.
  bool Load(const std::wstring& path);

  std::optional<XmlElement> root() const;

  /// The elements at a path of element names joined with "/", from the document down, in document
  /// order. Throws XmlError for a path that is none.
  std::vector<XmlElement> Select(std::wstring_view path) const;

  /// The whole document, with a declaration of version 1.0 in front of it and no white space added.
  /// A document without a root gives an empty text.
  std::wstring ToText() const;
  /// The whole document indented, with a declaration that names "Shift_JIS", as bytes in code page
  /// 932; a character that it lacks is written as a character reference.
  SecureBytes ToIndentedShiftJis() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vk::tq
