#include "platform/path.h"

#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix/native.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

TEST(PathTest, ToNative) {
  const ScopedEnvironment volumes("TQ_VOLUMES", "/v");
  const std::pair<const wchar_t*, const char*> cases[] = {
      {L"\\tmp\\a/b", "/tmp/a/b"},
      {L"z:", "/v/z"},
      {L"c:\\dir\\", "/v/c/dir/"},
      {L"c:\\a\\.\\\\b\\..\\c", "/v/c/a/c"},
      {L"c:\\..\\..\\etc\\passwd", "/v/c/etc/passwd"},
      {L"ab:\\a", "ab:/a"}};
  for (const auto& [path, native] : cases) EXPECT_EQ(native, PathToNative(path));
  EXPECT_EQ("/a", PathToNative(std::wstring_view(L"\\a\0b", 4))) << "a path ends at a NUL";
  const ScopedEnvironment none("TQ_VOLUMES", nullptr);
  EXPECT_EQ("/var/lib/tessaloquin/volumes/c/日本.txt", PathToNative(L"C:\\日本.txt"));
}

TEST(PathTest, EveryNativeNameReadsBack) {
  std::string every_byte = "/";
  for (int byte = 1; byte < 256; ++byte) every_byte += static_cast<char>(byte);
  for (const std::string& native :
       {std::string("/a/日本"), every_byte, std::string("\xED\xA0\x80\xC3"),
        std::string("\xF0\x9F\x98\x80"), std::string("\xEF\xBF\xBD")}) {
    EXPECT_EQ(native, PathToNative(PathFromNative(native))) << ToHex(native);
  }
}

TEST(PathTest, TheUsersFolder) {
  const std::tuple<const char*, const char*, const char*, const wchar_t*> cases[] = {
      {"/own/", "/xdg", "/home/x", L"\\own"},
      {nullptr, "/xdg/", "/home/x", L"\\xdg"},
      {"", "xdg", "/home/x/", L"\\home\\x\\.local\\share"},
      {nullptr, nullptr, "/", L"\\.local\\share"}};
  for (const auto& [own, xdg, home, folder] : cases) {
    const ScopedEnvironment set_own("TQ_APPDATA", own);
    const ScopedEnvironment set_xdg("XDG_DATA_HOME", xdg);
    const ScopedEnvironment set_home("HOME", home);
    EXPECT_EQ(folder, SpecialFolder(26));
  }
}

TEST(PathTest, TemporaryFilesArePrivateAndNew) {
  const TempFolder temp;
  const ScopedEnvironment folder("TMPDIR", temp.native().c_str());
  const mode_t old_mask = umask(0);
  const std::wstring first = CreateTemporaryFile(L"tq");
  umask(old_mask);
  EXPECT_NE(first, CreateTemporaryFile(L"tq"));
  EXPECT_TRUE(first.starts_with(temp.path(L"tq")));
  struct stat status {};
  ASSERT_EQ(0, stat(PathToNative(first).c_str(), &status));
  EXPECT_EQ(S_IFREG | 0600u, status.st_mode);
  for (const std::wstring& prefix : {std::wstring(L"..\\..\\x/y"), std::wstring(300, L'長')}) {
    EXPECT_TRUE(ExistsNative(PathToNative(CreateTemporaryFile(prefix))));
  }
  EXPECT_EQ(4U, ListNative(temp.native()).size()) << "none is elsewhere";
}

}  // namespace
}  // namespace vk::tq::testing
