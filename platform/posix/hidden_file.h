// A file in the making.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/posix/native.h"

namespace vk::tq {

// A file in the folder of the name that it will get, which it takes in one step. Where the file
// system can do that it has no name until then, and otherwise a hidden one; without the last step
// nothing is left. What killed processes have left is removed by the next that needs a hidden name
// in the folder: a lock tells whose owner goes on.
class HiddenFile {
 public:
  explicit HiddenFile(std::string target) : target_(std::move(target)) {}
  HiddenFile(const HiddenFile&) = delete;
  HiddenFile& operator=(const HiddenFile&) = delete;
  ~HiddenFile();

  // To be called first. Fails with 3 when there is no such folder.
  bool Make(mode_t mode);
  int descriptor() const { return fd_.get(); }
  // Gives the file its name, in place of any other file.
  bool PutInPlace();

 private:
  bool MakeNamed(const char* name, mode_t mode);
  template <class Take>
  bool TakeHiddenName(const Take& take);

  const std::string target_;
  std::string name_;
  LockedFile fd_;
};

}  // namespace vk::tq
