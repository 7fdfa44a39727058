// JSON: the recorded facts in tests/data, files with one value in each line, and what programs print.
#pragma once

#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace vk::tq::testing {

// Its `at` and `parse` throw for what is not there and for what is no JSON.
using Json = nlohmann::json;

// Of a string its contents, of anything else its characters.
inline std::string TextOf(const Json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

inline std::vector<Json> ReadJsonLines(const std::string& native) {
  std::ifstream in(native);
  std::vector<Json> values;
  for (std::string line; std::getline(in, line);) values.push_back(Json::parse(line));
  if (values.empty()) throw std::runtime_error("nothing in " + native);
  return values;
}

}  // namespace vk::tq::testing
