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
  const std::tuple<int, ErrorCode, int> cases[] = {{ENOENT, 2, ENOENT},
                                                   {ENOTDIR, 3, ENOENT},
                                                   {ELOOP, 5, EACCES},
                                                   {EISDIR, 5, EACCES},
                                                   {EDQUOT, 112, ENOSPC},
                                                   {EEXIST, 183, EEXIST},
                                                   {ENAMETOOLONG, 206, ENAMETOOLONG},
                                                   {ENOTTY, 31, EIO}};
  for (const auto& [number, code, back] : cases) {
    EXPECT_EQ(code, ErrorFromErrno(number)) << number;
    EXPECT_EQ(back, ErrnoFromError(code)) << code;
  }
  EXPECT_EQ(EEXIST, ErrnoFromError(kErrorFileExists));
}

TEST(ErrorTest, TextsInBothForms) {
  EXPECT_FALSE(FormatErrorMessage(kErrorAccessDenied).empty());
  EXPECT_EQ(FormatErrorMessage(kErrorAccessDenied), FormatErrorMessage(0x80070005));
  EXPECT_EQ(L"", FormatErrorMessage(0x80040201));
  EXPECT_EQ(L"", FormatErrorMessage(4711));
}

}  // namespace
}  // namespace vk::tq::testing
