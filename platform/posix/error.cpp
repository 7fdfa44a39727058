#include "platform/error.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <string_view>

#include "platform/posix/native.h"

namespace vk::tq {
namespace {

thread_local ErrorCode last_error = kErrorSuccess;

struct ErrnoPair {
  int error_number;
  ErrorCode code;
};

// Read from left to right, each errno value stands for one error value. Read from right to left,
// the first row of an error value counts.
constexpr ErrnoPair kErrnoTable[] = {
    {0, kErrorSuccess},
    {ENOENT, kErrorFileNotFound},
    {ENOTDIR, kErrorPathNotFound},
    {EMFILE, kErrorTooManyOpenFiles},
    {ENFILE, kErrorTooManyOpenFiles},
    {EACCES, kErrorAccessDenied},
    {EPERM, kErrorAccessDenied},
    {EISDIR, kErrorAccessDenied},
    {ELOOP, kErrorAccessDenied},
    {EBADF, kErrorInvalidHandle},
    {ENOMEM, kErrorNotEnoughMemory},
    {EXDEV, kErrorNotSameDevice},
    {EROFS, kErrorWriteProtect},
    {ETXTBSY, kErrorSharingViolation},
    {ENOTSUP, kErrorNotSupported},
    {ENOSYS, kErrorNotSupported},
    {EINVAL, kErrorInvalidParameter},
    {EDOM, kErrorInvalidParameter},
    {EPIPE, kErrorBrokenPipe},
    {ENOSPC, kErrorDiskFull},
    {EDQUOT, kErrorDiskFull},
    {ERANGE, kErrorInsufficientBuffer},
    {EILSEQ, kErrorInvalidData},
    {EOVERFLOW, kErrorInvalidData},
    {ENOTEMPTY, kErrorDirectoryNotEmpty},
    {EBUSY, kErrorBusy},
    {EEXIST, kErrorAlreadyExists},
    {ENAMETOOLONG, kErrorFileNameTooLong},
    {EFBIG, kErrorFileTooLarge},
    {ENODEV, 20},
    {ENXIO, 20},
    {EDEADLK, 1131},
    {ENOLCK, kErrorNoSystemResources},
    {ECANCELED, kErrorOperationAborted},
    {EINTR, kErrorOperationAborted},
    {EIO, kErrorIoDevice},
    {ETIMEDOUT, kErrorTimeout},
    {EAGAIN, kErrorWouldBlock},
    {EINPROGRESS, kErrorWouldBlock},
    {EALREADY, 10037},
    {ENOTSOCK, 10038},
    {EDESTADDRREQ, 10039},
    {EMSGSIZE, 10040},
    {EPROTONOSUPPORT, 10043},
    {EAFNOSUPPORT, 10047},
    {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049},
    {ENETDOWN, 10050},
    {ENETUNREACH, 10051},
    {ENETRESET, 10052},
    {ECONNABORTED, 10053},
    {ECONNRESET, 10054},
    {ENOBUFS, 10055},
    {EISCONN, 10056},
    {ENOTCONN, 10057},
    {ECONNREFUSED, 10061},
    {EHOSTDOWN, 10064},
    {EHOSTUNREACH, 10065},
};

// Error values that no errno value leads to, or that another one tells better.
constexpr ErrnoPair kNearestErrno[] = {
    {ENOENT, kErrorPathNotFound},     {ENOENT, kErrorNoMoreFiles},
    {EEXIST, kErrorFileExists},       {ENAMETOOLONG, kErrorBufferOverflow},
    {EACCES, kErrorSharingViolation}, {EINVAL, kErrorInvalidName},
    {ENOTDIR, kErrorDirectoryName},   {EPERM, kErrorNotOwner},
    {ETIMEDOUT, kWaitTimeout},        {EINVAL, kErrorInvalidSecurityDescriptor},
};

struct ErrorText {
  ErrorCode code;
  std::wstring_view text;
};

constexpr ErrorText kErrorTexts[] = {
    {kErrorSuccess, L"The operation succeeded."},
    {kErrorFileNotFound, L"There is no such file."},
    {kErrorPathNotFound, L"There is no such folder."},
    {kErrorTooManyOpenFiles, L"Too many files are open."},
    {kErrorAccessDenied, L"Access is not allowed."},
    {kErrorInvalidHandle, L"The handle is not valid."},
    {kErrorNotEnoughMemory, L"There is not enough memory."},
    {kErrorInvalidData, L"The data is not valid."},
    {14, L"There is not enough memory."},
    {kErrorNotSameDevice, L"The two places are on different disks."},
    {kErrorNoMoreFiles, L"There are no further files."},
    {kErrorWriteProtect, L"The disk cannot be written."},
    {20, L"There is no such device."},
    {kErrorGenFailure, L"The operation failed."},
    {kErrorSharingViolation, L"Another program is using the file."},
    {kErrorNotSupported, L"The operation is not supported here."},
    {kErrorFileExists, L"The file exists."},
    {kErrorInvalidParameter, L"An argument is not valid."},
    {kErrorBrokenPipe, L"The other end has been closed."},
    {kErrorBufferOverflow, L"The name is too long."},
    {kErrorDiskFull, L"The disk is full."},
    {kErrorInsufficientBuffer, L"The buffer is too small."},
    {kErrorInvalidName, L"The name is not valid."},
    {kWaitAbandoned, L"The former owner of the lock ended without releasing it."},
    {kErrorDirectoryNotEmpty, L"The folder is not empty."},
    {kErrorBusy, L"The resource is in use."},
    {kErrorAlreadyExists, L"The name exists already."},
    {kErrorFileNameTooLong, L"The file name is too long."},
    {kErrorFileTooLarge, L"The file is too large."},
    {kWaitTimeout, L"The wait ended without a result."},
    {kErrorDirectoryName, L"The name is not that of a folder."},
    {kErrorNotOwner, L"The caller does not own the lock."},
    {kErrorOperationAborted, L"The operation was broken off."},
    {kErrorIoDevice, L"The device reported an input or output error."},
    {1131, L"The wait would never end."},
    {kErrorNoneMapped, L"There is no such account."},
    {kErrorInvalidSecurityDescriptor, L"The security descriptor is not valid."},
    {kErrorNoSystemResources, L"The system lacks resources."},
    {kErrorTimeout, L"The time is over."},
    {kErrorWouldBlock, L"The operation would have to wait."},
    {10048, L"The address is in use."},
    {10049, L"The address is not one of this machine."},
    {10050, L"The network is down."},
    {10051, L"There is no way to the network."},
    {10053, L"The connection was broken off on this side."},
    {10054, L"The connection was broken off by the other side."},
    {10055, L"There is no buffer space left."},
    {10057, L"There is no connection."},
    {10061, L"The connection was refused."},
    {10064, L"The host is down."},
    {10065, L"There is no way to the host."},
    {0x80004001, L"Not implemented."},
    {0x80004002, L"The interface is not supported."},
    {0x80004003, L"A pointer is not valid."},
    {0x80004005, L"The operation failed for a reason that is not known."},
    {0x8000FFFF, L"Something went wrong that must not happen."},
};

}  // namespace

ErrorCode GetLastError() noexcept { return last_error; }

void SetLastError(ErrorCode code) noexcept { last_error = code; }

ErrorCode ErrorFromErrno(int error_number) noexcept {
  const auto found = std::ranges::find(kErrnoTable, error_number, &ErrnoPair::error_number);
  return found != std::end(kErrnoTable) ? found->code : kErrorGenFailure;
}

bool IsPassing(ErrorCode code) noexcept {
  return code == kErrorTooManyOpenFiles || code == kErrorNotEnoughMemory ||
         code == kErrorNoSystemResources || code == kErrorIoDevice ||
         code == kErrorOperationAborted;
}

int ErrnoFromError(ErrorCode code) noexcept {
  for (const auto& pair : kNearestErrno) {
    if (pair.code == code) return pair.error_number;
  }
  const auto found = std::ranges::find(kErrnoTable, code, &ErrnoPair::code);
  return found != std::end(kErrnoTable) ? found->error_number : EIO;
}

bool Fail(ErrorCode code) noexcept {
  SetLastError(code);
  return false;
}

bool FailWithErrno() noexcept { return Fail(ErrorFromErrno(errno)); }

std::wstring FormatErrorMessage(ErrorCode code) {
  // An error value in the form of a failed interface call keeps its number in the low half.
  constexpr ErrorCode kFacilityMask = 0xFFFF0000;
  constexpr ErrorCode kFacilityWin32 = 0x80070000;
  if ((code & kFacilityMask) == kFacilityWin32) code &= ~kFacilityMask;
  const auto found = std::ranges::find(kErrorTexts, code, &ErrorText::code);
  return found != std::end(kErrorTexts) ? std::wstring(found->text) : std::wstring();
}

}  // namespace vk::tq
