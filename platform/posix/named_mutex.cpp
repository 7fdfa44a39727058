// A named mutex is a System V semaphore set that the kernel alone keeps; docs/decisions/locks.md
// tells why. Semaphore 0 is the lock: 0 free, 1 held, and the kernel takes the 1 back when the
// owner's process ends. Semaphore 1 is the mark of ownership: 1 from the taking to the release, so
// that a free lock with the mark was abandoned. The others hold the identity of the name.
#include "platform/named_mutex.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/sem.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/posix/named_mutex_internal.h"
#include "platform/posix/native.h"

namespace vk::tq {
namespace {

// ---- Errors ----

ErrorCode ErrorFromSemaphoreErrno(int error) noexcept {
  switch (error) {
    case EIDRM:
    case EINVAL:
      return kErrorInvalidHandle;
    case ENOSPC:  // too many sets, not a full disk
    case ERANGE:
      return kErrorNoSystemResources;
    default:
      return ErrorFromErrno(error);
  }
}

// Whether an error says that the set is no longer there.
bool IsGone(int error) noexcept { return error == EINVAL || error == EIDRM; }

// ---- The identity of a name ----

constexpr unsigned short kLock = 0;
constexpr unsigned short kMark = 1;
constexpr unsigned short kFirstWord = 2;
constexpr std::size_t kWordCount = 17;
constexpr int kSetSize = kFirstWord + static_cast<int>(kWordCount);

// What the first word of an identity says of the mutex. Never zero, so a fresh set has no identity.
enum Kind : unsigned short { kOfMachine = 0x5171, kOfSession = 0x5172 };

// What tells a mutex from all others: the kind, the number of the namespace in two words of 15
// bits, and 210 bits of the hash of the name and its scope.
struct Identity {
  std::uint32_t key = 0;
  std::array<unsigned short, kWordCount> words{};
};

std::atomic<std::uint32_t> current_namespace = 0;

constexpr std::wstring_view kMachinePrefix = L"Global\\";

Kind KindOf(std::wstring_view name) noexcept {
  return name.substr(0, kMachinePrefix.size()) == kMachinePrefix ? kOfMachine : kOfSession;
}

// The logon session of this process as the kernel's audit keeps it: every process that a logon
// started has its number, whatever became of its parents, and all those that no logon started, the
// services, share the number that stands for none. Without that record each user counts as one
// session.
std::string CurrentSession() {
  const FileDescriptor file(open("/proc/self/sessionid", O_RDONLY | O_CLOEXEC));
  std::array<char, 16> number{};
  const ssize_t size = file ? read(file.get(), number.data(), number.size()) : -1;
  if (size <= 0) return "user " + std::to_string(getuid());
  return "session " + std::string(number.data(), static_cast<std::size_t>(size));
}

Identity MakeIdentity(std::wstring_view name, std::string_view session, std::uint32_t space) {
  const Kind kind = KindOf(name);
  std::string text = std::to_string(space);
  if (kind == kOfSession) text.append(" ").append(session);
  text.push_back('\0');
  text.append(reinterpret_cast<const char*>(name.data()), name.size() * sizeof(wchar_t));

  std::array<unsigned char, 32> hash{};
  if (EVP_Digest(text.data(), text.size(), hash.data(), nullptr, EVP_sha256(), nullptr) != 1) {
    throw std::bad_alloc();
  }
  const auto word = [&](std::size_t i) {
    return static_cast<unsigned short>((hash[2 * i] << 8 | hash[2 * i + 1]) & 0x7FFF);
  };
  Identity identity;
  identity.words = {kind, static_cast<unsigned short>(space >> 15 & 0x7FFF),
                    static_cast<unsigned short>(space & 0x7FFF)};
  for (std::size_t i = 3; i < kWordCount; ++i) identity.words[i] = word(i - 3);
  identity.key = static_cast<std::uint32_t>(word(14)) << 15 | word(15);
  return identity;
}

// A semaphore set, and the key that it was found under.
struct MutexSet {
  int id = -1;
  key_t key = 0;
};

// ---- What is done to a set: each a step that the kernel does whole or not at all ----

// Zero, or the errno value.
template <std::size_t kCount>
int Perform(int set, std::array<sembuf, kCount> steps, const timespec* timeout = nullptr) noexcept {
  return semtimedop(set, steps.data(), steps.size(), timeout) == 0 ? 0 : errno;
}

// Waits until the lock is free. Its mark must then be clear, else the result is EAGAIN, as it is
// when the time is up.
constexpr std::array<sembuf, 4> kTakeSound = {
    {{kLock, 0, 0}, {kLock, 1, SEM_UNDO}, {kMark, 0, IPC_NOWAIT}, {kMark, 1, 0}}};

// Takes a lock that is free and marked, and leaves the mark.
constexpr std::array<sembuf, 4> kTakeAbandoned = {
    {{kLock, 0, IPC_NOWAIT}, {kLock, 1, SEM_UNDO}, {kMark, -1, IPC_NOWAIT}, {kMark, 1, 0}}};

constexpr std::array<sembuf, 2> kGiveBack = {
    {{kLock, -1, SEM_UNDO | IPC_NOWAIT}, {kMark, -1, IPC_NOWAIT}}};

// What the end of a thread does to what it owns.
constexpr std::array<sembuf, 1> kAbandon = {{{kLock, -1, SEM_UNDO | IPC_NOWAIT}}};

// ---- What a thread knows: the mutexes that it owns, and those that it opened last ----

struct Ownership {
  int set;
  std::uint32_t count;
  pid_t process;  // a child must not take over what it inherits by fork
};

struct Known {
  std::wstring name;
  std::uint32_t space = 0;
  pid_t process = 0;  // a child may be of another session
  Identity identity;
  MutexSet opened;
};

struct ThreadState {
  std::vector<Ownership> owned;
  std::array<Known, 8> known;
  std::size_t next_known = 0;
};

// A bare pointer, since the destructor of a static object may still use a mutex after those of the
// main thread's own objects have run.
thread_local ThreadState* thread_state = nullptr;

struct ThreadEnd {
  bool is_needed = false;
  ~ThreadEnd() {
    if (thread_state == nullptr) return;
    for (const Ownership& owned : thread_state->owned) {
      if (owned.process == getpid()) Perform(owned.set, kAbandon);
    }
    delete std::exchange(thread_state, nullptr);
  }
};
thread_local ThreadEnd thread_end;

ThreadState& State() {
  if (thread_state == nullptr) {
    thread_end.is_needed = true;
    thread_state = new ThreadState;
  }
  return *thread_state;
}

// The place of a set in the thread's list, after what a parent process owned was dropped.
std::vector<Ownership>::iterator FindOwnership(ThreadState& state, int set) noexcept {
  auto& owned = state.owned;
  const auto found = std::find_if(owned.begin(), owned.end(),
                                  [&](const Ownership& one) { return one.set == set; });
  if (found == owned.end()) return found;
  const pid_t process = getpid();
  if (found->process == process) return found;
  std::erase_if(owned, [&](const Ownership& one) { return one.process != process; });
  return owned.end();
}

// ---- Semaphore sets ----

union SemaphoreArgument {
  int value;
  semid_ds* status;
  unsigned short* array;
  seminfo* limits;
};

std::optional<semid_ds> StatusOf(int set) noexcept {
  semid_ds status{};
  SemaphoreArgument argument{};
  argument.status = &status;
  if (semctl(set, 0, IPC_STAT, argument) < 0) return std::nullopt;
  return status;
}

enum class Holder { kThisName, kOtherName, kNobody, kGone, kFailed };

// Whose identity a set has.
Holder HolderOf(int set, const Identity& identity) noexcept {
  const std::optional<semid_ds> status = StatusOf(set);
  if (!status) return IsGone(errno) ? Holder::kGone : Holder::kFailed;
  if (status->sem_nsems != kSetSize) return Holder::kOtherName;
  std::array<unsigned short, kSetSize> values{};
  SemaphoreArgument argument{};
  argument.array = values.data();
  if (semctl(set, 0, GETALL, argument) < 0) {
    return IsGone(errno) ? Holder::kGone : Holder::kFailed;
  }
  const auto* words = values.data() + kFirstWord;
  if (std::equal(identity.words.begin(), identity.words.end(), words)) return Holder::kThisName;
  return words[0] == 0 ? Holder::kNobody : Holder::kOtherName;
}

// Gives a fresh set its identity, in one step that the kernel does whole or not at all.
bool Claim(int set, const Identity& identity) noexcept {
  std::array<sembuf, 2 * kWordCount> steps{};
  for (std::size_t i = 0; i < kWordCount; ++i) {
    const auto number = static_cast<unsigned short>(kFirstWord + i);
    steps[2 * i] = {number, 0, IPC_NOWAIT};
    steps[2 * i + 1] = {number, static_cast<short>(identity.words[i]), IPC_NOWAIT};
  }
  return semop(set, steps.data(), steps.size()) == 0;
}

// Removes a set that is free and sound; in no other state can removing it harm anybody. Whoever
// has it open makes it anew at the next wait.
void Retire(int set) noexcept {
  constexpr timespec kNoWait{};
  if (Perform(set, kTakeSound, &kNoWait) != 0) return;
  if (semctl(set, 0, IPC_RMID) != 0) Perform(set, kGiveBack);
}

// Calls a function for each set of the system that has the form of a mutex's.
template <class Visit>
void VisitMutexSets(const Visit& visit) noexcept {
  seminfo limits{};
  SemaphoreArgument argument{};
  argument.limits = &limits;
  const int last = semctl(0, 0, SEM_INFO, argument);
  for (int index = 0; index <= last; ++index) {
    semid_ds status{};
    argument.status = &status;
    const int set = semctl(index, 0, SEM_STAT, argument);
    if (set < 0 || status.sem_nsems != kSetSize) continue;
    std::array<unsigned short, kSetSize> values{};
    argument.array = values.data();
    if (semctl(set, 0, GETALL, argument) == 0) visit(set, status, values.data() + kFirstWord);
  }
}

// A logon session ends without a word to the sets of its names. So whoever makes one removes those
// that nobody has used for an hour, as far as they are his.
void RetireForgotten() noexcept {
  constexpr time_t kForgotten = 3600;
  const time_t now = time(nullptr);
  VisitMutexSets([&](int set, const semid_ds& status, const unsigned short* words) {
    const bool is_forgotten = std::max(status.sem_otime, status.sem_ctime) < now - kForgotten;
    if (words[0] == kOfSession && is_forgotten && status.sem_perm.cuid == geteuid()) Retire(set);
  });
}

// ---- Opening ----

constexpr int kModeForAll = 0666;
constexpr int kModeForUser = 0600;

// The sets that a name may have are looked for under a few keys in a row, since a key may be taken.
constexpr std::uint32_t kKeyCount = 4;

key_t KeyAt(const Identity& identity, std::uint32_t place) noexcept {
  constexpr std::uint32_t kKeys = 0x3FFFFFFF;
  return static_cast<key_t>(1 + (identity.key + place) % kKeys);  // 0 is IPC_PRIVATE
}

struct Search {
  MutexSet found;                 // the set of this name
  std::optional<key_t> free_key;  // else where it can be made
  ErrorCode error = kErrorSuccess;
};

// All keys are looked at before one counts as free: a set that stood in the way when this mutex was
// made may be gone by now.
Search FindSet(const Identity& identity) noexcept {
  Search search;
  for (std::uint32_t place = 0; place < kKeyCount; ++place) {
    const key_t key = KeyAt(identity, place);
    const int set = semget(key, kSetSize, kModeForUser);
    Holder holder = Holder::kOtherName;
    if (set >= 0) {
      holder = HolderOf(set, identity);
    } else if (errno == ENOENT) {
      holder = Holder::kNobody;
    } else if (errno != EINVAL) {  // EINVAL: a smaller set, so none of ours
      holder = Holder::kFailed;
    }
    if (holder == Holder::kThisName) {
      search.found = {set, key};
      return search;
    }
    if (holder == Holder::kFailed) {
      search.error = ErrorFromSemaphoreErrno(errno);
      return search;
    }
    const bool is_free = holder == Holder::kNobody || holder == Holder::kGone;
    if (is_free && !search.free_key) search.free_key = key;
  }
  if (!search.free_key) search.error = kErrorNoSystemResources;
  return search;
}

// A set that is used by everybody on the machine must outlive the logon of the user who happened to
// make it: login managers remove what the user who logged off owns. The maker keeps his rights.
void SettleRights(int set, const Identity& identity, int mode) noexcept {
  const bool is_for_machine = identity.words[0] == kOfMachine && mode == kModeForAll;
  semid_ds status{};
  status.sem_perm.uid = is_for_machine ? 0 : geteuid();
  status.sem_perm.gid = is_for_machine ? 0 : getegid();
  status.sem_perm.mode = static_cast<unsigned short>(mode);
  SemaphoreArgument argument{};
  argument.status = &status;
  semctl(set, 0, IPC_SET, argument);
}

// The set of a name, made when there is none; id -1 on failure, with the last error set.
MutexSet OpenSet(const Identity& identity, int mode) noexcept {
  // Each turn that does not end it means that another process was faster at one of the keys.
  for (int turn = 0; turn < 100; ++turn) {
    const Search search = FindSet(identity);
    if (search.found.id >= 0) return search.found;
    if (search.error != kErrorSuccess) {
      SetLastError(search.error);
      return {};
    }
    const MutexSet made{semget(*search.free_key, kSetSize, IPC_CREAT | mode), *search.free_key};
    if (made.id < 0) {
      SetLastError(ErrorFromSemaphoreErrno(errno));
      return {};
    }
    if (!Claim(made.id, identity)) continue;
    SettleRights(made.id, identity, mode);
    if (identity.words[0] == kOfSession) RetireForgotten();
    return made;
  }
  SetLastError(kErrorNoSystemResources);
  return {};
}

// What the thread remembers of a name, when that still holds.
Known* FindKnown(ThreadState& state, std::wstring_view name) noexcept {
  const std::uint32_t space = current_namespace.load();
  const auto found = std::find_if(state.known.begin(), state.known.end(), [&](const Known& known) {
    return known.opened.id >= 0 && known.space == space && known.name == name;
  });
  if (found == state.known.end()) return nullptr;
  if (found->identity.words[0] == kOfSession && found->process != getpid()) return nullptr;
  return &*found;
}

Known& Remember(ThreadState& state, const std::wstring& name) {
  const std::uint32_t space = current_namespace.load();
  Identity identity = MakeIdentity(name, KindOf(name) == kOfSession ? CurrentSession() : "", space);
  Known& known = state.known[state.next_known++ % state.known.size()];
  known = {name, space, getpid(), identity, {}};
  return known;
}

// Opens the set of a name that is known. The key tells in one call whether the set is still the
// same, and whether this user may use it.
bool Open(Known& known, int mode) noexcept {
  MutexSet& opened = known.opened;
  if (opened.id >= 0 && semget(opened.key, kSetSize, kModeForUser) == opened.id) return true;
  opened = OpenSet(known.identity, mode);
  return opened.id >= 0;
}

struct NamedMutex {
  NamedMutex(const Identity& of, int with_mode, int with_set) noexcept
      : identity(of), mode(with_mode), set(with_set) {}

  const Identity identity;
  const int mode;
  std::atomic<int> set;  // changes when the set was removed and made anew
};

// ---- Taking and giving back ----

// Orders the memory of two threads of one process that hand a mutex on, in the language's own
// terms; the semaphore does so for processes.
std::array<std::atomic<unsigned>, 64> handovers;

void OrderMemory(int set) noexcept {
  handovers[static_cast<std::size_t>(set) % handovers.size()].fetch_add(1);
}

class Deadline {
 public:
  explicit Deadline(std::uint32_t milliseconds) noexcept
      : end_(std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds)) {}
  // What is left; zero when it has passed.
  timespec Left() const noexcept {
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(
        end_ - std::chrono::steady_clock::now());
    const auto nanoseconds = std::max<std::int64_t>(left.count(), 0);
    return {static_cast<time_t>(nanoseconds / 1'000'000'000),
            static_cast<long>(nanoseconds % 1'000'000'000)};
  }
  bool HasPassed() const noexcept { return std::chrono::steady_clock::now() >= end_; }

 private:
  std::chrono::steady_clock::time_point end_;
};

WaitResult Acquire(NamedMutex& mutex, std::uint32_t milliseconds) noexcept {
  const Deadline deadline(milliseconds);
  for (int removals = 0; removals < 100;) {
    const timespec left = deadline.Left();
    int error = Perform(mutex.set, kTakeSound, &left);
    if (error == 0) return WaitResult::kAcquired;
    if (error == EAGAIN) {
      error = Perform(mutex.set, kTakeAbandoned);
      if (error == 0) return WaitResult::kAbandoned;
      if (error == EAGAIN && deadline.HasPassed()) return WaitResult::kTimeout;
    }
    if (IsGone(error)) {
      ++removals;
      const MutexSet made = OpenSet(mutex.identity, mutex.mode);
      if (made.id < 0) return WaitResult::kFailed;
      mutex.set = made.id;
    } else if (error != EAGAIN && error != EINTR) {
      SetLastError(ErrorFromSemaphoreErrno(error));
      return WaitResult::kFailed;
    }
  }
  SetLastError(kErrorInvalidHandle);
  return WaitResult::kFailed;
}

struct Descriptor {};

void* NewDescriptor() noexcept {
  auto* descriptor = new (std::nothrow) Descriptor;
  if (descriptor == nullptr) SetLastError(kErrorNotEnoughMemory);
  return descriptor;
}

}  // namespace

void* CreateNullDaclDescriptor() noexcept { return NewDescriptor(); }

void* CreateDescriptorFromText(const std::wstring& sddl) noexcept {
  constexpr std::wstring_view kInheritance[] = {L"", L"OI", L"CI", L"OICI", L"CIOI"};
  for (const std::wstring_view flags : kInheritance) {
    constexpr std::wstring_view kBegin = L"D:(A;";
    constexpr std::wstring_view kEnd = L";GA;;;WD)";
    const std::wstring_view text = sddl;
    if (text.size() == kBegin.size() + flags.size() + kEnd.size() && text.starts_with(kBegin) &&
        text.substr(kBegin.size(), flags.size()) == flags && text.ends_with(kEnd)) {
      return NewDescriptor();
    }
  }
  SetLastError(kErrorInvalidParameter);
  return nullptr;
}

void FreeDescriptor(void* descriptor) noexcept { delete static_cast<Descriptor*>(descriptor); }

HANDLE CreateNamedMutex(const SECURITY_ATTRIBUTES* attributes, const std::wstring& name) noexcept
    try {
  const bool is_for_all = attributes != nullptr && attributes->lpSecurityDescriptor != nullptr;
  const int mode = is_for_all ? kModeForAll : kModeForUser;
  ThreadState& state = State();
  Known* known = FindKnown(state, name);
  if (known == nullptr) known = &Remember(state, name);
  if (!Open(*known, mode)) return nullptr;
  return std::make_unique<NamedMutex>(known->identity, mode, known->opened.id).release();
} catch (const std::bad_alloc&) {
  SetLastError(kErrorNotEnoughMemory);
  return nullptr;
}

WaitResult WaitForNamedMutex(HANDLE handle, std::uint32_t milliseconds) noexcept try {
  if (handle == nullptr) {
    SetLastError(kErrorInvalidHandle);
    return WaitResult::kFailed;
  }
  auto& mutex = *static_cast<NamedMutex*>(handle);
  ThreadState& state = State();
  const auto owned = FindOwnership(state, mutex.set);
  if (owned != state.owned.end()) {
    ++owned->count;
    return WaitResult::kAcquired;
  }
  state.owned.reserve(state.owned.size() + 1);  // once the lock is taken, nothing may fail
  const WaitResult result = Acquire(mutex, milliseconds);
  if (result == WaitResult::kAcquired || result == WaitResult::kAbandoned) {
    OrderMemory(mutex.set);
    state.owned.push_back({mutex.set, 1, getpid()});
  }
  return result;
} catch (const std::bad_alloc&) {
  SetLastError(kErrorNotEnoughMemory);
  return WaitResult::kFailed;
}

bool ReleaseNamedMutex(HANDLE handle) noexcept {
  if (handle == nullptr) return Fail(kErrorInvalidHandle);
  if (thread_state == nullptr) return Fail(kErrorNotOwner);
  const int set = static_cast<NamedMutex*>(handle)->set;
  const auto owned = FindOwnership(*thread_state, set);
  if (owned == thread_state->owned.end()) return Fail(kErrorNotOwner);
  if (owned->count > 1) {
    --owned->count;
    return true;
  }
  OrderMemory(set);
  const int error = Perform(set, kGiveBack);
  if (error == EACCES)
    return Fail(kErrorAccessDenied);  // still held, by a process that has
                                      // changed its user since
  thread_state->owned.erase(owned);
  if (error == 0) return true;
  return Fail(IsGone(error) ? kErrorInvalidHandle : kErrorNotOwner);
}

void CloseNamedMutex(HANDLE handle) noexcept {
  const std::unique_ptr<NamedMutex> mutex(static_cast<NamedMutex*>(handle));
  // What only one user can open must not outlive its use, or it would lock the others out.
  if (mutex && mutex->mode == kModeForUser) Retire(mutex->set);
}

namespace internal {
namespace {

Identity IdentityOf(const std::wstring& name) {
  return MakeIdentity(name, CurrentSession(), current_namespace.load());
}

}  // namespace

std::int32_t NamedMutexKey(const std::wstring& name) { return KeyAt(IdentityOf(name), 0); }

int FindNamedMutexSet(const std::wstring& name) { return FindSet(IdentityOf(name)).found.id; }

ScopedMutexNamespace::ScopedMutexNamespace() : old_(current_namespace.load()) {
  static std::atomic<std::uint32_t> count = 0;
  current_namespace = (static_cast<std::uint32_t>(getpid()) << 8 | (count++ & 0xFF)) & 0x3FFFFFFF;
}

ScopedMutexNamespace::~ScopedMutexNamespace() {
  const std::uint32_t space = current_namespace.exchange(old_);
  VisitMutexSets([&](int set, const semid_ds&, const unsigned short* words) {
    const bool is_mutex = words[0] == kOfMachine || words[0] == kOfSession;
    if (is_mutex && (std::uint32_t{words[1]} << 15 | words[2]) == space) semctl(set, 0, IPC_RMID);
  });
}

}  // namespace internal
}  // namespace vk::tq
