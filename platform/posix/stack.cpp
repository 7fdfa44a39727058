#include "platform/stack.h"

#include <pthread.h>

#include <cstdint>

namespace vk::tq {
namespace {

// The usable addresses of a stack, which grows from the end to the begin.
struct StackRange {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
};

StackRange StackOfThread() noexcept {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return {};
  void* lowest = nullptr;
  std::size_t size = 0;
  StackRange range;
  if (pthread_attr_getstack(&attributes, &lowest, &size) == 0) {
    range.begin = reinterpret_cast<std::uintptr_t>(lowest);
    range.end = range.begin + size;
  }
  pthread_attr_destroy(&attributes);
  return range;
}

}  // namespace

std::size_t RemainingStack() noexcept {
  thread_local StackRange range;
  if (range.end == 0) range = StackOfThread();  // it may have lacked a descriptor before
  const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  return here > range.begin && here < range.end ? here - range.begin : 0;
}

}  // namespace vk::tq
