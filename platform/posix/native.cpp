#include "platform/posix/native.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <thread>

#include "platform/posix/utf8.h"

namespace vk::tq {
namespace {

constexpr char32_t kEscape = 0xDC00;

// The characters that nearly all names consist of: each is one byte, and the same on both sides.
constexpr bool IsPlain(char c) { return static_cast<unsigned char>(c) < 0x80 && c != '\\'; }

struct flock WholeFile(short kind) {
  struct flock lock {};
  lock.l_type = kind;
  lock.l_whence = SEEK_SET;
  return lock;
}

// Whether a reader keeps the lock away, and so no writer.
bool IsKeptByReader(int file, short kind) {
  struct flock lock = WholeFile(kind);
  return fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type == F_RDLCK;
}

// False when the time is over.
bool WaitForLock(int file, short kind, std::chrono::milliseconds limit) {
  constexpr std::chrono::microseconds kShortestPause(20);
  // With longer ones, whoever has waited long always comes behind others that begin to wait.
  constexpr std::chrono::microseconds kLongestPause(100);
  const auto is_taken = [&] {
    return !SetFileLock(file, kind) && (errno == EAGAIN || errno == EACCES);
  };
  if (!is_taken()) return true;
  const auto end = std::chrono::steady_clock::now() + limit;
  for (auto pause = kShortestPause; std::chrono::steady_clock::now() < end;
       pause = std::min(2 * pause, kLongestPause)) {
    std::this_thread::sleep_for(pause);
    if (!is_taken()) return true;
  }
  return false;
}

}  // namespace

bool IsWithinSizeLimit(std::uint64_t size) noexcept {
  rlimit limit{};
  const bool is_limited = getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
  if (!is_limited || size <= limit.rlim_cur) return true;
  errno = EFBIG;
  return false;
}

bool WriteAt(int file, const void* data, std::size_t size, std::uint64_t offset) {
  if (!IsWithinSizeLimit(offset + size)) return FailWithErrno();
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

void FileDescriptor::Reset(int descriptor) noexcept {
  const int old = std::exchange(descriptor_, descriptor);
  if (old < 0) return;
  const int kept = errno;
  close(old);
  errno = kept;
}

bool SetFileLock(int file, short kind) noexcept {
  struct flock lock = WholeFile(kind);
  return RetryInterrupted([&] { return fcntl(file, F_OFD_SETLK, &lock); }) == 0;
}

void LockForReading(int file) { WaitForLock(file, F_RDLCK, std::chrono::milliseconds(200)); }

bool LockForWriting(int file, short kind) {
  for (const auto limit : {std::chrono::seconds(1), std::chrono::seconds(9)}) {
    if (WaitForLock(file, kind, limit) || IsKeptByReader(file, kind)) return true;
  }
  return Fail(kErrorSharingViolation);
}

void UnlockFile(int file) noexcept {
  const int kept = errno;
  SetFileLock(file, F_UNLCK);
  errno = kept;
}

bool LockedFile::Close() noexcept {
  UnlockFile(get());
  return close(Release()) == 0;
}

int PollUntil(std::span<pollfd> sockets,
              const std::chrono::steady_clock::time_point* deadline) noexcept {
  using std::chrono::nanoseconds;
  for (;;) {
    timespec left{};
    if (deadline != nullptr) {
      const auto time =
          std::max(nanoseconds(0), nanoseconds(*deadline - std::chrono::steady_clock::now()));
      left.tv_sec = time.count() / 1'000'000'000;
      left.tv_nsec = time.count() % 1'000'000'000;
    }
    const int ready =
        ppoll(sockets.data(), sockets.size(), deadline != nullptr ? &left : nullptr, nullptr);
    if (ready >= 0 || errno != EINTR) return ready;
  }
}

std::wstring NameFromNative(std::string_view name) {
  std::wstring wide;
  wide.reserve(name.size());
  for (std::size_t i = 0; i < name.size();) {
    if (IsPlain(name[i])) {
      wide += static_cast<wchar_t>(name[i++]);
      continue;
    }
    const Utf8Character character = ReadUtf8(name.substr(i));
    if (character.is_valid() && character.value != U'\\') {
      wide += static_cast<wchar_t>(character.value);
      i += character.length;
    } else {
      wide += static_cast<wchar_t>(kEscape + static_cast<unsigned char>(name[i++]));
    }
  }
  return wide;
}

std::string NameToNative(std::wstring_view name) {
  std::string native;
  native.reserve(name.size());
  for (std::size_t i = 0; i < name.size();) {
    const auto unit = static_cast<char32_t>(name[i]);
    if (unit < 0x80) {
      native += static_cast<char>(name[i++]);
      continue;
    }
    const bool is_escape =
        unit == kEscape + U'\\' || (unit >= kEscape + 0x80 && unit <= kEscape + 0xFF);
    if (is_escape) {
      native += static_cast<char>(unit - kEscape);
      ++i;
    } else {
      AppendUtf8Character(ReadCodePoint(name, i), native);
    }
  }
  return native;
}

std::string ParentOf(const std::string& native) {
  const std::size_t slash = native.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : native.substr(0, slash);
}

std::string DescriptorPath(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

namespace {

// The target of a link that may be followed; empty, with errno set, when it may not.
std::string TrustedTarget(const std::string& native) {
  const FileDescriptor link(open(native.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat info {};
  if (!link || fstat(link.get(), &info) != 0) return {};
  if (info.st_uid != 0 && info.st_uid != geteuid()) {
    errno = ELOOP;
    return {};
  }
  std::string target(PATH_MAX, '\0');
  const ssize_t size = readlinkat(link.get(), "", target.data(), target.size());
  if (size <= 0) return {};
  target.resize(static_cast<std::size_t>(size));
  return target.front() == '/' ? target : ParentOf(native) + '/' + target;
}

}  // namespace

FileDescriptor OpenForReading(const std::string& native) {
  constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW;
  constexpr int kMostLinks = 8;
  std::string name = native;
  for (int links = 0; links <= kMostLinks; ++links) {
    FileDescriptor file(open(name.c_str(), kFlags));
    if (file || errno != ELOOP) return file;
    name = TrustedTarget(name);
    if (name.empty()) return {};
  }
  errno = ELOOP;
  return {};
}

FileDescriptor MakeUnnamedFile(const std::string& native, int access_mode, mode_t mode) {
  FileDescriptor file(open(ParentOf(native).c_str(), O_TMPFILE | access_mode | O_CLOEXEC, mode));
  if (file && access(DescriptorPath(file.get()).c_str(), F_OK) != 0) file.Reset();
  return file;
}

bool NameFile(int descriptor, const std::string& native) {
  return linkat(AT_FDCWD, DescriptorPath(descriptor).c_str(), AT_FDCWD, native.c_str(),
                AT_SYMLINK_FOLLOW) == 0;
}

}  // namespace vk::tq
