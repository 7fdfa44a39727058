/// What the tests see of the named mutexes.
#pragma once

#include <cstdint>
#include <string>

namespace vk::tq::internal {

/// The key that the search for the mutex's semaphore set begins with.
std::int32_t NamedMutexKey(const std::wstring& name);

/// The id of the mutex's semaphore set; -1 when there is none.
int FindNamedMutexSet(const std::wstring& name);

/// Gives the process, and those that it starts by fork, mutexes of their own for a scope: none of
/// them is known outside, and those that stay are removed at the scope's end. The kills of one test
/// then cannot disturb another one that runs at the same time.
class ScopedMutexNamespace {
 public:
  ScopedMutexNamespace();
  ScopedMutexNamespace(const ScopedMutexNamespace&) = delete;
  ScopedMutexNamespace& operator=(const ScopedMutexNamespace&) = delete;
  ~ScopedMutexNamespace();

 private:
  std::uint32_t old_;
};

}  // namespace vk::tq::internal
