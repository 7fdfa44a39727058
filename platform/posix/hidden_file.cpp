#include "platform/posix/hidden_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"

namespace vk::tq {
namespace {

// Locks a file for its owner; the lock goes when the last process that has it open ends. Nobody
// waits. Where the file system knows no such locks, no orphan is found either.
bool TakeOwnership(int file) { return SetFileLock(file, F_WRLCK); }

constexpr std::string_view kHiddenName = ".move-";

// A name that nobody can foresee.
std::string HiddenName() {
  std::uint64_t number = 0;
  [[maybe_unused]] const ssize_t ignored = getrandom(&number, sizeof number, 0);
  return std::string(kHiddenName) + std::to_string(number);
}

// Removes the hidden files that killed processes have left in a folder.
void RemoveOrphans(const std::string& folder) {
  const LastErrorKeeper keep;
  const auto files = FindFiles(PathFromNative(folder), L".move-*");
  for (const FoundFile& file : files.value_or(std::vector<FoundFile>())) {
    if (file.name.find_first_not_of(L"0123456789", kHiddenName.size()) != file.name.npos) continue;
    const std::string name = folder + "/" + NameToNative(file.name);
    const FileDescriptor fd(open(name.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (fd && TakeOwnership(fd.get())) unlink(name.c_str());
  }
}

}  // namespace

HiddenFile::~HiddenFile() {
  if (!name_.empty()) unlink(name_.c_str());
}

bool HiddenFile::Make(mode_t mode) {
  fd_ = LockedFile(MakeUnnamedFile(target_, O_WRONLY, mode));
  if (!fd_) return TakeHiddenName([&](const char* name) { return MakeNamed(name, mode); });
  TakeOwnership(fd_.get());
  return true;
}

bool HiddenFile::MakeNamed(const char* name, mode_t mode) {
  fd_ = LockedFile(open(name, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, mode));
  if (!fd_) return false;
  // Who looks for orphans may lock the new file first, and take it away.
  LockForWriting(fd_.get());
  struct stat info {};
  const bool is_taken = fstat(fd_.get(), &info) == 0 && info.st_nlink == 0;
  if (is_taken) errno = EEXIST;
  return !is_taken;
}

bool HiddenFile::PutInPlace() {
  if (name_.empty()) {
    if (NameFile(fd_.get(), target_)) return true;
    if (errno != EEXIST) return FailWithErrno();
    if (!TakeHiddenName([&](const char* name) { return NameFile(fd_.get(), name); })) return false;
  }
  if (rename(name_.c_str(), target_.c_str()) != 0) return FailWithErrno();
  name_.clear();
  return true;
}

// Tries names until one is free.
template <class Take>
bool HiddenFile::TakeHiddenName(const Take& take) {
  RemoveOrphans(ParentOf(target_));
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string name = ParentOf(target_) + "/" + HiddenName();
    if (take(name.c_str())) {
      name_ = std::move(name);  // which cannot fail and leave the file there
      return true;
    }
    if (errno != EEXIST) break;
  }
  return errno == ENOENT ? Fail(kErrorPathNotFound) : FailWithErrno();
}

}  // namespace vk::tq
