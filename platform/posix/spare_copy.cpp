#include "platform/posix/spare_copy.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/posix/native.h"
#include "platform/secure_memory.h"

namespace vk::tq::internal {
namespace {

// No record ends in these 16 bytes by chance, and no text of a settings file can hold them: they are
// ill-formed in UTF-8, UTF-16 (high surrogates without low ones) and code page 932.
constexpr char kMark[] = "\x9e\x1b\xd4\x77\x03\xc8\xd8\xd8\xd8\xd8\xb9\x8d\x44\xf2\x31\xa6\n";
constexpr std::size_t kMarkSize = 16;
// A line's end goes with the one in front, so that who knows of no copies finds a header in its
// first line.
constexpr std::size_t kFrontSize = kMarkSize + 1;
static_assert(sizeof kMark == kFrontSize + 1);

struct Trailer {
  std::uint64_t size;
  char mark[kMarkSize];
};
static_assert(sizeof(Trailer) == kSpareCopyEnd);

bool ReadAt(int file, void* data, std::size_t size, std::uint64_t offset) {
  return RetryInterrupted([&] { return pread(file, data, size, static_cast<off_t>(offset)); }) ==
         static_cast<ssize_t>(size);
}

// The copy that ends where its trailer begins.
std::optional<SpareCopy> CopyBefore(const Trailer& trailer, std::uint64_t end) {
  const bool is_marked = std::memcmp(trailer.mark, kMark, kMarkSize) == 0;
  // It lies behind its place: it is never put over itself.
  if (!is_marked || trailer.size == 0 || trailer.size > end / 2) return {};
  return SpareCopy{end - trailer.size, trailer.size};
}

}  // namespace

std::optional<SpareCopy> FindSpareCopy(int file, std::uint64_t file_size) {
  Trailer trailer{};
  if (file_size <= kPageSize + sizeof trailer) return {};
  const std::uint64_t end = file_size - sizeof trailer;
  if (!ReadAt(file, &trailer, sizeof trailer, end)) return {};
  return CopyBefore(trailer, end);
}

std::optional<SpareCopy> FindSpareCopy(std::string_view bytes) {
  Trailer trailer{};
  if (bytes.size() <= kPageSize + sizeof trailer) return {};
  const std::size_t end = bytes.size() - sizeof trailer;
  std::memcpy(&trailer, bytes.data() + end, sizeof trailer);
  return CopyBefore(trailer, end);
}

std::size_t SizeWithoutCopy(std::string_view bytes) {
  return std::min(bytes.find(kMark, 0, kMarkSize), bytes.size());
}

bool AppendSpareCopy(int file, std::uint64_t file_size, const void* data, std::size_t size) {
  if (size > kLongestSpareCopy) return false;
  const LastErrorKeeper keeper;
  Trailer trailer{size, {}};
  std::memcpy(trailer.mark, kMark, kMarkSize);
  // At a multiple of its size, the mark in front lies in one page. Where the file ends with it, the
  // zeros before it are a size, too: nobody takes the end of the text for one.
  const std::uint64_t end = std::max<std::uint64_t>(file_size, size);
  const std::uint64_t mark = (end + sizeof trailer.size + kMarkSize - 1) / kMarkSize * kMarkSize;
  const std::uint64_t begin = mark + kFrontSize;
  if (WriteAt(file, kMark, kFrontSize, mark) && WriteAt(file, data, size, begin) &&
      WriteAt(file, &trailer, sizeof trailer, begin + size)) {
    return true;
  }
  [[maybe_unused]] const int ignored = ftruncate(file, static_cast<off_t>(end));
  return false;
}

std::optional<std::uint64_t> PutSpareCopyInPlace(int file, const SpareCopy& copy) {
  SecureBytes bytes(static_cast<std::size_t>(copy.size));
  const bool is_done = ReadAt(file, bytes.data(), bytes.size(), copy.begin) &&
                       WriteAt(file, bytes.data(), bytes.size(), 0) &&
                       ftruncate(file, static_cast<off_t>(copy.size)) == 0;
  if (is_done) return copy.size;
  FailWithErrno();
  return {};
}

}  // namespace vk::tq::internal
