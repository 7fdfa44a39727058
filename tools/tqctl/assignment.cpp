#include "tqctl/assignment.h"

#include <charconv>

#include "tqctl/text.h"

namespace tqctl {

Assignment ParseAssignment(const std::wstring& argument) {
  const std::size_t equals = argument.find(L'=');
  if (equals == std::wstring::npos || equals == 0) {
    throw UsageError(L"\"" + argument + L"\" is not of the form name=value.");
  }
  return {argument.substr(0, equals), argument.substr(equals + 1)};
}

void AssignTo(std::int32_t& field, const Assignment& assignment) {
  const std::string digits = Utf8(assignment.value);
  const char* const end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, field);
  if (error == std::errc() && stopped == end) return;
  throw UsageError(L"The field " + assignment.name + L" is a number, and \"" + assignment.value +
                   L"\" is none.");
}

}  // namespace tqctl
