#include "platform/posix/profile_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/posix/spare_copy.h"

namespace vk::tq::internal {
namespace {

// What is larger is no INI file: somebody means to use up the memory.
constexpr off_t kLargest = 0x1000000;

bool IsRegular(int file, struct stat& status) {
  if (fstat(file, &status) != 0) return FailWithErrno();
  return S_ISREG(status.st_mode) || Fail(kErrorAccessDenied);
}

bool ReadAll(int file, std::string& bytes) {
  struct stat status {};
  if (!IsRegular(file, status)) return false;
  if (status.st_size > kLargest) return Fail(kErrorFileTooLarge);
  // One more than the file holds, so that its end shows without another reading.
  bytes.resize(static_cast<std::size_t>(status.st_size) + 1);
  for (std::size_t size = 0;;) {
    const ssize_t count = RetryInterrupted([&] {
      return pread(file, bytes.data() + size, bytes.size() - size, static_cast<off_t>(size));
    });
    if (count < 0) return FailWithErrno();
    size += static_cast<std::size_t>(count);
    // Of a regular file, only its end gives less than was asked for.
    if (size < bytes.size()) {
      bytes.resize(size);
      return true;
    }
    bytes.resize(2 * size);
  }
}

// Leaves of a file's bytes its text, which a second copy stands for when it is whole.
void KeepText(std::string& bytes, const std::optional<SpareCopy>& copy) {
  if (copy) {
    bytes =
        bytes.substr(static_cast<std::size_t>(copy->begin), static_cast<std::size_t>(copy->size));
  }
  bytes.resize(SizeWithoutCopy(bytes));
}

// Whether the kernel writes these bytes at this place whole, even when the process is killed.
bool IsWithinPage(std::size_t begin, std::size_t size) {
  return size == 0 || begin / kPageSize == (begin + size - 1) / kPageSize;
}

}  // namespace

std::optional<std::string> ReadProfileFile(const std::string& native) {
  const LockedFile file(OpenForReading(native));
  std::string bytes;
  struct stat status {};
  if (!file) {
    FailWithErrno();
    return std::nullopt;
  }
  if (!IsRegular(file.get(), status)) return std::nullopt;
  LockForReading(file.get());
  if (!ReadAll(file.get(), bytes)) return std::nullopt;
  KeepText(bytes, FindSpareCopy(bytes));
  return bytes;
}

ProfileFile::~ProfileFile() {
  if (file_ && is_new_) unlink(native_.c_str());
}

bool ProfileFile::Open(const std::string& native) {
  native_ = native;
  bool is_made = false;
  // Another process may remove the file, or put another one in its place, before its lock is here.
  do {
    if (!OpenOnce(is_made) || !LockForWriting(file_.get())) return false;
  } while (!is_unnamed_ && !IsStillNamed());
  if (!ReadAll(file_.get(), bytes_)) return false;
  // Or find the new one first and write it: then it is not for this one to remove.
  is_new_ = is_made && bytes_.empty();
  return Mend();
}

// Puts in its place what a writer had begun to put there when it was killed, and cuts off a copy
// that has no end.
bool ProfileFile::Mend() {
  const auto copy = FindSpareCopy(bytes_);
  const std::size_t size = bytes_.size();
  KeepText(bytes_, copy);
  if (copy) return PutSpareCopyInPlace(file_.get(), *copy).has_value();
  return bytes_.size() == size || ftruncate(file_.get(), static_cast<off_t>(bytes_.size())) == 0 ||
         FailWithErrno();
}

bool ProfileFile::OpenOnce(bool& is_made) {
  constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  for (;;) {
    is_made = is_unnamed_ = false;
    file_ = LockedFile(open(native_.c_str(), kFlags));
    if (file_) break;
    if (errno != ENOENT) return FailWithErrno();
    // Without a name until it is whole: whoever sees the file sees its values.
    file_ = LockedFile(MakeUnnamedFile(native_, O_RDWR, 0666));
    is_unnamed_ = static_cast<bool>(file_);
    if (is_unnamed_) break;
    file_ = LockedFile(open(native_.c_str(), kFlags | O_CREAT | O_EXCL, 0666));
    is_made = static_cast<bool>(file_);
    if (is_made) break;
    if (errno == ENOENT) return Fail(kErrorPathNotFound);
    if (errno != EEXIST) return FailWithErrno();
  }
  struct stat status {};
  return IsRegular(file_.get(), status);
}

bool ProfileFile::IsStillNamed() const {
  struct stat opened {};
  struct stat named {};
  return fstat(file_.get(), &opened) == 0 && lstat(native_.c_str(), &named) == 0 &&
         IsSameFile(opened, named);
}

bool ProfileFile::Reserve(std::size_t size) {
  if (size <= bytes_.size()) return true;
  const auto old_size = static_cast<off_t>(bytes_.size());
  const auto reserve = [&] {
    if (!IsWithinSizeLimit(size)) return -1;
    return fallocate(file_.get(), 0, old_size, static_cast<off_t>(size) - old_size);
  };
  if (RetryInterrupted(reserve) == 0) return true;
  if (errno == EOPNOTSUPP || errno == ENOSYS) return true;
  return FailWithErrno();
}

void ProfileFile::Restore(std::size_t offset) {
  const LastErrorKeeper keeper;
  // If the disk does not take the old bytes either, a copy of the new ones may be all that is whole.
  if (!WriteAt(file_.get(), bytes_.data() + offset, bytes_.size() - offset, offset)) return;
  if (ftruncate(file_.get(), static_cast<off_t>(bytes_.size())) != 0) FailWithErrno();
}

bool ProfileFile::Replace(std::string_view bytes) {
  // Nothing to write still counts as a write: whoever watches the file sees its time move.
  if (bytes == bytes_) return futimens(file_.get(), nullptr) == 0 || FailWithErrno();
  // What has not changed is not written.
  const auto begin =
      static_cast<std::size_t>(std::ranges::mismatch(bytes, bytes_).in1 - bytes.begin());
  if (!WriteFrom(begin, bytes)) {
    Restore(begin);
    return false;
  }
  if (is_unnamed_ && !NameFile(file_.get(), native_)) return FailWithErrno();
  is_new_ = is_unnamed_ = false;
  return file_.Close() || errno == EINTR || FailWithErrno();
}

bool ProfileFile::WriteFrom(std::size_t begin, std::string_view bytes) {
  // NULs cover what a shorter text leaves of the old one: if this process ends before the file is
  // cut, they mean nothing to a reader.
  std::string changed(bytes.substr(begin));
  if (bytes.size() < bytes_.size()) changed.append(bytes_.size() - bytes.size(), '\0');
  if (!Reserve(bytes.size())) return false;
  const bool is_seen = !is_new_ && !is_unnamed_;
  const bool has_copy = is_seen && !IsWithinPage(begin, changed.size()) &&
                        AppendSpareCopy(file_.get(), bytes_.size(), bytes.data(), bytes.size());
  if (!WriteAt(file_.get(), changed.data(), changed.size(), begin)) return false;
  if (!has_copy && bytes.size() >= bytes_.size()) return true;
  const auto cut = [&] { return ftruncate(file_.get(), static_cast<off_t>(bytes.size())); };
  return RetryInterrupted(cut) == 0 || FailWithErrno();
}

}  // namespace vk::tq::internal
