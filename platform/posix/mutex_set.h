/// The System V semaphore set that stands for a named mutex. docs/decisions/locks.md tells why.
///
/// Semaphore 0 is the lock: 0 free, 1 held; the kernel takes the 1 back when the owner's process
/// ends. Semaphore 1 is the mark of ownership, from the taking to the release, so a lock that is
/// free and marked was abandoned. The others hold the identity of the name. Every change of a set
/// is one system call, which the kernel does whole or not at all.
#pragma once

#include <sys/types.h>
#include <time.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/error.h"

namespace vk::tq {

/// What tells a mutex from all others: its kind, the number of its namespace, and 210 bits of the
/// SHA-256 (FIPS 180-4) of its name and scope, in words of 15 bits, as much as a semaphore holds.
struct MutexIdentity {
  std::array<unsigned short, 17> words{};
  std::uint32_t first_key = 0;  ///< where the search for its set begins
};

/// Whether a name is known in one logon session only.
bool IsSessionName(std::wstring_view name) noexcept;

/// Throws bad_alloc.
MutexIdentity IdentityOfMutex(std::wstring_view name);

/// A set, and the key that it was found under.
struct MutexSet {
  int id = -1;
  key_t key = 0;
};

enum class MutexAccess { kUser = 0600, kEverybody = 0666 };

/// The set of a mutex, made when there is none; id -1 on failure, with the last error set. A set
/// for everybody stays until the machine restarts; one of a logon session that nobody has used for
/// an hour goes when the user makes the next one.
MutexSet OpenMutexSet(const MutexIdentity& identity, MutexAccess access) noexcept;

/// The set of a mutex; id -1 when there is none.
MutexSet FindMutexSet(const MutexIdentity& identity) noexcept;

/// Whether the set is still there, and this user may use it.
bool IsOpen(const MutexSet& set) noexcept;

/// Removes a set that is free and sound; in any other state that would harm somebody. Who has it open
/// finds it gone at the next wait, and opens it anew.
void RetireMutexSet(int id) noexcept;

/// Does so with every set of a logon session that this user made and that nobody has used for some
/// time: the end of a session leaves the sets of its names.
void RetireForgottenSets(std::chrono::seconds idle) noexcept;

// Each of these gives zero, or the errno value.

/// Waits until the lock is free, and takes it when it is not marked. EAGAIN when it is, or when the
/// time is up.
int TakeSound(int id, const timespec& timeout) noexcept;
/// Takes a lock that is free and marked, without waiting. EAGAIN when it is not so.
int TakeAbandoned(int id) noexcept;
int GiveBack(int id) noexcept;
/// Frees the lock and leaves the mark, as the kernel does when the owner's process ends.
int Abandon(int id) noexcept;

/// Whether an errno value says that the set is no longer there.
bool IsGone(int error) noexcept;

ErrorCode ErrorFromSemaphoreErrno(int error) noexcept;

/// The namespace that names belong to: 0 on the machine, another one within a ScopedMutexNamespace.
std::uint32_t CurrentMutexNamespace() noexcept;

/// Gives the process, and those that it starts by fork, mutexes of their own for a scope: none of
/// them is known outside, and those that stay are removed at the scope's end. Tests use it, so that
/// the kills of one cannot disturb another one that runs at the same time.
class ScopedMutexNamespace {
 public:
  ScopedMutexNamespace() noexcept;
  ScopedMutexNamespace(const ScopedMutexNamespace&) = delete;
  ScopedMutexNamespace& operator=(const ScopedMutexNamespace&) = delete;
  ~ScopedMutexNamespace();

 private:
  std::uint32_t old_;
};

}  // namespace vk::tq
