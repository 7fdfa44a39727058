#include "platform/path.h"

#include <sys/stat.h>

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

TEST(PathTest, ToNative) {
  const ScopedEnvironment volumes("TQ_VOLUMES", "/v");
  EXPECT_EQ("/v/c/a/c", PathToNative(L"c:\\a\\.\\\\b\\..\\c"));
  EXPECT_EQ("/v/c/etc/passwd", PathToNative(L"c:\\..\\..\\etc\\passwd"));
  EXPECT_EQ("/a", PathToNative(std::wstring_view(L"\\a\0b", 4))) << "a path ends at a NUL";
}

TEST(PathTest, EveryNativeNameReadsBack) {
  std::string native = "/日本\xED\xA0\x80\xC3";
  for (int byte = 1; byte < 256; ++byte) native += static_cast<char>(byte);
  EXPECT_EQ(native, PathToNative(PathFromNative(native)));
}

TEST(PathTest, TemporaryFilesArePrivateAndNew) {
  const TempFolder temp;
  const ScopedEnvironment folder("TMPDIR", temp.native().c_str());
  const mode_t old_mask = umask(0);
  const std::wstring first = CreateTemporaryFile(L"tq");
  umask(old_mask);
  EXPECT_NE(first, CreateTemporaryFile(L"tq"));
  EXPECT_EQ(std::filesystem::perms(0600),
            std::filesystem::status(PathToNative(first)).permissions());
  EXPECT_EQ(2U, ListNative(temp.native()).size());
}

}  // namespace
}  // namespace vk::tq::testing
