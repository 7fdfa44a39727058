#include "support/failing_allocation.h"

#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace {
thread_local bool fail_next = false;
}

// Never inlined: a compiler that sees malloc or free alone takes them for the wrong partner.
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (std::exchange(fail_next, false)) throw std::bad_alloc();
  if (void* memory = std::malloc(size > 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace vk::tq::testing {

void FailNextAllocation() { fail_next = true; }

}  // namespace vk::tq::testing
