// Arguments of the form "name=value", which set the fields of a record.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tqctl/failure.h"

namespace tqctl {

struct Assignment {
  std::wstring name;
  std::wstring value;
};

// UsageError when there is no "=", or nothing in front of it.
Assignment ParseAssignment(const std::wstring& argument);

// UsageError when the value is not wholly a number of 32 bits.
void AssignTo(std::int32_t& field, const Assignment& assignment);
inline void AssignTo(std::wstring& field, const Assignment& assignment) {
  field = assignment.value;
}

// Sets the fields of a record. `for_each_field(record, visit)` calls `visit(name, field)` for each
// field that has a name. UsageError for a name that no field has.
template <class Record, class ForEachField>
void AssignAll(Record& record, const std::vector<std::wstring>& arguments,
               const ForEachField& for_each_field) {
  for (const std::wstring& argument : arguments) {
    const Assignment assignment = ParseAssignment(argument);
    bool is_known = false;
    std::wstring names;
    for_each_field(record, [&](const wchar_t* name, auto& field) {
      names += std::wstring(names.empty() ? L"" : L", ") + name;
      if (assignment.name != name) return;
      is_known = true;
      AssignTo(field, assignment);
    });
    if (is_known) continue;
    throw UsageError(L"There is no field \"" + assignment.name + L"\". The fields: " + names +
                     L".");
  }
}

}  // namespace tqctl
