#include "platform/posix/mutex_set.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>
#include <optional>

#include "platform/posix/native.h"

namespace vk::tq {
namespace {

constexpr unsigned short kLock = 0;
constexpr unsigned short kMark = 1;
constexpr unsigned short kFirstWord = 2;
constexpr std::size_t kWordCount = std::tuple_size_v<decltype(MutexIdentity::words)>;
constexpr int kSetSize = kFirstWord + static_cast<int>(kWordCount);

// The first word of an identity. Never zero, so a fresh set has no identity.
constexpr unsigned short kOfMachine = 0x5171;
constexpr unsigned short kOfSession = 0x5172;

constexpr std::wstring_view kMachinePrefix = L"Global\\";

std::atomic<std::uint32_t> current_namespace = 0;

constexpr unsigned short Word(std::uint32_t bits) noexcept {
  return static_cast<unsigned short>(bits & 0x7FFF);
}

// The logon session of this process as the kernel's audit keeps it: every process that a logon
// started has its number, whatever became of its parents, and all those that no logon started, the
// services, share the number that stands for none. Without that record each user is one session.
std::string CurrentSession() {
  const FileDescriptor file(open("/proc/self/sessionid", O_RDONLY | O_CLOEXEC));
  std::array<char, 16> number{};
  const ssize_t size = file ? read(file.get(), number.data(), number.size()) : -1;
  if (size <= 0) return std::string("user ") + std::to_string(getuid());
  return std::string("session ").append(number.data(), static_cast<std::size_t>(size));
}

// ---- Steps of the kernel ----

template <std::size_t kCount>
int Perform(int id, std::array<sembuf, kCount> steps, const timespec* timeout = nullptr) noexcept {
  return semtimedop(id, steps.data(), steps.size(), timeout) == 0 ? 0 : errno;
}

// Gives a fresh set its identity.
bool Claim(int id, const MutexIdentity& identity) noexcept {
  std::array<sembuf, 2 * kWordCount> steps{};
  for (std::size_t i = 0; i < kWordCount; ++i) {
    const auto number = static_cast<unsigned short>(kFirstWord + i);
    steps[2 * i] = {number, 0, IPC_NOWAIT};
    steps[2 * i + 1] = {number, static_cast<short>(identity.words[i]), IPC_NOWAIT};
  }
  return Perform(id, steps) == 0;
}

// The form in which semctl takes its last argument.
union SemaphoreArgument {
  int value;
  semid_ds* status;
  unsigned short* values;
  seminfo* limits;
};

using Values = std::array<unsigned short, kSetSize>;

// The size must be known to be right: the kernel writes as many values as the set has.
bool ReadValues(int id, Values& values) noexcept {
  SemaphoreArgument argument{};
  argument.values = values.data();
  return semctl(id, 0, GETALL, argument) == 0;
}

enum class Holder { kThisName, kOtherName, kNobody, kFailed };

// Whose identity a set has, and its status.
Holder HolderOf(int id, const MutexIdentity& identity, semid_ds& status) noexcept {
  SemaphoreArgument argument{};
  argument.status = &status;
  Values values{};
  if (semctl(id, 0, IPC_STAT, argument) != 0) {
    return IsGone(errno) ? Holder::kNobody : Holder::kFailed;
  }
  if (status.sem_nsems != kSetSize) return Holder::kOtherName;
  if (!ReadValues(id, values)) return IsGone(errno) ? Holder::kNobody : Holder::kFailed;
  const auto* words = values.data() + kFirstWord;
  if (std::equal(identity.words.begin(), identity.words.end(), words)) return Holder::kThisName;
  return words[0] == 0 ? Holder::kNobody : Holder::kOtherName;
}

// Calls a function with id, status and words of each set on the machine that may be a mutex's.
template <class Visit>
void VisitMutexSets(const Visit& visit) noexcept {
  seminfo limits{};
  SemaphoreArgument argument{};
  argument.limits = &limits;
  const int last = semctl(0, 0, SEM_INFO, argument);
  for (int index = 0; index <= last; ++index) {
    semid_ds status{};
    Values values{};
    argument.status = &status;
    const int id = semctl(index, 0, SEM_STAT, argument);
    if (id < 0 || status.sem_nsems != kSetSize || !ReadValues(id, values)) continue;
    const auto* words = values.data() + kFirstWord;
    if (words[0] == kOfMachine || words[0] == kOfSession) visit(id, status, words);
  }
}

bool IsOf(std::uint32_t space, const unsigned short* words) noexcept {
  return words[1] == Word(space >> 15) && words[2] == Word(space);
}

// ---- Rights ----

// A set that everybody on the machine uses must outlive the logon of the user who happened to make
// it, since login managers remove what a user who logged off owns; so it belongs to root. The
// maker keeps the rights of one.
bool BelongsToRoot(const MutexIdentity& identity, MutexAccess access) noexcept {
  return identity.words[0] == kOfMachine && access == MutexAccess::kEverybody;
}

void SettleRights(int id, const MutexIdentity& identity, MutexAccess access) noexcept {
  const bool is_for_machine = BelongsToRoot(identity, access);
  semid_ds status{};
  status.sem_perm.uid = is_for_machine ? 0 : geteuid();
  status.sem_perm.gid = is_for_machine ? 0 : getegid();
  status.sem_perm.mode = static_cast<unsigned short>(access);
  SemaphoreArgument argument{};
  argument.status = &status;
  semctl(id, 0, IPC_SET, argument);
}

// The same for a set whose maker was killed before that, or came too late to give it its identity.
// Each search tries, until the user is one who may.
void SettleForgottenRights(int id, const MutexIdentity& identity, const ipc_perm& rights) noexcept {
  const auto access = static_cast<MutexAccess>(rights.mode & 0777);
  if (rights.uid != 0 && BelongsToRoot(identity, access)) SettleRights(id, identity, access);
}

// ---- Searching and making ----

// The sets that a mutex may have are looked for under a few keys in a row, since a key may be taken
// by another name or by another program.
constexpr std::uint32_t kKeyCount = 4;

key_t KeyAt(const MutexIdentity& identity, std::uint32_t place) noexcept {
  constexpr std::uint32_t kKeys = 0x3FFFFFFF;
  return static_cast<key_t>(1 + (identity.first_key + place) % kKeys);  // 0 is IPC_PRIVATE
}

// Opens the set under a key.
int GetSet(key_t key) noexcept {
  return semget(key, kSetSize, static_cast<int>(MutexAccess::kUser));
}

struct Search {
  MutexSet found;                 // the set of the mutex
  std::optional<key_t> free_key;  // else where it can be made
  ErrorCode error = kErrorSuccess;
};

// All keys are looked at before one counts as free: a set that stood in the way when this mutex was
// made may be gone by now.
Search SearchSet(const MutexIdentity& identity) noexcept {
  Search search;
  for (std::uint32_t place = 0; place < kKeyCount; ++place) {
    const key_t key = KeyAt(identity, place);
    const int id = GetSet(key);
    Holder holder = Holder::kFailed;
    semid_ds status{};
    if (id >= 0) {
      holder = HolderOf(id, identity, status);
    } else if (errno == ENOENT) {
      holder = Holder::kNobody;
    } else if (errno == EINVAL) {  // a smaller set, so none of ours
      holder = Holder::kOtherName;
    }
    if (holder == Holder::kThisName) {
      SettleForgottenRights(id, identity, status.sem_perm);
      return {{id, key}, std::nullopt, kErrorSuccess};
    }
    if (holder == Holder::kFailed) return {{}, std::nullopt, ErrorFromSemaphoreErrno(errno)};
    if (holder == Holder::kNobody && !search.free_key) search.free_key = key;
  }
  if (!search.free_key) search.error = kErrorNoSystemResources;
  return search;
}

MutexSet FailToOpen(ErrorCode error) noexcept {
  SetLastError(error);
  return {};
}

}  // namespace

bool IsSessionName(std::wstring_view name) noexcept { return !name.starts_with(kMachinePrefix); }

MutexIdentity IdentityOfMutex(std::wstring_view name) {
  const std::uint32_t space = CurrentMutexNamespace();
  std::string text = std::to_string(space);
  if (IsSessionName(name)) text.append(" ").append(CurrentSession());
  text += '\0';
  text.append(reinterpret_cast<const char*>(name.data()), name.size() * sizeof(wchar_t));
  std::array<unsigned char, 32> hash{};
  if (EVP_Digest(text.data(), text.size(), hash.data(), nullptr, EVP_sha256(), nullptr) != 1) {
    throw std::bad_alloc();
  }

  MutexIdentity identity;
  const auto hash_word = [&](std::size_t i) {
    return Word(static_cast<std::uint32_t>(hash[2 * i] << 8 | hash[2 * i + 1]));
  };
  identity.words = {IsSessionName(name) ? kOfSession : kOfMachine, Word(space >> 15), Word(space)};
  for (std::size_t i = 3; i < kWordCount; ++i) identity.words[i] = hash_word(i - 3);
  identity.first_key = std::uint32_t{hash_word(14)} << 15 | hash_word(15);
  return identity;
}

MutexSet OpenMutexSet(const MutexIdentity& identity, MutexAccess access) noexcept {
  // Each turn that does not end it means that another process was faster at one of the keys.
  for (int turn = 0; turn < 100; ++turn) {
    const Search search = SearchSet(identity);
    if (search.found.id >= 0) return search.found;
    if (search.error != kErrorSuccess) return FailToOpen(search.error);
    const key_t key = *search.free_key;
    const int id = semget(key, kSetSize, IPC_CREAT | static_cast<int>(access));
    if (id < 0) return FailToOpen(ErrorFromSemaphoreErrno(errno));
    if (!Claim(id, identity)) continue;
    SettleRights(id, identity, access);
    const bool stays = access == MutexAccess::kEverybody;
    if (stays && identity.words[0] == kOfSession) RetireForgottenSets(std::chrono::hours(1));
    return {id, key};
  }
  return FailToOpen(kErrorNoSystemResources);
}

MutexSet FindMutexSet(const MutexIdentity& identity) noexcept { return SearchSet(identity).found; }

bool IsOpen(const MutexSet& set) noexcept { return set.id >= 0 && GetSet(set.key) == set.id; }

void RetireMutexSet(int id) noexcept {
  // Without the mark: the end of this process here leaves the mutex free and sound.
  constexpr std::array<sembuf, 3> kHold = {
      {{kLock, 0, IPC_NOWAIT}, {kLock, 1, SEM_UNDO}, {kMark, 0, IPC_NOWAIT}}};
  if (Perform(id, kHold) != 0) return;
  if (semctl(id, 0, IPC_RMID) != 0) Abandon(id);
}

void RetireForgottenSets(std::chrono::seconds idle) noexcept {
  const time_t limit = time(nullptr) - idle.count();
  VisitMutexSets([&](int id, const semid_ds& status, const unsigned short* words) {
    const bool is_forgotten = std::max(status.sem_otime, status.sem_ctime) < limit;
    const bool is_own = status.sem_perm.cuid == geteuid();
    const bool is_session = words[0] == kOfSession && IsOf(CurrentMutexNamespace(), words);
    if (is_session && is_own && is_forgotten) RetireMutexSet(id);
  });
}

int TakeSound(int id, const timespec& timeout) noexcept {
  constexpr std::array<sembuf, 4> kSteps = {
      {{kLock, 0, 0}, {kLock, 1, SEM_UNDO}, {kMark, 0, IPC_NOWAIT}, {kMark, 1, 0}}};
  return Perform(id, kSteps, &timeout);
}

int TakeAbandoned(int id) noexcept {
  constexpr std::array<sembuf, 4> kSteps = {
      {{kLock, 0, IPC_NOWAIT}, {kLock, 1, SEM_UNDO}, {kMark, -1, IPC_NOWAIT}, {kMark, 1, 0}}};
  return Perform(id, kSteps);
}

int GiveBack(int id) noexcept {
  constexpr std::array<sembuf, 2> kSteps = {
      {{kLock, -1, SEM_UNDO | IPC_NOWAIT}, {kMark, -1, IPC_NOWAIT}}};
  return Perform(id, kSteps);
}

int Abandon(int id) noexcept {
  constexpr std::array<sembuf, 1> kSteps = {{{kLock, -1, SEM_UNDO | IPC_NOWAIT}}};
  return Perform(id, kSteps);
}

bool IsGone(int error) noexcept { return error == EINVAL || error == EIDRM; }

ErrorCode ErrorFromSemaphoreErrno(int error) noexcept {
  if (IsGone(error)) return kErrorInvalidHandle;
  // ENOSPC means too many sets, not a full disk.
  if (error == ENOSPC || error == ERANGE) return kErrorNoSystemResources;
  return ErrorFromErrno(error);
}

std::uint32_t CurrentMutexNamespace() noexcept { return current_namespace.load(); }

ScopedMutexNamespace::ScopedMutexNamespace() noexcept : old_(CurrentMutexNamespace()) {
  static std::atomic<std::uint32_t> count = 0;
  current_namespace = (static_cast<std::uint32_t>(getpid()) << 8 | (count++ & 0xFF)) & 0x3FFFFFFF;
}

ScopedMutexNamespace::~ScopedMutexNamespace() {
  const std::uint32_t space = current_namespace.exchange(old_);
  VisitMutexSets([&](int id, const semid_ds&, const unsigned short* words) {
    if (IsOf(space, words)) semctl(id, 0, IPC_RMID);
  });
}

}  // namespace vk::tq
