/// Error values and the last error of a thread.
///
/// A platform operation that fails sets the last error of its thread; one that succeeds leaves it
/// alone. The values are those that log lines and branches of the library depend on.
#pragma once

#include <cstdint>
#include <string>

#include "platform/export.h"

namespace vk::tq {

using ErrorCode = std::uint32_t;

inline constexpr ErrorCode kErrorSuccess = 0;
inline constexpr ErrorCode kErrorFileNotFound = 2;
inline constexpr ErrorCode kErrorPathNotFound = 3;
inline constexpr ErrorCode kErrorTooManyOpenFiles = 4;
inline constexpr ErrorCode kErrorAccessDenied = 5;
inline constexpr ErrorCode kErrorInvalidHandle = 6;
inline constexpr ErrorCode kErrorNotEnoughMemory = 8;
inline constexpr ErrorCode kErrorInvalidData = 13;
inline constexpr ErrorCode kErrorNotSameDevice = 17;
inline constexpr ErrorCode kErrorNoMoreFiles = 18;
inline constexpr ErrorCode kErrorWriteProtect = 19;
inline constexpr ErrorCode kErrorGenFailure = 31;
inline constexpr ErrorCode kErrorSharingViolation = 32;
inline constexpr ErrorCode kErrorNotSupported = 50;
inline constexpr ErrorCode kErrorFileExists = 80;
inline constexpr ErrorCode kErrorInvalidParameter = 87;
inline constexpr ErrorCode kErrorBrokenPipe = 109;
inline constexpr ErrorCode kErrorBufferOverflow = 111;
inline constexpr ErrorCode kErrorDiskFull = 112;
inline constexpr ErrorCode kErrorInsufficientBuffer = 122;
inline constexpr ErrorCode kErrorInvalidName = 123;
inline constexpr ErrorCode kWaitAbandoned = 0x80;
inline constexpr ErrorCode kErrorDirectoryNotEmpty = 145;
inline constexpr ErrorCode kErrorBusy = 170;
inline constexpr ErrorCode kErrorAlreadyExists = 183;
inline constexpr ErrorCode kErrorFileNameTooLong = 206;
inline constexpr ErrorCode kErrorFileTooLarge = 223;
inline constexpr ErrorCode kWaitTimeout = 258;
inline constexpr ErrorCode kErrorDirectoryName = 267;
inline constexpr ErrorCode kErrorNotOwner = 288;
inline constexpr ErrorCode kErrorOperationAborted = 995;
inline constexpr ErrorCode kErrorIoDevice = 1117;
inline constexpr ErrorCode kErrorNoSuchLogonSession = 1312;
inline constexpr ErrorCode kErrorNoneMapped = 1332;
inline constexpr ErrorCode kErrorInvalidSecurityDescriptor = 1338;
inline constexpr ErrorCode kErrorNoSystemResources = 1450;
inline constexpr ErrorCode kErrorTimeout = 1460;
inline constexpr ErrorCode kErrorWouldBlock = 10035;

/// Why the operation of this thread that failed last did so.
TQ_EXPORT ErrorCode GetLastError() noexcept;
/// Sets that value.
TQ_EXPORT void SetLastError(ErrorCode code) noexcept;

/// Keeps the last error of the thread over its scope.
class LastErrorKeeper {
 public:
  LastErrorKeeper() noexcept : code_(GetLastError()) {}
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;
  ~LastErrorKeeper() { SetLastError(code_); }

 private:
  ErrorCode code_;
};

/// Whether an error value tells of a moment, in which descriptors, memory or a device failed, and so
/// nothing of the file that was asked for: it is neither missing nor refused.
bool IsPassing(ErrorCode code) noexcept;

/// The C run-time errno value for an error value, for those interfaces that report errno. EIO when
/// none fits.
int ErrnoFromError(ErrorCode code) noexcept;

/// The system's text for an error value, without a line break at its end; empty when there is none.
std::wstring FormatErrorMessage(ErrorCode code);

}  // namespace vk::tq
