// Numbers in texts of the system.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace vk::tq {

// The decimal number that is all of a text, without blanks; nothing for any other text, and for a
// number that its type cannot hold.
template <class Number>
std::optional<Number> WholeNumber(std::string_view text) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

}  // namespace vk::tq
