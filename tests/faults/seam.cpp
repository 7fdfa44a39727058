#include "faults/seam.h"

#include <acl/libacl.h>
#include <curl/curl.h>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <iconv.h>
#include <ifaddrs.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <locale.h>
#include <netdb.h>
#include <openssl/evp.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <stdarg.h>
#include <sys/acl.h>
#include <sys/random.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <tuple>

namespace vk::tq::testing {
namespace {

struct State {
  const Fault* fault = nullptr;
  int left = 0;  // calls up to the one that fails
  int calm = 0;
  const char* failed = nullptr;
  bool is_plain = false;
};
thread_local State state;
thread_local long live_blocks = 0;

bool IsWatched() { return state.fault != nullptr && state.calm == 0; }

// What a plain file system refuses.
constexpr std::string_view kRefused[] = {"fallocate",  "acl_get_file", "acl_get_fd",
                                         "acl_set_fd", "acl_set_file", "renameat2"};

// The error with which a call has to fail now, or 0.
int Due(Group group, const char* symbol) {
  if (!IsWatched()) return 0;
  if (state.is_plain && std::ranges::count(kRefused, symbol) > 0) {
    return group == Group::kRename ? EINVAL : EOPNOTSUPP;
  }
  if (group != state.fault->group) return 0;
  if (--state.left > 0 || (state.left < 0 && !state.fault->lasts)) return 0;
  if (state.left < 0) return state.fault->error;
  state.failed = symbol;
  if (state.fault->meanwhile != nullptr) {
    const Calm calm;
    (*state.fault->meanwhile)();
    return 0;
  }
  return state.fault->begins_half ? kHalf : state.fault->error;
}

template <class Result>
Result FailWith(int error, Result failed) {
  if (error != kHalf) errno = error;
  return failed;
}

void* Allocate(std::size_t size) {
  void* const block = std::malloc(size > 0 ? size : 1);
  if (block != nullptr) ++live_blocks;
  return block;
}

void Free(void* block) {
  if (block != nullptr) --live_blocks;
  std::free(block);
}

// libxml2's allocator. It must be there before libxml2 allocates anything.
[[maybe_unused]] const int has_xml_memory = xmlMemSetup(
    Free,
    [](std::size_t size) -> void* {
      return Due(Group::kXml, "malloc of libxml2") != 0 ? nullptr : Allocate(size);
    },
    [](void* block, std::size_t size) -> void* {
      if (Due(Group::kXml, "realloc of libxml2") != 0) return nullptr;
      void* const moved = std::realloc(block, size);
      if (block == nullptr && moved != nullptr) ++live_blocks;
      return moved;
    },
    [](const char* text) -> char* {
      if (Due(Group::kXml, "strdup of libxml2") != 0) return nullptr;
      ++live_blocks;
      return strdup(text);
    });

}  // namespace

void EnterPlainFileSystem(bool is_plain) { state.is_plain = is_plain; }

void Arm(const Fault& fault, int n) {
  state.failed = nullptr;
  state.left = n;
  state.fault = &fault;
}

const char* Disarm() {
  state.fault = nullptr;
  return state.failed;
}

Calm::Calm() { ++state.calm; }
Calm::~Calm() { --state.calm; }

long LiveBlocks() { return live_blocks; }

}  // namespace vk::tq::testing

using vk::tq::testing::Allocate;
using vk::tq::testing::Due;
using vk::tq::testing::FailWith;
using vk::tq::testing::Free;
using vk::tq::testing::Group;
using enum vk::tq::testing::Group;
using vk::tq::testing::IsWatched;
using vk::tq::testing::kHalf;
using vk::tq::testing::state;

// ---- Memory ----

// Never inlined: a compiler that sees malloc or free alone takes them for the wrong partner.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Due(Group::kMemory, "operator new") != 0 ? nullptr : Allocate(size);
}
[[gnu::noinline]] void* operator new(std::size_t size) {
  if (void* const block = operator new(size, std::nothrow)) return block;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new[](std::size_t size) { return operator new(size); }
[[gnu::noinline]] void operator delete(void* block) noexcept { Free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { Free(block); }
[[gnu::noinline]] void operator delete[](void* block) noexcept { Free(block); }
[[gnu::noinline]] void operator delete[](void* block, std::size_t) noexcept { Free(block); }

// ---- The rows of the table ----

extern "C" int __real_getsockopt(int fd, int level, int option, void* value, socklen_t* size);

// Of a datagram nothing is sent or received by halves.
Group TransferOn(int fd) {
  int type = 0;
  socklen_t size = sizeof type;
  __real_getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size);
  return type == SOCK_STREAM ? kTransfer : kDatagram;
}

template <class R, class... A>
struct Signature {
  using Result = R;
  template <int n>
  using Argument = std::tuple_element_t<n, std::tuple<A...>>;
};
template <class R, class... A>
Signature<R, A...> SignatureOf(R (*)(A...));

#define RESULT(symbol) decltype(SignatureOf(&symbol))::Result
#define ARGUMENT(symbol, n) decltype(SignatureOf(&symbol))::Argument<n>
#define TAKEN_0(symbol)
#define TAKEN_1(symbol) ARGUMENT(symbol, 0) a
#define TAKEN_2(symbol) TAKEN_1(symbol), ARGUMENT(symbol, 1) b
#define TAKEN_3(symbol) TAKEN_2(symbol), ARGUMENT(symbol, 2) c
#define TAKEN_4(symbol) TAKEN_3(symbol), ARGUMENT(symbol, 3) d
#define TAKEN_5(symbol) TAKEN_4(symbol), ARGUMENT(symbol, 4) e
#define TAKEN_6(symbol) TAKEN_5(symbol), ARGUMENT(symbol, 5) f
#define PASSED_0
#define PASSED_1 a
#define PASSED_2 a, b
#define PASSED_3 a, b, c
#define PASSED_4 a, b, c, d
#define PASSED_5 a, b, c, d, e
#define PASSED_6 a, b, c, d, e, f
#define SEAM(group, count, symbol, failure)                         \
  extern "C" RESULT(symbol) __real_##symbol(TAKEN_##count(symbol)); \
  extern "C" RESULT(symbol) __wrap_##symbol(TAKEN_##count(symbol)); \
  RESULT(symbol) __wrap_##symbol(TAKEN_##count(symbol)) {           \
    const int error = Due(group, #symbol);                          \
    if (error == 0) return __real_##symbol(PASSED_##count);         \
    return FailWith<RESULT(symbol)>(error, failure);                \
  }
#include "faults/seam.inc"
#undef SEAM

// ---- Those that need more ----

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  if (IsWatched() && state.is_plain && (flags & O_TMPFILE) == O_TMPFILE) {
    return FailWith(EOPNOTSUPP, -1);
  }
  const int error = Due(Group::kOpen, "open");
  return error == 0 ? __real_open(path, flags, mode) : FailWith(error, -1);
}

int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
  const auto folder = [](std::string_view path) { return path.substr(0, path.rfind('/')); };
  if (IsWatched() && state.is_plain && folder(from) != folder(to)) return FailWith(EXDEV, -1);
  const int error = Due(Group::kRename, "rename");
  return error == 0 ? __real_rename(from, to) : FailWith(error, -1);
}

// A real flush takes long and tells nothing here.
int __wrap_fsync(int fd);
int __wrap_fsync(int) {
  const int error = Due(Group::kFlush, "fsync");
  return error == 0 ? 0 : FailWith(error, -1);
}

int __real_fcntl(int fd, int command, ...);
int __wrap_fcntl(int fd, int command, ...) {
  va_list list;
  va_start(list, command);
  auto* const lock = va_arg(list, struct flock*);
  va_end(list);
  // Nobody is refused to give a lock back.
  const int error = lock->l_type == F_UNLCK ? 0 : Due(Group::kLock, "fcntl");
  return error == 0 ? __real_fcntl(fd, command, lock) : FailWith(error, -1);
}

int __real_semctl(int id, int number, int command, ...);
int __wrap_semctl(int id, int number, int command, ...) {
  va_list list;
  va_start(list, command);
  void* const argument = command == IPC_RMID ? nullptr : va_arg(list, void*);
  va_end(list);
  const int error = Due(Group::kLock, "semctl");
  return error == 0 ? __real_semctl(id, number, command, argument) : FailWith(error, -1);
}

int __real_semtimedop(int id, sembuf* steps, size_t count, const timespec* timeout);
int __wrap_semtimedop(int id, sembuf* steps, size_t count, const timespec* timeout) {
  // Nobody is refused to give a lock back: that neither waits nor needs memory.
  const int error = steps->sem_op < 0 ? 0 : Due(Group::kLock, "semtimedop");
  return error == 0 ? __real_semtimedop(id, steps, count, timeout) : FailWith(error, -1);
}

// All options take what fits a pointer. Their numbers are ints here: an enumeration cannot stand in
// front of arguments without a name.
CURLcode __real_curl_easy_setopt(CURL* easy, int option, ...);
CURLcode __wrap_curl_easy_setopt(CURL* easy, int option, ...) {
  va_list list;
  va_start(list, option);
  void* const value = va_arg(list, void*);
  va_end(list);
  if (Due(Group::kFtpLibrary, "curl_easy_setopt") != 0) return CURLE_OUT_OF_MEMORY;
  return __real_curl_easy_setopt(easy, option, value);
}

CURLcode __real_curl_easy_getinfo(CURL* easy, int info, ...);
CURLcode __wrap_curl_easy_getinfo(CURL* easy, int info, ...) {
  va_list list;
  va_start(list, info);
  void* const value = va_arg(list, void*);
  va_end(list);
  if (Due(Group::kFtpLibrary, "curl_easy_getinfo") != 0) return CURLE_UNKNOWN_OPTION;
  return __real_curl_easy_getinfo(easy, info, value);
}

}  // extern "C"
