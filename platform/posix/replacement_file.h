// A file that takes the place of another in one step.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/posix/hidden_file.h"
#include "platform/posix/native.h"

namespace vk::tq {

// New contents for a path. They lie beside the old file as a HiddenFile and take its place with
// Commit; without one the old file stays as it was.
class ReplacementFile {
 public:
  // Fails with 5 when the path leads to something that is no file, or to one that may not be
  // written. A link is replaced by a new file.
  bool Open(const std::wstring& path);
  bool Write(const void* data, std::size_t size);
  // Gives the new file owner, group and rights of the old one, as CopyRights does, brings it to the
  // disk and puts it in place.
  bool Commit();

 private:
  std::optional<HiddenFile> file_;
  std::uint64_t written_ = 0;
  FileDescriptor old_;  // the file that is to be replaced, if there is one
};

}  // namespace vk::tq
