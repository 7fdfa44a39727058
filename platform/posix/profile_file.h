// An INI file on disk: locked while it is read or changed, and changed in place.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/native.h"

namespace vk::tq::internal {

// The bytes of a file; nothing, with the last error set, when it cannot be read.
std::optional<std::string> ReadProfileFile(const std::string& native);

// A file between reading and writing. Every other process that reads or writes it through this
// class waits meanwhile.
class ProfileFile {
 public:
  ProfileFile() = default;
  ProfileFile(const ProfileFile&) = delete;
  ProfileFile& operator=(const ProfileFile&) = delete;
  // Removes a file that was made and never written.
  ~ProfileFile();

  // Opens or creates the file, takes its lock and reads it. As all operations here: false, with the
  // last error set, on failure.
  bool Open(const std::string& native);
  const std::string& bytes() const { return bytes_; }

  // Puts other bytes in the place of the old ones and closes the file. On failure the old ones
  // stand; 183 when the file was new and another process has made one meanwhile.
  bool Replace(std::string_view bytes);

 private:
  bool OpenOnce(bool& is_made);
  bool IsStillNamed() const;
  bool Mend();
  bool Reserve(std::size_t size);
  bool WriteFrom(std::size_t begin, std::string_view bytes);
  void Restore(std::size_t offset);

  std::string native_;
  LockedFile file_;
  std::string bytes_;
  bool is_new_ = false;      // made under its name, and not written yet
  bool is_unnamed_ = false;  // made, and not visible yet
};

}  // namespace vk::tq::internal
