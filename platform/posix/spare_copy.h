// A second copy of a record, behind it in the same file, while it is written over.
//
// The kernel may stop a write between two memory pages when the process is killed: the record is
// then half new, and nothing else would have either version. So a record of more than a page is
// first written behind everything that is in the file, then in its place, and then the copy is cut
// off. A copy that ends the file is whole, since its mark is written last; whoever opens the file
// takes it for the file's contents. A reader that knows nothing of it sees what it would see
// without: the old record up to its NUL, or what came of the new one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace vk::tq::internal {

// What the kernel writes whole.
inline constexpr std::size_t kPageSize = 4096;
// Records are far smaller; for long texts a second writing would cost more than it is worth.
inline constexpr std::size_t kLongestSpareCopy = std::size_t{1} << 20;

struct SpareCopy {
  std::uint64_t begin;
  std::uint64_t size;
};

// The copy that ends a file of this size; none is the rule.
std::optional<SpareCopy> FindSpareCopy(int file, std::uint64_t file_size);

// Appends a copy behind a file's contents. False, with the last error set and nothing changed, when
// it does not fit.
bool AppendSpareCopy(int file, std::uint64_t file_size, const void* data, std::size_t size);

// Puts a copy in its place, as the writer would have done that was killed; gives the new size of
// the file, or nothing on an error.
std::optional<std::uint64_t> PutSpareCopyInPlace(int file, const SpareCopy& copy);

// Writes everything, from a place in the file on.
bool WriteAt(int file, const void* data, std::size_t size, std::uint64_t offset);

}  // namespace vk::tq::internal
