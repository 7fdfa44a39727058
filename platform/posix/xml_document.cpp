#include "platform/xml_document.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>

#include <algorithm>
#include <climits>
#include <span>
#include <utility>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/posix/native.h"
#include "platform/posix/utf8.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

using namespace std::string_view_literals;

// How deep elements may be nested: what walks through a document calls itself for each level.
constexpr int kDeepest = 256;

constexpr std::string_view kDeclaration = "<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n";

// ---- Reports ----

// Takes the reports of libxml2 in this thread for a scope, so that none is printed. A want of memory
// is remembered.
class SilentScope {
 public:
  SilentScope() : handler_(xmlStructuredError), context_(xmlStructuredErrorContext) {
    xmlSetStructuredErrorFunc(this, [](void* self, xmlErrorPtr error) {
      if (error->code == XML_ERR_NO_MEMORY) static_cast<SilentScope*>(self)->lacks_memory_ = true;
    });
  }
  SilentScope(const SilentScope&) = delete;
  SilentScope& operator=(const SilentScope&) = delete;
  ~SilentScope() { xmlSetStructuredErrorFunc(context_, handler_); }

  bool lacks_memory() const { return lacks_memory_; }

 private:
  bool lacks_memory_ = false;
  xmlStructuredErrorFunc handler_;
  void* context_;
};

// ---- Text in and out of the tree, which holds UTF-8 ----

std::string_view ViewOf(const xmlChar* text) {
  return text == nullptr ? ""sv : reinterpret_cast<const char*>(text);
}

std::string_view ViewOf(const SecureBytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

const xmlChar* PointerTo(const SecureBytes& bytes) { return bytes.data(); }

const xmlChar* PointerTo(const std::string& bytes) {
  return reinterpret_cast<const xmlChar*>(bytes.c_str());
}

std::wstring ToWide(std::string_view utf8) { return *DecodeText(kCodePageUtf8, utf8); }

// UTF-8 with a NUL behind it.
SecureBytes ToUtf8(std::wstring_view text) {
  Utf8Encoder encoder(text);
  if (encoder.length() >= INT_MAX) throw XmlError(XmlError::kOutOfMemory);
  SecureBytes bytes(encoder.length() + 1);
  encoder.Encode(bytes);
  return bytes;
}

// Whether a block has only characters that need no second look; without a branch for each.
bool IsPlain(std::wstring_view block) {
  std::uint32_t others = 0;
  for (const wchar_t c : block) {
    others |= static_cast<std::uint32_t>(static_cast<std::uint32_t>(c) - 0x20 >= 0xD800 - 0x20);
  }
  return others == 0;
}

// Whether every character is one of XML 1.0, production 2. A pair of surrogates is the character
// that it stands for.
bool IsXmlText(std::wstring_view text) {
  constexpr std::size_t kBlock = 64;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i % kBlock == 0 && IsPlain(text.substr(i, kBlock))) {
      i += kBlock - 1;
      continue;
    }
    const auto c = static_cast<char32_t>(text[i]);
    if (c < 0x20 ? c != '\t' && c != '\n' && c != '\r' : c > 0x10FFFF) return false;
    if (c < 0xD800) continue;
    if (c == 0xFFFE || c == 0xFFFF || (c >= 0xDC00 && c < 0xE000)) return false;
    if (c >= 0xE000) continue;
    ++i;
    if (i == text.size() || (static_cast<char32_t>(text[i]) & 0xFFFFFC00) != 0xDC00) return false;
  }
  return true;
}

// Names are no secrets.
std::string ToUtf8Name(std::wstring_view name, std::uint32_t error) {
  if (!IsXmlText(name)) throw XmlError(error);
  std::string bytes = *EncodeText(kCodePageUtf8, name);
  if (xmlValidateNCName(PointerTo(bytes), 0) != 0) throw XmlError(error);
  return bytes;
}

std::string TagName(const xmlNode* node) {
  std::string name;
  if (node->ns != nullptr && node->ns->prefix != nullptr) {
    name.append(ViewOf(node->ns->prefix)).append(":");
  }
  return name.append(ViewOf(node->name));
}

// ---- Nodes ----

void WipeTexts(xmlDoc* document, xmlNode* first) {
  for (xmlNode* node = first; node != nullptr; node = node->next) {
    const bool holds_text = node->type != XML_ELEMENT_NODE && node->content != nullptr;
    if (holds_text &&
        (document->dict == nullptr || xmlDictOwns(document->dict, node->content) == 0)) {
      SecureZero(node->content, ViewOf(node->content).size());
    }
    if (node->type == XML_ELEMENT_NODE) WipeTexts(document, node->children);
  }
}

struct FreeDocument {
  void operator()(xmlDoc* document) const {
    WipeTexts(document, document->children);
    xmlFreeDoc(document);
  }
};
using Document = std::unique_ptr<xmlDoc, FreeDocument>;

template <class Pointer>
Pointer Require(Pointer made) {
  if (made == nullptr) throw XmlError(XmlError::kOutOfMemory);
  return made;
}

bool IsText(const xmlNode* node) {
  return node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE;
}

xmlNode* NextElement(xmlNode* node) {
  while (node != nullptr && node->type != XML_ELEMENT_NODE) node = node->next;
  return node;
}

// White space between elements is no content.
void DropBlanks(xmlNode* parent) {
  if (NextElement(parent->children) == nullptr) return;
  for (xmlNode* node = parent->children; node != nullptr;) {
    xmlNode* const next = node->next;
    if (node->type == XML_ELEMENT_NODE) {
      DropBlanks(node);
    } else if (node->type == XML_TEXT_NODE && xmlIsBlankNode(node) != 0) {
      xmlUnlinkNode(node);
      xmlFreeNode(node);
    }
    node = next;
  }
}

void AppendText(const xmlNode* node, std::string& text) {
  for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
    if (IsText(child)) text.append(ViewOf(child->content));
    if (child->type == XML_ELEMENT_NODE) AppendText(child, text);
  }
}

struct FreeNode {
  void operator()(xmlNode* node) const { xmlFreeNode(node); }
};
using Node = std::unique_ptr<xmlNode, FreeNode>;

// libxml2 makes a node all the same when it has no memory for what stands in it.

Node NewElement(xmlDoc* document, const std::string& name) {
  const SilentScope silent;
  Node element(Require(xmlNewDocRawNode(document, nullptr, PointerTo(name), nullptr)));
  Require(element->name);
  return element;
}

// Nothing for an empty text.
Node NewText(const SecureBytes& text) {
  const auto length = static_cast<int>(text.size() - 1);
  if (length == 0) return {};
  const SilentScope silent;
  Node node(Require(xmlNewTextLen(PointerTo(text), length)));
  Require(node->content);
  return node;
}

xmlNode* AddChild(xmlNode* parent, Node child) {
  return child == nullptr ? nullptr : xmlAddChild(parent, child.release());
}

// ---- Paths ----

// The names of a path, each once for all nodes of the document that have it; null for a name that
// none has.
std::vector<const xmlChar*> StepsOf(xmlDoc* document, std::wstring_view path) {
  std::vector<const xmlChar*> steps;
  for (;;) {
    const std::size_t slash = path.find(L'/');
    const std::string name = ToUtf8Name(path.substr(0, slash), XmlError::kUnspecified);
    steps.push_back(document == nullptr ? nullptr
                                        : xmlDictExists(document->dict, PointerTo(name), -1));
    if (slash == std::wstring_view::npos) return steps;
    path.remove_prefix(slash + 1);
  }
}

// What is found below one node, from a step on.
template <class Found>
void Collect(xmlNode* first, std::span<const xmlChar* const> steps, const Found& found) {
  for (xmlNode* node = NextElement(first); node != nullptr; node = NextElement(node->next)) {
    if (node->name != steps.front() || (node->ns != nullptr && node->ns->prefix != nullptr)) {
      continue;
    }
    if (steps.size() == 1) {
      found(node);
    } else {
      Collect(node->children, steps.subspan(1), found);
    }
  }
}

// ---- Parsing ----

void Refuse(void* context) {
  auto* const parser = static_cast<xmlParserCtxt*>(context);
  parser->wellFormed = 0;
  xmlStopParser(parser);
}

void RefuseDocumentType(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
  Refuse(context);
}

// The parser's own limit goes with its other limits.
void StartElement(void* context, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
                  int namespace_count, const xmlChar** namespaces, int attribute_count,
                  int defaulted_count, const xmlChar** attributes) {
  if (static_cast<xmlParserCtxt*>(context)->nodeNr >= kDeepest) return Refuse(context);
  xmlSAX2StartElementNs(context, name, prefix, uri, namespace_count, namespaces, attribute_count,
                        defaulted_count, attributes);
}

struct FreeParser {
  void operator()(xmlParserCtxt* parser) const {
    if (parser->myDoc != nullptr) FreeDocument()(std::exchange(parser->myDoc, nullptr));
    xmlFreeParserCtxt(parser);
  }
};
using Parser = std::unique_ptr<xmlParserCtxt, FreeParser>;

// The parser reads the bytes where they are: no copy of them is left in its memory.
Parser ParserOfUtf8(const SecureBytes& text) {
  Parser parser(Require(xmlNewParserCtxt()));
  std::unique_ptr<xmlParserInput, decltype(&xmlFreeInputStream)> input(
      Require(xmlNewStringInputStream(parser.get(), PointerTo(text))), xmlFreeInputStream);
  if (inputPush(parser.get(), input.get()) < 0) throw XmlError(XmlError::kOutOfMemory);
  static_cast<void>(input.release());
  return parser;
}

Parser ParserOfFile(const SecureBytes& bytes) {
  return Parser(Require(xmlCreateMemoryParserCtxt(reinterpret_cast<const char*>(bytes.data()),
                                                  static_cast<int>(bytes.size()))));
}

// Before the first use: libxml2 would otherwise make its locks when it first needs them, which two
// threads may do at once.
void PrepareLibrary() {
  static const bool is_prepared = (xmlInitParser(), true);
  static_cast<void>(is_prepared);
}

// Parses bytes that stay as long as the call.
Document ParseBytes(const SecureBytes& bytes, Parser (*make_parser)(const SecureBytes&),
                    bool ignore_declared_encoding) {
  PrepareLibrary();
  if (bytes.empty() || bytes.size() > INT_MAX) return {};

  const SilentScope silent;
  const Parser parser = make_parser(bytes);
  // A text may be long: nothing in it can grow, since there are no entities but XML's own. Those are
  // put in at once: the parser would keep them as references in the name of a namespace.
  xmlCtxtUseOptions(parser.get(), XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_NOENT |
                                      XML_PARSE_NOERROR | XML_PARSE_NOWARNING |
                                      (ignore_declared_encoding ? XML_PARSE_IGNORE_ENC : 0));
  parser->sax->internalSubset = RefuseDocumentType;
  parser->sax->startElementNs = StartElement;
  xmlParseDocument(parser.get());
  // What was read up to there would look like a document, and nothing like one that is none.
  if (silent.lacks_memory()) throw XmlError(XmlError::kOutOfMemory);
  if (parser->wellFormed == 0 || parser->nsWellFormed == 0) return {};
  Document document(std::exchange(parser->myDoc, nullptr));
  if (document != nullptr) DropBlanks(xmlDocGetRootElement(document.get()));
  return document;
}

bool HasWideMark(std::string_view bytes) {
  return bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
}

bool HasMark(std::string_view bytes) {
  return bytes.starts_with("\xEF\xBB\xBF") || HasWideMark(bytes);
}

// In front of the first NUL, which a writer that did not come to its end has left between the
// document and what is no part of it. In an encoding of two bytes a NUL means nothing of that kind.
std::size_t DocumentSize(std::string_view bytes) {
  if (HasWideMark(bytes) || bytes.substr(0, 2).find('\0') != std::string_view::npos) {
    return bytes.size();
  }
  return std::min(bytes.find('\0'), bytes.size());
}

// The encoding that a declaration in front of the bytes names.
std::string_view DeclaredEncoding(std::string_view bytes) {
  if (!bytes.starts_with("<?xml")) return {};
  bytes = bytes.substr(0, bytes.find("?>"));
  const std::size_t key = bytes.find("encoding");
  if (key == std::string_view::npos) return {};
  const std::size_t quote = bytes.find_first_not_of(" \t\r\n=", key + "encoding"sv.size());
  if (quote == std::string_view::npos) return {};
  const std::size_t end = bytes.find(bytes[quote], quote + 1);
  if (end == std::string_view::npos) return {};
  return bytes.substr(quote + 1, end - quote - 1);
}

bool NamesShiftJis(std::string_view encoding) {
  constexpr std::string_view kNames[] = {"shift_jis", "shift-jis", "sjis",        "x-sjis",
                                         "ms_kanji",  "cp932",     "windows-31j", "csshiftjis"};
  const auto equal = [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a + 32 : a) == b; };
  return std::ranges::any_of(
      kNames, [&](std::string_view name) { return std::ranges::equal(encoding, name, equal); });
}

// ---- Serialising ----

// Writes a document as UTF-8 without white space of its own, or indented in code page 932.
class Writer {
 public:
  enum class Form { kCompactUtf8, kIndentedShiftJis };

  explicit Writer(Form form) : form_(form) {}

  SecureBytes Write(const xmlDoc* document) {
    Put(kDeclaration);
    for (const xmlNode* node = document->children; node != nullptr; node = node->next) {
      PutNode(node, 0);
      if (is_indented()) Put("\n");
    }
    return std::move(bytes_);
  }

 private:
  bool is_indented() const { return form_ == Form::kIndentedShiftJis; }

  void PutNode(const xmlNode* node, std::size_t depth) {
    switch (node->type) {
      case XML_ELEMENT_NODE:
        PutElement(node, depth);
        break;
      case XML_TEXT_NODE:
      case XML_CDATA_SECTION_NODE:
        PutEscaped(ViewOf(node->content), "&<>\r");
        break;
      case XML_COMMENT_NODE:
        Put("<!--");
        PutMarkup(ViewOf(node->content));
        Put("-->");
        break;
      case XML_PI_NODE:
        Put("<?");
        PutMarkup(ViewOf(node->name));
        if (node->content != nullptr) Put(" ");
        PutMarkup(ViewOf(node->content));
        Put("?>");
        break;
      default:
        break;
    }
  }

  void PutElement(const xmlNode* node, std::size_t depth) {
    const std::string name = TagName(node);
    Put("<");
    PutMarkup(name);
    for (const xmlNs* space = node->nsDef; space != nullptr; space = space->next) {
      PutAttribute(
          space->prefix == nullptr ? "xmlns" : "xmlns:" + std::string(ViewOf(space->prefix)),
          ViewOf(space->href));
    }
    for (const xmlAttr* attribute = node->properties; attribute != nullptr;
         attribute = attribute->next) {
      std::string value;
      AppendText(reinterpret_cast<const xmlNode*>(attribute), value);
      PutAttribute(TagName(reinterpret_cast<const xmlNode*>(attribute)), value);
    }
    if (node->children == nullptr) {
      Put("/>");
      return;
    }
    Put(">");
    PutChildren(node, depth);
    Put("</");
    PutMarkup(name);
    Put(">");
  }

  void PutChildren(const xmlNode* node, std::size_t depth) {
    // White space counts where no child is an element.
    bool on_lines = is_indented() && NextElement(node->children) != nullptr;
    for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
      if (IsText(child)) on_lines = false;
    }
    for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
      if (on_lines) PutLineStart(depth + 1);
      PutNode(child, depth + 1);
    }
    if (on_lines) PutLineStart(depth);
  }

  void PutLineStart(std::size_t depth) {
    Put("\n");
    bytes_.insert(bytes_.end(), 2 * depth, ' ');
  }

  void PutAttribute(std::string_view name, std::string_view value) {
    Put(" ");
    PutMarkup(name);
    Put("=\"");
    PutEscaped(value, "&<>\"\t\n\r");
    Put("\"");
  }

  void PutEscaped(std::string_view text, std::string_view special) {
    for (;;) {
      const std::size_t length = text.find_first_of(special);
      PutCharacters(text.substr(0, length));
      if (length == std::string_view::npos) return;
      Put(ReferenceTo(text[length]));
      text.remove_prefix(length + 1);
    }
  }

  static std::string_view ReferenceTo(char special) {
    switch (special) {
      case '&':
        return "&amp;";
      case '<':
        return "&lt;";
      case '>':
        return "&gt;";
      case '"':
        return "&quot;";
      case '\t':
        return "&#9;";
      case '\n':
        return "&#10;";
      default:
        return "&#13;";
    }
  }

  void Put(std::string_view ascii) { bytes_.insert(bytes_.end(), ascii.begin(), ascii.end()); }

  // Names and comments, where a reference has no meaning.
  void PutMarkup(std::string_view utf8) {
    if (form_ == Form::kCompactUtf8) return Put(utf8);
    if (!PutShiftJis(ToWide(utf8))) throw XmlError(XmlError::kInvalidCharacter);
  }

  void PutCharacters(std::string_view utf8) {
    if (form_ == Form::kCompactUtf8) return Put(utf8);
    std::wstring text = ToWide(utf8);
    const WipeOnExit wipe(text);
    PutWithReferences(text);
  }

  void PutWithReferences(std::wstring_view text) {
    if (text.empty() || PutShiftJis(text)) return;
    if (text.size() == 1) {
      Put("&#" + std::to_string(static_cast<unsigned long>(text.front())) + ";");
      return;
    }
    PutWithReferences(text.substr(0, text.size() / 2));
    PutWithReferences(text.substr(text.size() / 2));
  }

  // False, and nothing written, unless the bytes give just that text back.
  bool PutShiftJis(std::wstring_view text) {
    std::optional<std::string> encoded = EncodeText(kCodePage932, text);
    if (!encoded) throw XmlError(XmlError::kUnspecified);
    const WipeOnExit wipe(*encoded);
    std::optional<std::wstring> decoded = DecodeText(kCodePage932, *encoded);
    if (!decoded) throw XmlError(XmlError::kUnspecified);
    const WipeOnExit wipe_decoded(*decoded);
    if (*decoded != text) return false;
    Put(*encoded);
    return true;
  }

  Form form_;
  SecureBytes bytes_;
};

}  // namespace

// ---- XmlError ----

std::wstring XmlError::Description() const {
  std::wstring text = FormatErrorMessage(code_);
  if (!text.empty()) return text;
  if (code_ > 0x80040200 && code_ <= 0x8004FFFF) {
    return Format(L"IDispatch error #%d", static_cast<int>(code_ & 0xFFFF) - 0x200);
  }
  return Format(L"Unknown error 0x%0lX", code_);
}

// ---- XmlElement ----

namespace {

xmlNode* NodeOf(void* node) { return static_cast<xmlNode*>(node); }

}  // namespace

std::wstring XmlElement::name() const { return ToWide(TagName(NodeOf(node_))); }

std::wstring XmlElement::text() const {
  const xmlNode* const only = NodeOf(node_)->children;
  if (only == nullptr) return {};
  if (IsText(only) && only->next == nullptr) return ToWide(ViewOf(only->content));
  std::string text;
  const WipeOnExit wipe(text);
  AppendText(NodeOf(node_), text);
  return ToWide(text);
}

std::vector<XmlElement> XmlElement::children() const {
  std::vector<XmlElement> elements;
  for (xmlNode* node = NextElement(NodeOf(node_)->children); node != nullptr;
       node = NextElement(node->next)) {
    elements.push_back(XmlElement(node));
  }
  return elements;
}

std::vector<XmlElement> XmlElement::Select(std::wstring_view path) const {
  std::vector<XmlElement> elements;
  const xmlNode* const node = NodeOf(node_);
  Collect(node->children, StepsOf(node->doc, path),
          [&](xmlNode* found) { elements.push_back(XmlElement(found)); });
  return elements;
}

void XmlElement::SetText(std::wstring_view text) {
  if (!IsXmlText(text)) throw XmlError(XmlError::kInvalidCharacter);
  Node new_text = NewText(ToUtf8(text));
  xmlNode* const node = NodeOf(node_);
  WipeTexts(node->doc, node->children);
  xmlFreeNodeList(std::exchange(node->children, nullptr));
  node->last = nullptr;
  AddChild(node, std::move(new_text));
}

XmlElement XmlElement::Append(std::wstring_view name, std::wstring_view text) {
  const std::string utf8_name = ToUtf8Name(name, XmlError::kInvalidName);
  if (!IsXmlText(text)) throw XmlError(XmlError::kInvalidCharacter);
  xmlNode* const parent = NodeOf(node_);
  Node element = NewElement(parent->doc, utf8_name);
  AddChild(element.get(), NewText(ToUtf8(text)));
  return XmlElement(AddChild(parent, std::move(element)));
}

// ---- XmlDocument ----

struct XmlDocument::Impl {
  Document document;
};

XmlDocument::XmlDocument() : impl_(std::make_unique<Impl>()) {}
XmlDocument::XmlDocument(XmlDocument&&) noexcept = default;
XmlDocument::~XmlDocument() = default;

XmlElement XmlDocument::CreateRoot(std::wstring_view name) {
  const std::string utf8_name = ToUtf8Name(name, XmlError::kInvalidName);
  PrepareLibrary();
  Document document(Require(xmlNewDoc(nullptr)));
  document->dict = Require(xmlDictCreate());
  xmlNode* const root = NewElement(document.get(), utf8_name).release();
  xmlDocSetRootElement(document.get(), root);
  impl_->document = std::move(document);
  return XmlElement(root);
}

bool XmlDocument::Parse(std::wstring_view text) {
  impl_->document.reset();
  if (IsXmlText(text)) impl_->document = ParseBytes(ToUtf8(text), ParserOfUtf8, true);
  return impl_->document != nullptr || Fail(kErrorInvalidData);
}

bool XmlDocument::Load(const std::wstring& path) {
  impl_->document.reset();
  std::optional<SecureBytes> bytes = ReadFile(path);
  if (!bytes) return false;
  bytes->resize(DocumentSize(ViewOf(*bytes)));
  const bool has_mark = HasMark(ViewOf(*bytes));
  if (!has_mark && NamesShiftJis(DeclaredEncoding(ViewOf(*bytes)))) {
    const std::optional<std::wstring> text = DecodeText(kCodePage932, ViewOf(*bytes));
    // The code page has no such character: it stands for bytes that are none.
    const bool is_text = text && text->find(kReplacementCharacter) == std::wstring::npos;
    return is_text ? Parse(*text) : Fail(kErrorInvalidData);
  }
  impl_->document = ParseBytes(*bytes, ParserOfFile, has_mark);
  return impl_->document != nullptr || Fail(kErrorInvalidData);
}

std::optional<XmlElement> XmlDocument::root() const {
  if (impl_->document == nullptr) return {};
  xmlNode* const node = xmlDocGetRootElement(impl_->document.get());
  if (node == nullptr) return {};
  return XmlElement(node);
}

std::vector<XmlElement> XmlDocument::Select(std::wstring_view path) const {
  std::vector<XmlElement> elements;
  xmlDoc* const document = impl_->document.get();
  Collect(document == nullptr ? nullptr : document->children, StepsOf(document, path),
          [&](xmlNode* found) { elements.push_back(XmlElement(found)); });
  return elements;
}

std::vector<XmlElement> XmlDocument::SelectBelow(const std::vector<XmlElement>& parents,
                                                 std::wstring_view path) const {
  std::vector<XmlElement> elements;
  const std::vector<const xmlChar*> steps = StepsOf(impl_->document.get(), path);
  for (const XmlElement& parent : parents) {
    Collect(NodeOf(parent.node_)->children, steps,
            [&](xmlNode* found) { elements.push_back(XmlElement(found)); });
  }
  return elements;
}

std::wstring XmlDocument::ToText() const {
  if (!root()) return {};
  const SecureBytes bytes = Writer(Writer::Form::kCompactUtf8).Write(impl_->document.get());
  return ToWide(ViewOf(bytes));
}

SecureBytes XmlDocument::ToIndentedShiftJis() const {
  if (!root()) return {};
  return Writer(Writer::Form::kIndentedShiftJis).Write(impl_->document.get());
}

}  // namespace vk::tq
