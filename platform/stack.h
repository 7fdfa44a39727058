/// How much stack the calling thread has left.
#pragma once

#include <cstddef>

namespace vk::tq {

/// The bytes between this call and the end of the thread's stack; 0 when the thread runs on a stack
/// whose end is not known. Cheap after the first call of a thread.
std::size_t RemainingStack() noexcept;

}  // namespace vk::tq
