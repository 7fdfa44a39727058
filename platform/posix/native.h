// What the files of this folder share: errno values, file descriptors and native names.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/error.h"
#include "platform/path.h"

namespace vk::tq {

static_assert(sizeof(wchar_t) == 4, "in this folder a wide character is a whole code point");

// The error value that stands for an errno value; 31 when there is no better one.
ErrorCode ErrorFromErrno(int error_number) noexcept;

// Sets the last error and gives false.
bool Fail(ErrorCode code) noexcept;
// The same from errno.
bool FailWithErrno() noexcept;

// Whether the process's limit of file sizes lets a file be written up to this size; false, with
// EFBIG in errno, when it does not. The write itself would end the process by SIGXFSZ.
bool IsWithinSizeLimit(std::uint64_t size) noexcept;

// Writes everything, from a place in the file on, if that is within the limit.
bool WriteAt(int file, const void* data, std::size_t size, std::uint64_t offset);

inline bool IsSameFile(const struct stat& left, const struct stat& right) {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// A file descriptor that is closed with its owner. The destructor leaves errno alone.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  explicit FileDescriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.Release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    Reset(other.Release());
    return *this;
  }
  ~FileDescriptor() { Reset(); }

  int get() const noexcept { return descriptor_; }
  explicit operator bool() const noexcept { return descriptor_ >= 0; }
  int Release() noexcept { return std::exchange(descriptor_, -1); }
  void Reset(int descriptor = -1) noexcept;

 private:
  int descriptor_ = -1;
};

// Repeats a system call that a signal interrupted.
template <class Call>
auto RetryInterrupted(const Call& call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

// Sets an open-file-description lock on a whole file (F_RDLCK, F_WRLCK) or removes it (F_UNLCK).
// Nobody waits: false, with errno, when another opening of the file has one in the way.
bool SetFileLock(int file, short kind) noexcept;

// Locks a file for as long as its contents are read or changed in place: many readers, or one
// writer. A writer holds it for less than a millisecond as a rule. Whoever holds it longer was
// stopped, or means ill: nobody waits for that for ever. A reader goes on without the lock after
// 0.2 s, and a writer after 1 s if it is a reader who keeps it, for which no right to write is
// needed. Behind another writer it fails after 10 s, with 32. Where no lock can be had, as in some
// network file systems, both go on without one.
void LockForReading(int file);
// `kind` is F_RDLCK for a file that the caller may not write: that keeps writers out, too.
bool LockForWriting(int file, short kind = F_WRLCK);
// Leaves errno alone.
void UnlockFile(int file) noexcept;

// An open file that may have been locked: it is unlocked in front of closing. Closing alone would
// not be enough: a child that was forked meanwhile shares the lock.
class LockedFile {
 public:
  LockedFile() = default;
  explicit LockedFile(FileDescriptor file) noexcept : file_(std::move(file)) {}
  explicit LockedFile(int descriptor) noexcept : file_(descriptor) {}
  LockedFile(const LockedFile&) = delete;
  LockedFile& operator=(const LockedFile&) = delete;
  LockedFile(LockedFile&&) noexcept = default;
  LockedFile& operator=(LockedFile&& other) noexcept {
    std::swap(file_, other.file_);
    return *this;
  }
  ~LockedFile() {
    if (file_) UnlockFile(file_.get());
  }

  int get() const noexcept { return file_.get(); }
  explicit operator bool() const noexcept { return static_cast<bool>(file_); }
  int Release() noexcept { return file_.Release(); }
  // False, with errno set, when the system could not close it properly.
  bool Close() noexcept;

 private:
  FileDescriptor file_;
};

// poll(2) until something happens or the time is over; null stands for no limit. A signal ends
// nothing.
int PollUntil(std::span<pollfd> sockets,
              const std::chrono::steady_clock::time_point* deadline) noexcept;

// A single file name, without any separator, to wide text and back. Native names are UTF-8. A byte
// that is no UTF-8, and a backslash, which is an ordinary character in native names, become
// U+DC00 plus the byte: every file can be named, and every name reads back to the byte.
std::wstring NameFromNative(std::string_view name);
std::string NameToNative(std::wstring_view name);

// The folder that a native path lies in.
std::string ParentOf(const std::string& native);

// Opens a file for reading. A link in the place of the file is followed only when it belongs to the
// superuser or to the caller: nobody else can make the caller read what he wants. errno is ELOOP
// for such a link.
FileDescriptor OpenForReading(const std::string& native);

// A name that leads to an open file, also to one that has no name of its own.
std::string DescriptorPath(int descriptor);

// A new file in the folder of a path that has no name, so that nobody sees it before it is whole;
// none where the system cannot do that, or cannot name it later. `access` is O_WRONLY or O_RDWR.
FileDescriptor MakeUnnamedFile(const std::string& native, int access, mode_t mode);

// Gives it a name that is free; false, with errno set, when it is not (EEXIST), or fails.
bool NameFile(int descriptor, const std::string& native);

}  // namespace vk::tq
