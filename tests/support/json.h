// Reads JSON (RFC 8259): the recorded facts in tests/data, files with one value in each line, and
// what programs print.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vk::tq::testing {

struct Json {
  // Of a string its contents as UTF-8, of a number or a literal its characters.
  std::string text;
  // The elements of an array, or the members of an object, whose names stand in the same order.
  std::vector<Json> items;
  std::vector<std::string> names;

  bool is_null() const { return text == "null"; }
  bool Has(std::string_view name) const;
  // The member of that name; throws std::out_of_range without one.
  const Json& operator[](std::string_view name) const;
  int ToInt() const { return std::stoi(text); }
};

// Throws std::runtime_error for a text that is no JSON value with nothing but a line end behind it.
Json ParseJson(std::string_view text);

// Throws std::runtime_error for a file that cannot be read or is no such file.
std::vector<Json> ReadJsonLines(const std::string& native);

}  // namespace vk::tq::testing
