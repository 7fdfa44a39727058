// The seam between the library and the system, where a test lets the n-th call of a kind fail. The
// linker sends the calls of the library's own objects here (seam.inc), not those of libc and the
// other libraries. A thread that has armed nothing is let through.
#pragma once

#include <netdb.h>

#include <cerrno>
#include <functional>
#include <vector>

namespace vk::tq::testing {

// In place of an error: the call does half of its work.
inline constexpr int kHalf = -1;

// Functions that fail for the same reasons.
struct Group {
  const char* kind;               // those of one kind are counted together
  std::vector<int> failing = {};  // errors that may make an operation fail; the first also lasts
  std::vector<int> passing = {};  // those that must not impress it
};
inline const Group kOpen = {"open", {EMFILE, EIO}};
inline const Group kRead = {"read", {EIO}, {EINTR}};
inline const Group kWrite = {"write", {ENOSPC, EIO}, {EINTR, kHalf}};
inline const Group kClose = {"close", {EIO}};
inline const Group kRename = {"rename", {EACCES, EIO}};
inline const Group kRemove = {"unlink", {EACCES}};
inline const Group kFolder = {"mkdir", {ENOSPC, EACCES}};
inline const Group kDirectory = {"directory read", {EIO}};
inline const Group kRoom = {"reserve and cut", {ENOSPC, EIO}, {EINTR}};
inline const Group kFlush = {"flush", {EIO}};
inline const Group kStatus = {"status", {EIO, ENOMEM}};
inline const Group kRights = {"rights", {EPERM, ENOMEM}};
inline const Group kAccounts = {"rights", {EIO}, {EINTR}};
inline const Group kLock = {"lock", {ENOMEM, EACCES, ENOSPC}};
inline const Group kMemory = {"memory", {ENOMEM}};
inline const Group kXml = {"memory", {ENOMEM}};
inline const Group kSocket = {"socket call", {ENOBUFS, ECONNREFUSED}};
inline const Group kTransfer = {"socket call", {ECONNRESET}, {EINTR, kHalf}};
inline const Group kDatagram = {"socket call", {ENETUNREACH}, {EINTR}};
inline const Group kPoll = {"socket call", {ENOMEM}, {EINTR}};
inline const Group kResolver = {"resolver", {EAI_AGAIN, EAI_MEMORY}};
inline const Group kMachine = {"machine", {ENOMEM}};
inline const Group kCipher = {"cipher", {ENOMEM}};
inline const Group kFtpLibrary = {"FTP library", {ENOMEM}};
inline const Group kNone = {"none", {0}};  // never fails

// A way to fail.
struct Fault {
  const Group& group;
  int error;
  bool goes_on = false;      // the operation must not be impressed
  bool lasts = false;        // every later call of the group fails as well
  bool begins_half = false;  // the n-th call still does half of its work
  // In place of a failure: what happens in front of the n-th call.
  const std::function<void()>* meanwhile = nullptr;
};

// What happens to the calls of this thread.
struct Seam {
  const Fault* fault = nullptr;  // when it is not null, calls are counted
  int left = 0;                  // up to the call that fails
  const char* failed = nullptr;  // the function that has failed
  int calm = 0;
  // Calls meet a file system that knows neither files without a name, nor renaming without
  // replacing, nor reserving, nor access lists, and whose folders lie in different file systems.
  bool is_plain = false;
  // Blocks that were allocated by operator new, or libxml2, and that nobody has freed.
  long blocks = 0;
};
inline constinit thread_local Seam seam;

// Within it nothing fails or counts: for what a test does in the middle of an operation.
struct Calm {
  Calm() { ++seam.calm; }
  Calm(const Calm&) = delete;
  Calm& operator=(const Calm&) = delete;
  ~Calm() { --seam.calm; }
};

}  // namespace vk::tq::testing
