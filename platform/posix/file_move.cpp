#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/posix/file_rights.h"
#include "platform/posix/hidden_file.h"
#include "platform/posix/native.h"

namespace vk::tq {
namespace {

// Brings what has happened to the names of a folder to the disk; errno tells why not. A folder that
// may not be opened is left to the system.
bool FlushFolder(const std::string& folder) {
  const FileDescriptor fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return !fd || fsync(fd.get()) == 0 || errno == EINVAL;
}

FileDescriptor OpenSource(const std::string& name, int access) {
  return FileDescriptor(
      open(name.c_str(), access | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
}

// Gives the copy the rights and the time of the source.
bool CopyAttributes(int source, int copy, const struct stat& info) {
  if (!CopyRights(source, copy, info)) return false;
  const std::array<timespec, 2> times = {info.st_atim, info.st_mtim};
  return futimens(copy, times.data()) == 0 || FailWithErrno();
}

bool CopyContents(int source, int copy) {
  std::array<char, 0x10000> buffer;
  for (std::uint64_t done = 0;;) {
    const ssize_t got =
        RetryInterrupted([&] { return read(source, buffer.data(), buffer.size()); });
    if (got < 0) return FailWithErrno();
    if (got == 0) return true;
    const auto size = static_cast<std::size_t>(got);
    if (!WriteAt(copy, buffer.data(), size, done)) return false;
    done += size;
  }
}

// Why a name no longer stands for the file that is being moved, or 0: another process may have moved,
// removed or replaced it.
int ErrnoOfName(const std::string& name, const struct stat& file) {
  struct stat named {};
  if (lstat(name.c_str(), &named) != 0) return errno;
  return IsSameFile(named, file) ? 0 : ENOENT;
}

// Removes the old name behind a copy. When it no longer stands for the file, the copy goes again: one
// file must not become two, and a new one is not this one's.
bool RemoveSource(const std::string& from, const struct stat& source, const std::string& to) {
  int error = ErrnoOfName(from, source);
  if (error == 0 && unlink(from.c_str()) != 0) error = errno;
  if (error == ENOENT) unlink(to.c_str());
  return error == 0 || Fail(ErrorFromErrno(error));
}

bool MoveByCopy(const std::string& from, const std::string& to) {
  // Locked as by a writer: what another one writes meanwhile would be lost, and another mover would
  // make a second file. Who may only read the file keeps the writers out.
  LockedFile source(OpenSource(from, O_RDWR));
  const short kind = source ? F_WRLCK : F_RDLCK;
  if (!source) source = LockedFile(OpenSource(from, O_RDONLY));
  if (!source) return FailWithErrno();
  if (!LockForWriting(source.get(), kind)) return false;
  struct stat info {};
  if (fstat(source.get(), &info) != 0) return FailWithErrno();
  if (!S_ISREG(info.st_mode)) return Fail(kErrorAccessDenied);
  // Asked for beforehand: when the old name cannot go, there had better be no second file.
  if (faccessat(AT_FDCWD, ParentOf(from).c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
    return FailWithErrno();
  }
  HiddenFile copy(to);  // for the calling user alone
  if (!copy.Make(0600) || !CopyContents(source.get(), copy.descriptor()) ||
      !CopyAttributes(source.get(), copy.descriptor(), info)) {
    return false;
  }
  if (fsync(copy.descriptor()) != 0) return FailWithErrno();
  // What is gone meanwhile must not replace another file.
  if (const int error = ErrnoOfName(from, info)) return Fail(ErrorFromErrno(error));
  return copy.PutInPlace() && (FlushFolder(ParentOf(to)) || FailWithErrno()) &&
         RemoveSource(from, info, to);
}

// rename(2) does nothing when both names are links to one file: the old one is still to go.
void RemoveOtherLink(const std::string& from, const std::string& to) {
  struct stat old_file {};
  struct stat new_file {};
  struct stat old_folder {};
  struct stat new_folder {};
  if (lstat(from.c_str(), &old_file) != 0 || lstat(to.c_str(), &new_file) != 0) return;
  if (!IsSameFile(old_file, new_file) || old_file.st_nlink < 2) return;
  if (stat(ParentOf(from).c_str(), &old_folder) != 0) return;
  if (stat(ParentOf(to).c_str(), &new_folder) != 0) return;
  const bool is_same_name = IsSameFile(old_folder, new_folder) &&
                            from.substr(from.rfind('/') + 1) == to.substr(to.rfind('/') + 1);
  if (!is_same_name) unlink(from.c_str());
}

}  // namespace

bool MoveFileReplacing(const std::wstring& from, const std::wstring& to) {
  const std::string old_name = PathToNative(from);
  const std::string new_name = PathToNative(to);
  // The contents first: a name must not reach the disk before them.
  const FileDescriptor source = OpenSource(old_name, O_RDONLY);
  if (source && fsync(source.get()) != 0 && errno != EINVAL) return FailWithErrno();
  if (rename(old_name.c_str(), new_name.c_str()) == 0) {
    RemoveOtherLink(old_name, new_name);
  } else if (errno != EXDEV) {
    struct stat info {};
    const int error = errno;
    if (error == ENOENT && lstat(old_name.c_str(), &info) == 0) return Fail(kErrorPathNotFound);
    return Fail(ErrorFromErrno(error));
  } else if (!MoveByCopy(old_name, new_name)) {
    return false;
  }
  FlushFolder(ParentOf(new_name));
  FlushFolder(ParentOf(old_name));
  return true;
}

}  // namespace vk::tq
