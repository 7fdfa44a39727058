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
  written_ = 0;
  if (old_) {
    struct stat info {};
    if (fstat(old_.get(), &info) != 0) return FailWithErrno();
    if (S_ISLNK(info.st_mode)) {
      old_.Reset();
    } else if (!S_ISREG(info.st_mode)) {
      return Fail(kErrorAccessDenied);
    } else if (faccessat(AT_FDCWD, DescriptorPath(old_.get()).c_str(), W_OK, AT_EACCESS) != 0) {
      return FailWithErrno();
    }
  } else if (errno != ENOENT) {
    return FailWithErrno();
  }
  return file_.emplace(target).Make(old_ ? 0600 : 0666);
}

bool ReplacementFile::Write(const void* data, std::size_t size) {
  if (!WriteAt(file_->descriptor(), data, size, written_)) return false;
  written_ += size;
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
