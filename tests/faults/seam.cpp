#include "faults/seam.h"

#include <acl/libacl.h>
#include <curl/curl.h>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <iconv.h>
#include <ifaddrs.h>
#include <libxml/parserInternals.h>
#include <locale.h>
#include <openssl/evp.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <stdarg.h>
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

bool IsWatched() { return seam.fault != nullptr && seam.calm == 0; }

// What a plain file system refuses.
constexpr std::string_view kRefused[] = {"fallocate",  "acl_get_file", "acl_get_fd",
                                         "acl_set_fd", "acl_set_file", "renameat2"};

// The error with which a call has to fail now, or 0.
int Due(const Group& group, const char* symbol) {
  if (!IsWatched()) return 0;
  if (seam.is_plain && std::ranges::count(kRefused, symbol) > 0) {
    return &group == &kRename ? EINVAL : EOPNOTSUPP;
  }
  if (&group != &seam.fault->group) return 0;
  if (--seam.left > 0 || (seam.left < 0 && !seam.fault->lasts)) return 0;
  if (seam.left < 0) return seam.fault->error;
  seam.failed = symbol;
  if (seam.fault->meanwhile != nullptr) {
    const Calm calm;
    (*seam.fault->meanwhile)();
    return 0;
  }
  return seam.fault->begins_half ? kHalf : seam.fault->error;
}

template <class Result>
Result FailWith(int error, Result failed) {
  if (error != kHalf) errno = error;
  return failed;
}

void* Allocate(std::size_t size) {
  void* const block = std::malloc(size > 0 ? size : 1);
  if (block != nullptr) ++seam.blocks;
  return block;
}

void Free(void* block) {
  if (block != nullptr) --seam.blocks;
  std::free(block);
}

// libxml2's allocator. It must be there before libxml2 allocates anything.
[[maybe_unused]] const int has_xml_memory = xmlMemSetup(
    Free,
    [](std::size_t size) -> void* {
      return Due(kXml, "malloc of libxml2") != 0 ? nullptr : Allocate(size);
    },
    [](void* block, std::size_t size) -> void* {
      if (Due(kXml, "realloc of libxml2") != 0) return nullptr;
      void* const moved = std::realloc(block, size);
      if (block == nullptr && moved != nullptr) ++seam.blocks;
      return moved;
    },
    [](const char* text) -> char* {
      if (Due(kXml, "strdup of libxml2") != 0) return nullptr;
      ++seam.blocks;
      return strdup(text);
    });

}  // namespace

}  // namespace vk::tq::testing

using namespace vk::tq::testing;

// ---- Memory ----

// Never inlined: a compiler that sees malloc or free alone takes them for the wrong partner.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Due(kMemory, "operator new") != 0 ? nullptr : Allocate(size);
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
const Group& TransferOn(int fd) {
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
template <class R, class... A>
Signature<R, A...> SignatureOf(R (*)(A..., ...));

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
#define LAST_2 b
#define LAST_3 c
#define SEAM(group, count, symbol, failure)                         \
  extern "C" RESULT(symbol) __real_##symbol(TAKEN_##count(symbol)); \
  extern "C" RESULT(symbol) __wrap_##symbol(TAKEN_##count(symbol)); \
  RESULT(symbol) __wrap_##symbol(TAKEN_##count(symbol)) {           \
    const int error = Due(group, #symbol);                          \
    if (error == 0) return __real_##symbol(PASSED_##count);         \
    return FailWith<RESULT(symbol)>(error, failure);                \
  }
#define SEAM_MORE(group, count, symbol, failure)                         \
  extern "C" RESULT(symbol) __real_##symbol(TAKEN_##count(symbol), ...); \
  extern "C" RESULT(symbol) __wrap_##symbol(TAKEN_##count(symbol), ...); \
  RESULT(symbol) __wrap_##symbol(TAKEN_##count(symbol), ...) {           \
    va_list list;                                                        \
    va_start(list, LAST_##count);                                        \
    void* const more = va_arg(list, void*);                              \
    va_end(list);                                                        \
    const int error = Due(group, #symbol);                               \
    if (error == 0) return __real_##symbol(PASSED_##count, more);        \
    return FailWith<RESULT(symbol)>(error, failure);                     \
  }
#include "faults/seam.inc"

// ---- Those that need more ----

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  if (IsWatched() && seam.is_plain && (flags & O_TMPFILE) == O_TMPFILE) {
    return FailWith(EOPNOTSUPP, -1);
  }
  const int error = Due(kOpen, "open");
  return error == 0 ? __real_open(path, flags, mode) : FailWith(error, -1);
}

int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
  const auto folder = [](std::string_view path) { return path.substr(0, path.rfind('/')); };
  if (IsWatched() && seam.is_plain && folder(from) != folder(to)) return FailWith(EXDEV, -1);
  const int error = Due(kRename, "rename");
  return error == 0 ? __real_rename(from, to) : FailWith(error, -1);
}

// A real flush takes long and tells nothing here.
int __wrap_fsync(int fd);
int __wrap_fsync(int) {
  const int error = Due(kFlush, "fsync");
  return error == 0 ? 0 : FailWith(error, -1);
}

}  // extern "C"
