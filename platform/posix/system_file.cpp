#include "platform/posix/system_file.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/posix/native.h"

namespace vk::tq {

std::optional<std::string> ReadSystemFile(const std::string& native) {
  constexpr std::size_t kPiece = 4096;
  constexpr std::size_t kLimit = 1 << 20;
  const FileDescriptor file(open(native.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) {
    FailWithErrno();
    return std::nullopt;
  }
  std::string text;
  while (text.size() < kLimit) {
    const std::size_t size = text.size();
    text.resize(size + kPiece);
    const ssize_t count = RetryInterrupted([&] { return read(file.get(), &text[size], kPiece); });
    if (count < 0) {
      FailWithErrno();
      return std::nullopt;
    }
    text.resize(size + static_cast<std::size_t>(count));
    if (count == 0) return text;
  }
  SetLastError(kErrorFileTooLarge);
  return std::nullopt;
}

}  // namespace vk::tq
