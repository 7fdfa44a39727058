// One of the suite's locks, held for a scope: for a command that reads, changes and writes. Its
// thread may take the lock again, so the library's own operations go on meanwhile.
#pragma once

#include <string>

#include "foundation/file_lock.h"
#include "tqctl/failure.h"

namespace tqctl {

class HeldLock {
 public:
  // Waits up to a minute. Failure when the lock cannot be had.
  explicit HeldLock(const std::wstring& name) : mutex_(vk::tq::GetManageFileMutex(name)) {
    if (mutex_ != nullptr) return;
    throw Failure(L"The lock \"" + name + L"\" cannot be had.",
                  L"Somebody holds it, or made it for himself alone; see \"tqctl lock probe\".");
  }
  HeldLock(const HeldLock&) = delete;
  HeldLock& operator=(const HeldLock&) = delete;
  ~HeldLock() { vk::tq::ReleaseManageFileMutex(mutex_); }

 private:
  vk::tq::HANDLE mutex_;
};

}  // namespace tqctl
