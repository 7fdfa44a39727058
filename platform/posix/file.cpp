#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <utility>

#include "platform/error.h"
#include "platform/path.h"
#include "platform/posix/native.h"
#include "platform/posix/spare_copy.h"

namespace vk::tq {

using namespace internal;

namespace {

FileStatus StatusFromStat(const struct stat& info) {
  // Times outside the years 1678 to 2262 count as the first and the last of them.
  constexpr std::int64_t kSecond = 1'000'000'000;
  constexpr std::int64_t kLast = std::numeric_limits<std::int64_t>::max() / kSecond - 1;
  const std::int64_t seconds = std::clamp<std::int64_t>(info.st_mtim.tv_sec, -kLast, kLast);
  return {S_ISDIR(info.st_mode), static_cast<std::uint64_t>(info.st_size),
          seconds * kSecond + info.st_mtim.tv_nsec};
}

// A directory is refused as Windows refuses it. So is a pipe or a socket that somebody has put in
// the file's place: it would block.
bool IsReadable(int fd, struct stat& info) {
  if (fstat(fd, &info) != 0) return FailWithErrno();
  return S_ISREG(info.st_mode) || S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode) ||
         Fail(kErrorAccessDenied);
}

// Sets the last error from errno. When the name is missing, 2 and 3 tell whether its folder is there.
bool FailAtPath(const std::string& native) {
  const int error = errno;
  struct stat info {};
  if (error == ENOENT && stat(ParentOf(native).c_str(), &info) != 0)
    return Fail(kErrorPathNotFound);
  return Fail(ErrorFromErrno(error));
}

}  // namespace

std::optional<FileStatus> GetFileStatus(const std::wstring& path) {
  const std::string native = PathToNative(path);
  struct stat info {};
  if (stat(native.c_str(), &info) != 0) {
    FailAtPath(native);
    return {};
  }
  return StatusFromStat(info);
}

bool IsSameFile(const std::wstring& left, const std::wstring& right) {
  struct stat left_info {};
  struct stat right_info {};
  return stat(PathToNative(left).c_str(), &left_info) == 0 &&
         stat(PathToNative(right).c_str(), &right_info) == 0 && IsSameFile(left_info, right_info);
}

InputFile::~InputFile() { Close(); }

void InputFile::Close() {
  const LockedFile close(static_cast<int>(std::exchange(handle_, kClosed)));
}

bool InputFile::Open(const std::wstring& path, FileStatus& status) {
  return Open(path, status, true);
}

bool InputFile::OpenUnlocked(const std::wstring& path) {
  FileStatus ignored;
  return Open(path, ignored, false);
}

bool InputFile::Open(const std::wstring& path, FileStatus& status, bool is_locked) {
  Close();
  const std::string native = PathToNative(path);
  LockedFile fd(OpenForReading(native));
  if (!fd) return FailAtPath(native);
  // First of all: the size and the copy that a living writer shows are gone in a moment.
  if (is_locked) LockForReading(fd.get());
  struct stat info {};
  if (!IsReadable(fd.get(), info)) return false;
  status = StatusFromStat(info);
  size_ = left_ = kNoLimit;
  const auto copy = S_ISREG(info.st_mode) ? FindSpareCopy(fd.get(), status.size) : std::nullopt;
  if (copy) {
    if (lseek(fd.get(), static_cast<off_t>(copy->begin), SEEK_SET) < 0) return FailWithErrno();
    status.size = size_ = left_ = copy->size;
  }
  handle_ = fd.Release();
  return true;
}

std::optional<FileStatus> InputFile::Status() const {
  struct stat info {};
  if (fstat(static_cast<int>(handle_), &info) != 0) {
    FailWithErrno();
    return {};
  }
  FileStatus status = StatusFromStat(info);
  status.size = std::min(status.size, size_);
  return status;
}

std::optional<std::size_t> InputFile::Read(void* buffer, std::size_t size) {
  size = std::min<std::uint64_t>(size, left_);
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got =
        read(static_cast<int>(handle_), static_cast<char*>(buffer) + done, size - done);
    if (got == 0) break;
    if (got > 0) {
      done += static_cast<std::size_t>(got);
    } else if (errno != EINTR) {
      FailWithErrno();
      return {};
    }
  }
  if (left_ == kNoLimit) return done;
  // Without the lock, a copy may be that of a writer that lives, and has been cut off.
  if (done < size) {
    Fail(kErrorSharingViolation);
    return {};
  }
  left_ -= done;
  return done;
}

std::optional<SecureBytes> ReadFile(const std::wstring& path) {
  InputFile file;
  FileStatus status;
  if (!file.Open(path, status)) return {};
  // One byte more than the file has: a file that keeps its length is read by two calls.
  SecureBytes bytes(static_cast<std::size_t>(status.size) + 1);
  std::size_t size = 0;
  for (;;) {
    const std::optional<std::size_t> got = file.Read(bytes.data() + size, bytes.size() - size);
    if (!got) return {};
    size += *got;
    if (size < bytes.size()) break;
    bytes.resize(2 * bytes.size());
  }
  bytes.resize(size);
  return bytes;
}

InPlaceWriter::~InPlaceWriter() { TakeBack(); }

bool InPlaceWriter::Open(const std::wstring& path, std::uint64_t final_size) {
  TakeBack();
  native_path_ = PathToNative(path);
  // Between the two attempts another process may make the file, or remove it.
  for (int attempt = 0; attempt < 10; ++attempt) {
    if (OpenExisting(native_path_)) return Reserve(final_size);
    if (GetLastError() != kErrorFileNotFound) return false;
    if (CreateNew(native_path_)) return Reserve(final_size);
    if (GetLastError() != kErrorAlreadyExists) return false;
  }
  return false;
}

bool InPlaceWriter::OpenExisting(const std::string& native) {
  constexpr int kFlags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  // Who may only write goes without a look at what a killed writer may have left.
  LockedFile fd(open(native.c_str(), O_RDWR | kFlags));
  if (!fd && errno == EACCES) fd = LockedFile(open(native.c_str(), O_WRONLY | kFlags));
  if (!fd) return FailWithErrno();
  if (!LockForWriting(fd.get())) return false;
  struct stat info {};
  if (fstat(fd.get(), &info) != 0) return FailWithErrno();
  if (!S_ISREG(info.st_mode)) return Fail(kErrorAccessDenied);
  // Removed or replaced while somebody else had the lock: what is written would be lost.
  if (info.st_nlink == 0) return Fail(kErrorFileNotFound);
  old_size_ = static_cast<std::uint64_t>(info.st_size);
  if (const auto copy = FindSpareCopy(fd.get(), old_size_)) {
    const auto size = PutSpareCopyInPlace(fd.get(), *copy);
    if (!size) return false;
    old_size_ = *size;
  }
  is_new_ = is_unnamed_ = false;
  handle_ = fd.Release();
  return true;
}

// Makes the file without a name, so that nobody sees it before it is whole. Where the file system
// cannot do that, the file is made under its name.
bool InPlaceWriter::CreateNew(const std::string& native) {
  LockedFile fd(MakeUnnamedFile(native, O_WRONLY, 0666));
  is_unnamed_ = static_cast<bool>(fd);
  if (!is_unnamed_) {
    fd = LockedFile(open(native.c_str(),
                         O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY, 0666));
  }
  if (!fd) {
    FailWithErrno();
    // The file itself was missing a moment ago, so it must be its folder.
    return GetLastError() == kErrorFileNotFound ? Fail(kErrorPathNotFound) : false;
  }
  if (!is_unnamed_) {
    if (!LockForWriting(fd.get())) return false;
    // Another writer may have found the file before, and filled it or taken it back.
    struct stat info {};
    const bool is_found = fstat(fd.get(), &info) == 0 && (info.st_size != 0 || info.st_nlink == 0);
    if (is_found) return Fail(kErrorAlreadyExists);
  }
  old_size_ = 0;
  is_new_ = true;
  handle_ = fd.Release();
  return true;
}

bool InPlaceWriter::Reserve(std::uint64_t size) {
  final_size_ = size;
  const auto reserve = [&] {
    if (!IsWithinSizeLimit(size)) return -1;
    return fallocate(static_cast<int>(handle_), 0, 0, static_cast<off_t>(size));
  };
  if (size == 0 || RetryInterrupted(reserve) == 0) return true;
  // Some network file systems cannot reserve anything: there a full disk shows while writing.
  if (errno == EOPNOTSUPP || errno == ENOSYS) return true;
  FailWithErrno();
  TakeBack();
  return false;
}

void InPlaceWriter::TakeBack() {
  const LockedFile fd(static_cast<int>(std::exchange(handle_, -1)));
  if (!fd) return;
  const LastErrorKeeper keep;
  if (is_new_ && !is_unnamed_) {
    unlink(native_path_.c_str());
  } else if (!is_new_ && written_ == 0) {
    [[maybe_unused]] const int ignored = ftruncate(fd.get(), static_cast<off_t>(old_size_));
  }
  written_ = 0;
}

bool InPlaceWriter::Write(const void* data, std::size_t size) {
  const int file = static_cast<int>(handle_);
  const bool is_whole = written_ == 0 && size == final_size_;
  if (is_whole && !is_new_ && size > kPageSize) AppendSpareCopy(file, old_size_, data, size);
  const char* from = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t put = RetryInterrupted([&] { return write(file, from, size); });
    if (put < 0) return FailWithErrno();
    from += put;
    size -= static_cast<std::size_t>(put);
    written_ += static_cast<std::uint64_t>(put);
  }
  return true;
}

bool InPlaceWriter::Commit(std::uint64_t size) {
  LockedFile fd(static_cast<int>(std::exchange(handle_, -1)));
  written_ = 0;
  const auto cut = [&] { return ftruncate(fd.get(), static_cast<off_t>(size)); };
  const bool is_whole = RetryInterrupted(cut) == 0;
  if (is_whole && is_unnamed_ && !NameFile(fd.get(), native_path_)) return FailWithErrno();
  if (is_whole && fd.Close()) return true;
  FailWithErrno();
  const bool has_name = is_new_ && (is_whole || !is_unnamed_);
  if (has_name) unlink(native_path_.c_str());
  return false;
}

bool WriteFileInPlace(const std::wstring& path, const void* data, std::size_t size) {
  InPlaceWriter file;
  return file.Open(path, size) && file.Write(data, size) && file.Commit();
}

namespace {

// Whether two names lead to one and the same file by different spellings, rather than by two hard
// links.
bool IsOtherSpelling(const std::string& from, const std::string& to) {
  struct stat left {};
  struct stat right {};
  return lstat(from.c_str(), &left) == 0 && lstat(to.c_str(), &right) == 0 &&
         IsSameFile(left, right) && left.st_nlink == 1;
}

// Ends what a kill within RenameByLink has left: takes its other number away from a numbered file,
// so that the name that the caller knows is the one that goes on.
void RemoveOtherNumbers(const std::wstring& path) {
  struct stat info {};
  if (lstat(PathToNative(path).c_str(), &info) != 0 || info.st_nlink < 2) return;
  const std::size_t folder_end = path.find_last_of(L"\\/") + 1;
  const std::size_t point = path.rfind(L'.');
  if (point == path.npos || point < folder_end) return;
  const std::wstring base = path.substr(0, point);
  const std::wstring folder = path.substr(0, folder_end);
  const LastErrorKeeper keep;
  for (const FoundFile& file : FindFamily(base).value_or(std::vector<FoundFile>())) {
    const std::wstring other = folder + file.name;
    const bool is_number = other.size() == base.size() + 4 &&
                           other.find_first_not_of(L"0123456789", base.size() + 1) == other.npos;
    if (is_number && other != path && IsSameFile(other, path)) RemoveFile(other);
  }
}

// For file systems that cannot rename without replacing. Between the two steps the file has both
// names.
bool RenameByLink(const std::wstring& from, const std::wstring& to) {
  RemoveOtherNumbers(from);
  const std::string old_name = PathToNative(from);
  const std::string new_name = PathToNative(to);
  if (link(old_name.c_str(), new_name.c_str()) != 0) return FailWithErrno();
  if (unlink(old_name.c_str()) == 0) return true;
  FailWithErrno();
  unlink(new_name.c_str());  // one file must not go by two names
  return false;
}

}  // namespace

bool RenameFile(const std::wstring& from, const std::wstring& to) {
  const std::string old_name = PathToNative(from);
  const std::string new_name = PathToNative(to);
  if (renameat2(AT_FDCWD, old_name.c_str(), AT_FDCWD, new_name.c_str(), RENAME_NOREPLACE) == 0) {
    return true;
  }
  const int error = errno;
  const bool is_by_link = error == EINVAL || error == ENOSYS;
  if ((is_by_link || error == EEXIST) &&
      (old_name == new_name || IsOtherSpelling(old_name, new_name))) {
    return rename(old_name.c_str(), new_name.c_str()) == 0 || FailWithErrno();
  }
  return is_by_link ? RenameByLink(from, to) : Fail(ErrorFromErrno(error));
}

bool RemoveFile(const std::wstring& path) {
  const std::string native = PathToNative(path);
  return unlink(native.c_str()) == 0 || FailAtPath(native);
}

bool CreateFolder(const std::wstring& path) {
  if (mkdir(PathToNative(path).c_str(), 0777) == 0) return true;
  return errno == ENOENT ? Fail(kErrorPathNotFound) : FailWithErrno();
}

namespace {

bool IsFolder(const std::string& native) {
  struct stat info {};
  return stat(native.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool CreateNativeFolders(const std::string& native) {
  if (mkdir(native.c_str(), 0777) == 0) return true;
  if (errno == EEXIST) return IsFolder(native) || Fail(kErrorAlreadyExists);
  const std::string parent = ParentOf(native);
  if (errno != ENOENT || parent.size() >= native.size()) return FailWithErrno();
  return CreateNativeFolders(parent) &&
         (mkdir(native.c_str(), 0777) == 0 || IsFolder(native) || FailWithErrno());
}

}  // namespace

bool CreateFolders(const std::wstring& path) {
  std::string native = PathToNative(path);
  while (native.size() > 1 && native.back() == '/') native.pop_back();
  return CreateNativeFolders(native);
}

}  // namespace vk::tq
