#include "support/json.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "platform/text.h"

namespace vk::tq::testing {
namespace {

class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  std::string_view rest() const { return rest_; }

  Json ReadValue() {
    Json value;
    if (Accept('{')) {
      while (!Accept('}')) {
        Accept(',');
        value.names.push_back(ReadString());
        Expect(':');
        value.items.push_back(ReadValue());
      }
    } else if (Accept('[')) {
      while (!Accept(']')) {
        Accept(',');
        value.items.push_back(ReadValue());
      }
    } else if (Peek() == '"') {
      value.text = ReadString();
    } else {
      while (!rest_.empty() && std::string_view(",]} ").find(rest_.front()) == std::string::npos) {
        value.text += Take();
      }
    }
    return value;
  }

 private:
  // What comes next, behind blanks.
  char Peek() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r"), rest_.size()));
    if (rest_.empty()) throw std::runtime_error("JSON ends early");
    return rest_.front();
  }

  char Take() {
    if (rest_.empty()) throw std::runtime_error("JSON ends early");
    const char c = rest_.front();
    rest_.remove_prefix(1);
    return c;
  }

  bool Accept(char c) {
    if (Peek() != c) return false;
    Take();
    return true;
  }

  void Expect(char c) {
    if (!Accept(c)) throw std::runtime_error(std::string("JSON lacks ") + c);
  }

  std::string ReadString() {
    Expect('"');
    std::string text;
    for (char c = Take(); c != '"'; c = Take())
      text += c == '\\' ? ReadEscape() : std::string(1, c);
    return text;
  }

  std::string ReadEscape() {
    const char c = Take();
    if (c != 'u') {
      const std::size_t known = std::string_view("bfnrt").find(c);
      return std::string(1, known == std::string_view::npos ? c : "\b\f\n\r\t"[known]);
    }
    std::wstring units;
    do {
      std::string digits;
      for (int i = 0; i < 4; ++i) digits += Take();
      units += static_cast<wchar_t>(std::stoi(digits, nullptr, 16));
    } while ((units.back() & 0xFC00) == 0xD800 && Take() == '\\' && Take() == 'u');
    return *EncodeText(kCodePageUtf8, units);
  }

  std::string_view rest_;
};

}  // namespace

bool Json::Has(std::string_view name) const {
  return std::ranges::find(names, name) != names.end();
}

const Json& Json::operator[](std::string_view name) const {
  const auto found = std::ranges::find(names, name);
  if (found == names.end()) throw std::out_of_range(std::string(name));
  return items[static_cast<std::size_t>(found - names.begin())];
}

Json ParseJson(std::string_view text) {
  Reader reader(text);
  Json value = reader.ReadValue();
  if (reader.rest() != "\n" && !reader.rest().empty()) throw std::runtime_error("more than JSON");
  return value;
}

std::vector<Json> ReadJsonLines(const std::string& native) {
  std::ifstream in(native);
  std::vector<Json> values;
  for (std::string line; std::getline(in, line);) values.push_back(Reader(line).ReadValue());
  if (values.empty()) throw std::runtime_error("nothing in " + native);
  return values;
}

}  // namespace vk::tq::testing
