// A file descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace vk::tq::posix {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~UniqueFd() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  // A close that fails has closed the descriptor all the same.
  bool reset(int fd = -1) {
    const int old = std::exchange(fd_, fd);
    return old < 0 || close(old) == 0;
  }

 private:
  int fd_ = -1;
};

}  // namespace vk::tq::posix
