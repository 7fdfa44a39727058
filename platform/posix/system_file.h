// The small text files in which the system tells about itself.
#pragma once

#include <optional>
#include <string>

namespace vk::tq {

// A whole file, up to a megabyte; nothing, with the last error set, when it cannot be read.
std::optional<std::string> ReadSystemFile(const std::string& native);

}  // namespace vk::tq
