#include "platform/error.h"

#include <cerrno>
#include <thread>

#include "platform/posix/native.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

TEST(ErrorTest, EachThreadHasItsOwn) {
  SetLastError(5);
  std::thread([] {
    EXPECT_EQ(0U, GetLastError());
    SetLastError(7);
  }).join();
  EXPECT_EQ(5U, GetLastError());
  {
    const LastErrorKeeper keeper;
    SetLastError(8);
  }
  EXPECT_EQ(5U, GetLastError());
}

TEST(ErrorTest, ErrnoValuesAndBack) {
  const struct {
    int number;
    ErrorCode code;
    int back;
  } cases[] = {
      {ENOENT, 2, ENOENT},
      {ENOTDIR, 3, ENOENT},
      {EMFILE, 4, EMFILE},
      {ENFILE, 4, EMFILE},
      {EACCES, 5, EACCES},
      {EPERM, 5, EACCES},
      {EISDIR, 5, EACCES},
      {ELOOP, 5, EACCES},
      {EBADF, 6, EBADF},
      {ENOMEM, 8, ENOMEM},
      {EXDEV, 17, EXDEV},
      {EROFS, 19, EROFS},
      {ETXTBSY, 32, ETXTBSY},
      {ENOTSUP, 50, ENOTSUP},
      {EINVAL, 87, EINVAL},
      {EPIPE, 109, EPIPE},
      {ENOSPC, 112, ENOSPC},
      {EDQUOT, 112, ENOSPC},
      {ENOTEMPTY, 145, ENOTEMPTY},
      {EBUSY, 170, EBUSY},
      {EEXIST, 183, EEXIST},
      {ENAMETOOLONG, 206, ENAMETOOLONG},
      {EFBIG, 223, EFBIG},
      {EIO, 1117, EIO},
      {ETIMEDOUT, 1460, ETIMEDOUT},
      {EAGAIN, 10035, EAGAIN},
      {ECONNREFUSED, 10061, ECONNREFUSED},
      {ENOTTY, 31, EIO},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(test.code, ErrorFromErrno(test.number)) << test.number;
    EXPECT_EQ(test.back, ErrnoFromError(test.code)) << test.code;
  }
  EXPECT_EQ(EEXIST, ErrnoFromError(kErrorFileExists));
  errno = ENOSPC;
  EXPECT_FALSE(FailWithErrno());
  EXPECT_EQ(kErrorDiskFull, GetLastError());
}

TEST(ErrorTest, TextsInBothForms) {
  EXPECT_FALSE(FormatErrorMessage(kErrorAccessDenied).empty());
  EXPECT_EQ(FormatErrorMessage(kErrorAccessDenied), FormatErrorMessage(0x80070005));
  for (const ErrorCode code : {0x80004005u, 0x8007000Eu, 0x80070057u}) {
    EXPECT_FALSE(FormatErrorMessage(code).empty()) << code;
  }
  EXPECT_EQ(L"", FormatErrorMessage(0x80040201));
  EXPECT_EQ(L"", FormatErrorMessage(4711));
}

}  // namespace
}  // namespace vk::tq::testing
