#include "platform/named_mutex.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/posix/mutex_set.h"
#include "platform/posix/native.h"

namespace vk::tq {
namespace {

struct NamedMutex {
  NamedMutex(const MutexIdentity& of, MutexAccess with_access, int with_set) noexcept
      : identity(of), access(with_access), set(with_set) {}

  const MutexIdentity identity;
  const MutexAccess access;
  std::atomic<int> set;  // changes when the set was removed and made anew
};

// ---- What a thread knows ----

// A mutex that it owns.
struct Ownership {
  int set;
  std::uint32_t count;
  pid_t process;  // a child must not take over what it inherits by fork
};

// One of those that it opened last, so that opening it again need not compute or compare anything.
struct Known {
  std::wstring name;
  std::uint32_t space = 0;
  pid_t process = 0;  // a child may be of another session
  MutexIdentity identity;
  MutexSet set;
};

struct ThreadState {
  std::vector<Ownership> owned;
  std::array<Known, 8> known;
  std::size_t next_known = 0;
};

// A bare pointer, since the destructor of a static object may still use a mutex after those of the
// main thread's own objects have run.
thread_local ThreadState* thread_state = nullptr;

// What a thread owns at its end is abandoned.
struct ThreadEnd {
  bool is_needed = false;
  ThreadEnd() = default;
  ThreadEnd(const ThreadEnd&) = delete;
  ThreadEnd& operator=(const ThreadEnd&) = delete;
  ~ThreadEnd() {
    if (thread_state == nullptr) return;
    for (const Ownership& owned : thread_state->owned) {
      if (owned.process == getpid()) Abandon(owned.set);
    }
    delete std::exchange(thread_state, nullptr);
  }
};
thread_local ThreadEnd thread_end;

ThreadState& State() {
  if (thread_state == nullptr) {
    thread_end.is_needed = true;  // the first use of it has its destructor run
    thread_state = new ThreadState;
  }
  return *thread_state;
}

using Ownerships = std::vector<Ownership>;

// The place of a set in the list, which loses what a parent process owned.
Ownerships::iterator FindOwnership(Ownerships& owned, int set) noexcept {
  const auto found = std::find_if(owned.begin(), owned.end(),
                                  [&](const Ownership& one) { return one.set == set; });
  if (found == owned.end()) return found;
  const pid_t process = getpid();
  if (found->process == process) return found;
  std::erase_if(owned, [&](const Ownership& one) { return one.process != process; });
  return owned.end();
}

// What the thread knows of a name, as far as it still holds; null when it knows nothing.
Known* FindKnown(ThreadState& state, const std::wstring& name) noexcept {
  const std::uint32_t space = CurrentMutexNamespace();
  const auto found = std::find_if(state.known.begin(), state.known.end(), [&](const Known& known) {
    return known.set.id >= 0 && known.space == space && known.name == name;
  });
  if (found == state.known.end()) return nullptr;
  if (IsSessionName(name) && found->process != getpid()) return nullptr;
  return &*found;
}

Known& Know(ThreadState& state, const std::wstring& name) {
  if (Known* known = FindKnown(state, name)) return *known;
  const MutexIdentity identity = IdentityOfMutex(name);
  Known& known = state.known[state.next_known++ % state.known.size()];
  known = {name, CurrentMutexNamespace(), getpid(), identity, {}};
  return known;
}

// ---- Taking ----

// Orders the memory of two threads of one process that hand a mutex on, in the language's own
// terms; the kernel does so for processes.
std::array<std::atomic<unsigned>, 64> handovers;

void OrderMemory(int set) noexcept {
  handovers[static_cast<std::size_t>(set) % handovers.size()].fetch_add(1);
}

class Deadline {
 public:
  explicit Deadline(std::uint32_t milliseconds) noexcept
      : end_(Clock::now() + std::chrono::milliseconds(milliseconds)) {}

  // What is left; zero when it has passed.
  timespec Left() const noexcept {
    const std::chrono::nanoseconds left = std::max(end_ - Clock::now(), Clock::duration::zero());
    return {static_cast<time_t>(left.count() / 1'000'000'000),
            static_cast<long>(left.count() % 1'000'000'000)};
  }
  bool HasPassed() const noexcept { return Clock::now() >= end_; }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point end_;
};

WaitResult FailToWait(ErrorCode error) noexcept {
  SetLastError(error);
  return WaitResult::kFailed;
}

WaitResult Acquire(NamedMutex& mutex, std::uint32_t milliseconds) noexcept {
  const Deadline deadline(milliseconds);
  for (int removals = 0; removals < 100;) {
    int error = TakeSound(mutex.set, deadline.Left());
    if (error == 0) return WaitResult::kAcquired;
    if (error == EAGAIN) {
      error = TakeAbandoned(mutex.set);
      if (error == 0) return WaitResult::kAbandoned;
      if (error == EAGAIN && deadline.HasPassed()) return WaitResult::kTimeout;
    }
    if (IsGone(error)) {
      ++removals;
      const MutexSet made = OpenMutexSet(mutex.identity, mutex.access);
      if (made.id < 0) return WaitResult::kFailed;
      mutex.set = made.id;
    } else if (error != EAGAIN && error != EINTR) {
      return FailToWait(ErrorFromSemaphoreErrno(error));
    }
  }
  return FailToWait(kErrorInvalidHandle);
}

// ---- Descriptors ----

// There are only those that allow everybody everything, so that one tells nothing more.
struct Descriptor {};

void* NewDescriptor() noexcept {
  void* const descriptor = new (std::nothrow) Descriptor;
  if (descriptor == nullptr) SetLastError(kErrorNotEnoughMemory);
  return descriptor;
}

}  // namespace

void* CreateNullDaclDescriptor() noexcept { return NewDescriptor(); }

void* CreateDescriptorFromText(const std::wstring& sddl) noexcept {
  static constexpr std::wstring_view kServed[] = {
      L"D:(A;;GA;;;WD)",     L"D:(A;OI;GA;;;WD)",   L"D:(A;CI;GA;;;WD)",
      L"D:(A;OICI;GA;;;WD)", L"D:(A;CIOI;GA;;;WD)",
  };
  if (std::find(std::begin(kServed), std::end(kServed), sddl) != std::end(kServed)) {
    return NewDescriptor();
  }
  SetLastError(kErrorInvalidParameter);
  return nullptr;
}

void FreeDescriptor(void* descriptor) noexcept { delete static_cast<Descriptor*>(descriptor); }

HANDLE CreateNamedMutex(const SECURITY_ATTRIBUTES* attributes, const std::wstring& name) noexcept
    try {
  const bool is_for_all = attributes != nullptr && attributes->lpSecurityDescriptor != nullptr;
  const MutexAccess access = is_for_all ? MutexAccess::kEverybody : MutexAccess::kUser;
  Known& known = Know(State(), name);
  if (!IsOpen(known.set)) known.set = OpenMutexSet(known.identity, access);
  if (known.set.id < 0) return nullptr;
  return std::make_unique<NamedMutex>(known.identity, access, known.set.id).release();
} catch (const std::bad_alloc&) {
  SetLastError(kErrorNotEnoughMemory);
  return nullptr;
}

WaitResult WaitForNamedMutex(HANDLE handle, std::uint32_t milliseconds) noexcept try {
  if (handle == nullptr) return FailToWait(kErrorInvalidHandle);
  auto& mutex = *static_cast<NamedMutex*>(handle);
  Ownerships& owned = State().owned;
  const auto own = FindOwnership(owned, mutex.set);
  if (own != owned.end()) {
    ++own->count;
    return WaitResult::kAcquired;
  }
  owned.reserve(owned.size() + 1);  // once the mutex is taken, nothing may fail
  const WaitResult result = Acquire(mutex, milliseconds);
  if (result == WaitResult::kAcquired || result == WaitResult::kAbandoned) {
    OrderMemory(mutex.set);
    owned.push_back({mutex.set, 1, getpid()});
  }
  return result;
} catch (const std::bad_alloc&) {
  return FailToWait(kErrorNotEnoughMemory);
}

bool ReleaseNamedMutex(HANDLE handle) noexcept {
  if (handle == nullptr) return Fail(kErrorInvalidHandle);
  if (thread_state == nullptr) return Fail(kErrorNotOwner);
  Ownerships& owned = thread_state->owned;
  const int set = static_cast<NamedMutex*>(handle)->set;
  const auto own = FindOwnership(owned, set);
  if (own == owned.end()) return Fail(kErrorNotOwner);
  if (own->count > 1) {
    --own->count;
    return true;
  }
  OrderMemory(set);
  const int error = GiveBack(set);
  // A process that changed its user may not give it back any more, and goes on to own it.
  if (error == EACCES) return Fail(kErrorAccessDenied);
  owned.erase(own);
  if (error == 0) return true;
  return Fail(IsGone(error) ? kErrorInvalidHandle : kErrorNotOwner);
}

void CloseNamedMutex(HANDLE handle) noexcept {
  const std::unique_ptr<NamedMutex> mutex(static_cast<NamedMutex*>(handle));
  // What only one user can open must not outlive its use, or it would lock the others out.
  if (mutex && mutex->access == MutexAccess::kUser) RetireMutexSet(mutex->set);
}

}  // namespace vk::tq
