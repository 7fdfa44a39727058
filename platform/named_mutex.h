/// Mutexes with a name, which order the threads and processes of the machine.
///
/// The kernel alone decides who owns a mutex, so no process can be fooled by what another one left
/// in memory or on disk. A name that begins with "Global\" is known once on the machine, any other
/// once in each logon session. Any text is a name, and two different names are never one mutex. The
/// thread that owns a mutex can take it again; it is free when it was released as often. When the
/// owner's process or thread ends, the next one to get the mutex is told so once (kAbandoned).
#pragma once

#include <cstdint>
#include <string>

#include "platform/export.h"

namespace vk::tq {

/// A mutex that is open; null stands for none.
using HANDLE = void*;

/// Who may use what is created with it. Without a descriptor: the creating user only.
struct SECURITY_ATTRIBUTES {
  std::uint32_t nLength = sizeof(SECURITY_ATTRIBUTES);
  void* lpSecurityDescriptor = nullptr;
  int bInheritHandle = 0;
};

/// A descriptor that allows everybody everything, by a DACL that is present and null. Null on
/// failure, with the last error set.
void* CreateNullDaclDescriptor() noexcept;

/// A descriptor from its text form. Only texts that allow Everyone generic all access, as
/// "D:(A;OICI;GA;;;WD)", are served on every platform; another one gives null here, with the last
/// error 87.
void* CreateDescriptorFromText(const std::wstring& sddl) noexcept;

/// Frees what one of the two gave. Null does nothing.
void FreeDescriptor(void* descriptor) noexcept;

enum class WaitResult : std::uint32_t {
  kAcquired = 0,
  kAbandoned = 0x80,  ///< acquired, and its last owner ended without a release
  kTimeout = 258,
  kFailed = 0xFFFFFFFF,  ///< the last error tells why
};

/// Opens a mutex, and makes it when it does not exist. Null on failure, with the last error set: 5
/// when it exists and belongs to another user.
HANDLE CreateNamedMutex(const SECURITY_ATTRIBUTES* attributes, const std::wstring& name) noexcept;

/// Waits for the mutex, sleeping.
WaitResult WaitForNamedMutex(HANDLE mutex, std::uint32_t milliseconds) noexcept;

/// Gives the mutex back; false, with the last error 288, when the calling thread does not own it.
bool ReleaseNamedMutex(HANDLE mutex) noexcept;

/// Closes the handle. A mutex that the thread still owns stays owned, as a thread that ends leaves
/// it abandoned.
void CloseNamedMutex(HANDLE mutex) noexcept;

}  // namespace vk::tq
