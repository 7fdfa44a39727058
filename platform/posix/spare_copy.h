// A second copy of a record or an INI file, behind it in the same file, while it is written over.
//
// The kernel may stop a write between two memory pages when the process is killed: the text is then
// half new, and nothing else would have either version. So what lies in more than one page is first
// written behind everything that is in the file, then in its place, and then the copy is cut off. A
// mark stands in front of the copy and another behind it. A copy that ends the file is whole, since
// that mark is written last; whoever opens the file takes it for the file's contents. One that has
// no end is no part of them. A reader that knows nothing of copies sees what it would see without:
// of a record the text up to its NUL, of an INI file the first of two keys of one name. Only in one
// with the mark of UTF-8 in front, the keys of the first section are seen in the last one as well.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace vk::tq::internal {

// What the kernel writes whole.
inline constexpr std::size_t kPageSize = 4096;
// Records are far smaller; for long texts a second writing would cost more than it is worth.
inline constexpr std::size_t kLongestSpareCopy = std::size_t{1} << 20;

struct SpareCopy {
  std::uint64_t begin;
  std::uint64_t size;
};

// What stands behind a copy.
inline constexpr std::size_t kSpareCopyEnd = 24;

// The copy that ends a file of this size; none is the rule.
std::optional<SpareCopy> FindSpareCopy(int file, std::uint64_t file_size);
std::optional<SpareCopy> FindSpareCopy(std::string_view bytes);  // the whole file

// How many of these bytes of a file that ends in no copy are its contents: all, as a rule, or those
// in front of a copy that has no end. Records need no such look, since they end at their NUL.
std::size_t SizeWithoutCopy(std::string_view bytes);

// Appends a copy of what is about to be written to a file of this size. False, with nothing changed
// and the last error as it was, when it is too long or does not fit: it is then written without one.
bool AppendSpareCopy(int file, std::uint64_t file_size, const void* data, std::size_t size);

// Puts a copy in its place, as the writer would have done that was killed; gives the new size of
// the file, or nothing on an error.
std::optional<std::uint64_t> PutSpareCopyInPlace(int file, const SpareCopy& copy);

}  // namespace vk::tq::internal
