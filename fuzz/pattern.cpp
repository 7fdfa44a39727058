// The search with a regular expression. Input: a line (the pattern), the text.
#include "foundation/util.h"
#include "fuzz/support.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

TQ_FUZZ_TARGET(input) {
  TheSandbox();
  const CString pattern = Wide(input.Line());
  const CString text = Wide(input.Rest());
  CString result = L"before";
  CString message;
  int error = -2;
  if (CUtil::ExtractPatternString(text, pattern, result, error, message) == 1) {
    Require(error == 0, "a success has no error");
    Require(text.find(result) != CString::npos, "a match is a part of the text");
    Require(!UpToNul(pattern).empty(), "an empty pattern is none");
  } else {
    Require(error == CUtil::ERR_REGEX_EMPTY || !message.empty(), "a failure has an error");
    Require(result == text, "a failure gives the text back");
  }
}
