// The seam between the library and the system, where a test lets the n-th call of a kind fail.
//
// The linker sends the calls of the library's own objects here (seam.inc). What libc and the other
// libraries call among themselves does not come by, and a thread that has armed nothing is let
// through.
#pragma once

#include <cerrno>
#include <cstddef>
#include <functional>

namespace vk::tq::testing {

// Functions that fail for the same reasons.
enum class Group : unsigned char {
  kOpen,
  kRead,
  kWrite,
  kClose,
  kRename,
  kRemove,
  kFolder,
  kDirectory,
  kRoom,
  kFlush,
  kStatus,
  kRights,
  kAccounts,
  kLock,
  kMemory,
  kXml,
  kSocket,
  kTransfer,
  kDatagram,
  kPoll,
  kResolver,
  kMachine,
  kCipher,
  kFtpLibrary,
};

// In place of an error: the call does half of its work.
inline constexpr int kHalf = -1;

// A way to fail; all rows of one kind are counted together.
struct Fault {
  const char* kind;
  Group group;
  int error;
  bool goes_on = false;      // the operation must not be impressed
  bool lasts = false;        // every later call of the group fails as well
  bool begins_half = false;  // the n-th call still does half of its work
  // In place of a failure: what happens in front of the n-th call.
  const std::function<void()>* meanwhile = nullptr;
};

// Whether the calling thread's next calls meet a file system that knows neither files without a
// name, nor renaming without replacing, nor reserving, nor access lists, and whose folders lie in
// different file systems.
void EnterPlainFileSystem(bool is_plain);

// From now on the calls of this thread are counted, and the n-th of the fault's group fails.
void Arm(const Fault& fault, int n);
// The function that failed, or null when the n-th call did not come.
const char* Disarm();

// Within it nothing fails or counts: for what a test does in the middle of an operation.
class Calm {
 public:
  Calm();
  Calm(const Calm&) = delete;
  Calm& operator=(const Calm&) = delete;
  ~Calm();
};

// Blocks that this thread has allocated by operator new, or libxml2 for it, and nobody has freed.
long LiveBlocks();

}  // namespace vk::tq::testing
