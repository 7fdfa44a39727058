// The answer to LIST: lines for people to read, in the form that servers have settled on.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vk::tq {

// One file of a listing. The name is a view into the line.
struct FtpListedFile {
  std::string_view name;
  std::uint64_t size = 0;
};

// Reads one line, without its line end:
//   -rw-r--r--   1 owner group   1234 Nov 24 14:29 a name     (or a year, or 2026-11-24 14:29)
//   11-24-26  02:29PM             1234 a name
// Nothing for a directory, and for a line that is neither.
std::optional<FtpListedFile> ParseListingLine(std::string_view line);

// Looks for one file in a listing that comes in pieces.
class FtpListingSearch {
 public:
  // `is_alone` tells that the server was asked to list the name alone, not a directory.
  FtpListingSearch(std::string_view name, bool is_alone);

  void Add(std::string_view bytes);
  // Tells that no more follows; the file's size, if it is listed.
  std::optional<std::uint64_t> Finish();

 private:
  void Look();

  std::string name_;
  std::string bare_name_;  // what it may be listed as instead
  std::string line_;
  std::optional<std::uint64_t> size_;
};

}  // namespace vk::tq
