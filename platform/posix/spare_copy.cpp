#include "platform/posix/spare_copy.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/posix/native.h"
#include "platform/secure_memory.h"

namespace vk::tq::internal {
namespace {

// What stands behind a copy. No record ends in these 16 bytes by chance.
struct Trailer {
  std::uint64_t size;
  unsigned char mark[16];
};
constexpr unsigned char kMark[16] = {0x9e, 0x1b, 0xd4, 0x77, 0x03, 0xc8, 0x5a, 0xe1,
                                     0x6f, 0x20, 0xb9, 0x8d, 0x44, 0xf2, 0x31, 0xa6};
static_assert(sizeof(Trailer) == 24);

bool ReadAt(int file, void* data, std::size_t size, std::uint64_t offset) {
  return RetryInterrupted([&] { return pread(file, data, size, static_cast<off_t>(offset)); }) ==
         static_cast<ssize_t>(size);
}

}  // namespace

std::optional<SpareCopy> FindSpareCopy(int file, std::uint64_t file_size) {
  Trailer trailer{};
  if (file_size <= kPageSize + sizeof trailer) return {};
  const std::uint64_t end = file_size - sizeof trailer;
  if (!ReadAt(file, &trailer, sizeof trailer, end)) return {};
  const bool is_marked = std::memcmp(trailer.mark, kMark, sizeof kMark) == 0;
  // It lies behind its place: it is never put over itself.
  if (!is_marked || trailer.size <= kPageSize || trailer.size > end / 2) return {};
  return SpareCopy{end - trailer.size, trailer.size};
}

bool AppendSpareCopy(int file, std::uint64_t file_size, const void* data, std::size_t size) {
  Trailer trailer{size, {}};
  std::memcpy(trailer.mark, kMark, sizeof kMark);
  const std::uint64_t begin = std::max<std::uint64_t>(file_size, size);
  if (WriteAt(file, data, size, begin) && WriteAt(file, &trailer, sizeof trailer, begin + size)) {
    return true;
  }
  [[maybe_unused]] const int ignored = ftruncate(file, static_cast<off_t>(file_size));
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

bool WriteAt(int file, const void* data, std::size_t size, std::uint64_t offset) {
  const char* from = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t put =
        RetryInterrupted([&] { return pwrite(file, from, size, static_cast<off_t>(offset)); });
    if (put < 0) return FailWithErrno();
    from += put;
    size -= static_cast<std::size_t>(put);
    offset += static_cast<std::uint64_t>(put);
  }
  return true;
}

}  // namespace vk::tq::internal
