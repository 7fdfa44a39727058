// A file that takes the place of another in one step.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "platform/posix/native.h"

namespace vk::tq {

// New contents for a path. They lie beside the old file, without a name where the file system can
// do that, and take its place with Commit; without one the old file stays as it was and nothing is
// left behind.
class ReplacementFile {
 public:
  ReplacementFile() = default;
  ReplacementFile(const ReplacementFile&) = delete;
  ReplacementFile& operator=(const ReplacementFile&) = delete;
  ~ReplacementFile();

  // Fails with 5 when the path leads to something that is no file, or to one that may not be
  // written. A link is replaced by a new file.
  bool Open(const std::wstring& path);
  bool Write(const void* data, std::size_t size);
  // Gives the new file owner, group and rights of the old one, as CopyRights does, brings it to the
  // disk and puts it in place.
  bool Commit();

 private:
  bool Create(mode_t mode);
  bool PutInPlace();

  FileDescriptor file_;
  FileDescriptor old_;  // the file that is to be replaced, if there is one
  std::string target_;
  std::string temporary_;  // beside the target; its name does not begin like the target's
  bool is_named_ = false;  // the temporary name exists
};

}  // namespace vk::tq
