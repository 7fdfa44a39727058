// Paths and texts. Input: the path.
#include "foundation/util.h"
#include "fuzz/support.h"
#include "transport/ftp.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

void CheckPieces(const std::wstring& path) {
  const PathPieces pieces = SplitPath(path);
  Require(std::wstring(pieces.drive)
                  .append(pieces.directory)
                  .append(pieces.name)
                  .append(pieces.extension) == path,
          "the pieces are the whole path");
  Require(pieces.name.find_first_of(L"\\/") == pieces.name.npos &&
              pieces.extension.find_first_of(L"\\/") == pieces.extension.npos,
          "a name has no separator");
  Require(pieces.extension.empty() || pieces.extension.front() == L'.', "a point is the first");

  const std::wstring_view extension = FindExtension(path);
  Require(path.ends_with(extension), "an extension is the end");
  const int position = CUtil::GetExtPos(path);
  Require(position == -1 || path[static_cast<std::size_t>(position)] == L'.', "a point is there");
  CString name = path;
  CUtil::GetFileName(name);
  Require(name.find(L'\\') == CString::npos && path.find(name) != CString::npos, "a bare name");
}

void CheckForms(const std::wstring& path) {
  const std::wstring internal = InternalPath(path);
  Require(internal.find(L'/') == internal.npos && internal.size() == path.size(), "one separator");
  Require(InternalPath(internal) == internal, "the form is one");
  const std::string native = PathToNative(path);
  Require(PathToNative(internal) == native, "both separators lead to one place");
  Require(CFtp::MakeLocalPath(path.c_str(), L"x").ends_with(L"x"), "the file name stands last");
}

void CheckTexts(const std::wstring& text, std::string_view bytes) {
  for (const unsigned code_page : {kCodePageUtf8, kCodePageUtf16Le}) {
    Require(DecodeText(code_page, *EncodeText(code_page, text)) == text, "a text comes back");
  }
  // What code page 932 holds of a text comes back; what it lacks is a question mark.
  const std::wstring known = *DecodeText(kCodePage932, *EncodeText(kCodePage932, text));
  Require(*DecodeText(kCodePage932, *EncodeText(kCodePage932, known)) == known, "so does 932");
  DecodeText(kCodePage932, bytes);
  Utf8Decoder decoder;
  std::wstring pieces;
  for (std::size_t i = 0; i < bytes.size(); i += 3) decoder.Decode(bytes.substr(i, 3), pieces);
  decoder.Finish(pieces);
  Require(pieces == text, "it does not matter in which pieces a text comes");
  Require(HashNoCase(text) == HashNoCase(ToUpper(text)) && EqualsNoCase(text, ToUpper(text)),
          "case does not matter");
  const std::wstring one_line = OnOneLine(text);
  Require(one_line.find_first_of(std::wstring_view(L"\r\n\0", 3)) == one_line.npos, "one line");
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  TheSandbox();
  const std::wstring text = Wide(input.Rest());
  CheckPieces(text);
  CheckForms(text);
  CheckTexts(text, input.Rest());
}
