#include "platform/posix/replacement_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "platform/posix/file_rights.h"

namespace vk::tq {
namespace {

// A name that nobody can foresee. It is hidden, and belongs to no family of files.
std::string TemporaryName() {
  std::uint64_t number = 0;
  [[maybe_unused]] const ssize_t ignored = getrandom(&number, sizeof number, 0);
  char name[32];
  std::snprintf(name, sizeof name, ".tq-%016llx", static_cast<unsigned long long>(number));
  return name;
}

}  // namespace

ReplacementFile::~ReplacementFile() {
  if (is_named_) unlink(temporary_.c_str());
}

bool ReplacementFile::Open(const std::wstring& path) {
  target_ = PathToNative(path);
  old_.Reset(open(target_.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!old_) return errno == ENOENT ? Create(0666) : FailWithErrno();
  struct stat info {};
  if (fstat(old_.get(), &info) != 0) return FailWithErrno();
  if (S_ISLNK(info.st_mode)) {
    old_.Reset();
    return Create(0666);
  }
  if (!S_ISREG(info.st_mode)) return Fail(kErrorAccessDenied);
  if (faccessat(AT_FDCWD, DescriptorPath(old_.get()).c_str(), W_OK, AT_EACCESS) != 0) {
    return FailWithErrno();
  }
  return Create(0600);
}

bool ReplacementFile::Create(mode_t mode) {
  temporary_ = ParentOf(target_) + "/" + TemporaryName();
  file_ = MakeUnnamedFile(target_, O_WRONLY, mode);
  if (file_) return true;
  file_.Reset(open(temporary_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, mode));
  if (!file_) return errno == ENOENT ? Fail(kErrorPathNotFound) : FailWithErrno();
  is_named_ = true;
  return true;
}

bool ReplacementFile::Write(const void* data, std::size_t size) {
  const char* from = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t put = RetryInterrupted([&] { return write(file_.get(), from, size); });
    if (put < 0) return FailWithErrno();
    from += put;
    size -= static_cast<std::size_t>(put);
  }
  return true;
}

bool ReplacementFile::Commit() {
  struct stat old {};
  if (old_ && fstat(old_.get(), &old) != 0) return FailWithErrno();
  if (old_ && !CopyRights(old_.get(), file_.get(), old)) return false;
  if (fsync(file_.get()) != 0) return FailWithErrno();
  return PutInPlace();
}

bool ReplacementFile::PutInPlace() {
  if (!is_named_) {
    if (NameFile(file_.get(), target_)) return true;
    if (errno != EEXIST) return FailWithErrno();
    if (!NameFile(file_.get(), temporary_)) return FailWithErrno();
    is_named_ = true;
  }
  if (rename(temporary_.c_str(), target_.c_str()) != 0) return FailWithErrno();
  is_named_ = false;
  return true;
}

}  // namespace vk::tq
