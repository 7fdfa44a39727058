#include "platform/posix/replacement_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/file_rights.h"

namespace vk::tq {

bool ReplacementFile::Open(const std::wstring& path) {
  const std::string target = PathToNative(path);
  old_.Reset(open(target.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!old_ && errno != ENOENT) return FailWithErrno();
  struct stat info {};
  if (old_ && fstat(old_.get(), &info) != 0) return FailWithErrno();
  if (S_ISLNK(info.st_mode)) old_.Reset();
  if (old_ && !S_ISREG(info.st_mode)) return Fail(kErrorAccessDenied);
  if (old_ && faccessat(AT_FDCWD, DescriptorPath(old_.get()).c_str(), W_OK, AT_EACCESS) != 0) {
    return FailWithErrno();
  }
  return file_.emplace(target).Make(old_ ? 0600 : 0666);
}

bool ReplacementFile::Write(const void* data, std::size_t size) {
  const char* from = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t put = RetryInterrupted([&] { return write(file_->descriptor(), from, size); });
    if (put < 0) return FailWithErrno();
    from += put;
    size -= static_cast<std::size_t>(put);
  }
  return true;
}

bool ReplacementFile::Commit() {
  struct stat old {};
  if (old_ && fstat(old_.get(), &old) != 0) return FailWithErrno();
  if (old_ && !CopyRights(old_.get(), file_->descriptor(), old)) return false;
  if (fsync(file_->descriptor()) != 0) return FailWithErrno();
  return file_->PutInPlace();
}

}  // namespace vk::tq
