#pragma once

#include "foundation/file_lock.h"
#include "support/test_support.h"

namespace vk::tq::testing {

// Another process, which holds a lock of the library from its making until Release. It never leaves
// an abandoned lock behind, which would fail whoever asks next.
class LockHolder {
 public:
  explicit LockHolder(const CString& name)
      : child_([this, &name] {
          HANDLE mutex = GetManageFileMutex(name);
          if (mutex == nullptr) return 1;
          held_.Open();
          released_.Wait(60'000);
          ReleaseManageFileMutex(mutex);
          return 0;
        }) {
    if (!held_.Wait(60'000)) ADD_FAILURE() << "the lock is not held";
  }
  ~LockHolder() {
    Release();
    EXPECT_EQ(0, child_.Wait());
  }

  void Release() { released_.Open(); }

 private:
  Gate held_;
  Gate released_;
  ChildProcess child_;
};

}  // namespace vk::tq::testing
