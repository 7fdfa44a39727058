#include "platform/file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>

#include "platform/error.h"
#include "platform/path.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

class FileTest : public ::testing::Test {
 protected:
  std::wstring path(std::wstring_view name) const { return temp_.path(name); }
  std::string native(std::string_view name) const { return temp_.native(name); }
  std::vector<std::string> All() const { return ListNative(temp_.native()); }

  TempFolder temp_;
};

std::vector<std::wstring> Names(const std::optional<std::vector<FoundFile>>& files) {
  std::vector<std::wstring> names;
  if (files) {
    for (const FoundFile& file : *files) names.push_back(file.name);
  }
  return names;
}

TEST_F(FileTest, StatusTellsKindSizeAndTime) {
  WriteNative(native("file"), "12345");
  const timespec times[2] = {{0, UTIME_OMIT}, {1'000'000'000, 123'456'789}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, native("file").c_str(), times, 0));
  const auto status = GetFileStatus(path(L"file"));
  ASSERT_TRUE(status);
  EXPECT_FALSE(status->is_directory);
  EXPECT_EQ(5U, status->size);
  EXPECT_EQ(1'000'000'000'123'456'789, status->last_write_ns);
  EXPECT_TRUE(GetFileStatus(temp_.path())->is_directory);
}

TEST_F(FileTest, FailuresTellTheirError) {
  fs::create_symlink("loop", native("loop"));
  WriteNative(native("file"), "abc");
  const auto reads = [](const std::wstring& name) { return ReadFile(name).has_value(); };
  const auto writes = [](const std::wstring& name) { return WriteFileInPlace(name, "x", 1); };
  const auto tells = [](const std::wstring& name) { return GetFileStatus(name).has_value(); };
  const struct {
    std::function<bool(const std::wstring&)> operation;
    const wchar_t* name;
    ErrorCode error;  // none: it succeeds
  } cases[] = {{reads, L"loop", 5},
               {writes, L"none\\file", 3},
               {tells, L"none", 2},
               {tells, L"none\\file", 3},
               {CreateFolder, L"a\\b", 3},
               {CreateFolders, L"a\\b\\日本 語\\d\\", 0},
               {CreateFolders, L"a\\b\\日本 語\\d", 0},
               {CreateFolder, L"a", 183},
               {CreateFolders, L"file", 183},
               {RemoveFile, L"a", 5},
               {RemoveFile, L"file", 0},
               {RemoveFile, L"file", 2}};
  for (const auto& test : cases) {
    SetLastError(0);
    EXPECT_EQ(test.error == 0, test.operation(path(test.name))) << ToUtf8(test.name);
    EXPECT_EQ(test.error, GetLastError()) << ToUtf8(test.name);
  }
  EXPECT_TRUE(fs::is_directory(native("a/b/日本 語/d")));
}

TEST_F(FileTest, AWriteInPlaceKeepsTheFileItself) {
  WriteNative(native("file"), "a longer text than the new one");
  fs::permissions(native("file"), fs::perms(0640));
  fs::create_hard_link(native("file"), native("twin"));
  for (const std::string text : {"new", "", "much longer than all of the others before it"}) {
    ASSERT_TRUE(WriteFileInPlace(path(L"file"), text.data(), text.size()));
    EXPECT_EQ(text, ReadNative(native("twin")));
  }
  EXPECT_EQ(fs::perms(0640), fs::status(native("file")).permissions());
}

TEST_F(FileTest, ANewFileAppearsWhole) {
  for (const bool is_kept : {false, true}) {
    InPlaceWriter file;
    ASSERT_TRUE(file.Open(path(L"new"), 3));
    ASSERT_TRUE(file.Write("abc", 3));
    EXPECT_THAT(All(), ElementsAre());
    EXPECT_TRUE(!is_kept || file.Commit());
  }
  EXPECT_EQ("abc", ReadNative(native("new")));
  EXPECT_THAT(All(), ElementsAre("new"));
}

// What a kill leaves of a write of many pages, at each of its steps.
TEST_F(FileTest, ContentsOfManyPagesAreTheOldOrTheNew) {
  const auto whole = [&](const wchar_t* name) {
    const auto bytes = ReadFile(path(name));
    return bytes ? std::string(bytes->begin(), bytes->end()) : "not read";
  };
  const std::string fresh(20'000, 'n');
  for (const std::size_t old_size : {5'000U, 20'000U, 90'000U}) {
    const std::string old(old_size, 'o');
    WriteNative(native("file"), old);
    InPlaceWriter writer;
    ASSERT_TRUE(writer.Open(path(L"file"), fresh.size()));
    ASSERT_TRUE(writer.Write(fresh.data(), fresh.size()));
    const std::string before_the_cut = ReadNative(native("file"));
    ASSERT_TRUE(writer.Commit());
    EXPECT_EQ(fresh, ReadNative(native("file")));
    for (const std::size_t done : {0U, 4'096U, 8'192U, 20'000U}) {
      std::string torn = before_the_cut;
      torn.replace(done, std::max(old_size, done) - done, old, 0, std::max(old_size, done) - done);
      WriteNative(native("torn"), torn);
      EXPECT_EQ(fresh, whole(L"torn")) << old_size << " " << done;
      // A mark that is not whole yet is none: the old contents count.
      if (done == 0) {
        for (const std::size_t missing : {1U, 24U, 25U, 10'000U}) {
          WriteNative(native("cut"), torn.substr(0, torn.size() - missing));
          EXPECT_EQ(old, whole(L"cut").substr(0, old_size)) << old_size << " " << missing;
        }
      }
      // The next writer begins with whole contents, also when it ends before it has written.
      { EXPECT_TRUE(InPlaceWriter().Open(path(L"torn"), 100'000)); }
      EXPECT_EQ(fresh, ReadNative(native("torn"))) << old_size << " " << done;
      for (const std::string& next : {std::string("short"), std::string(30'000, 'x')}) {
        WriteNative(native("torn"), torn);
        EXPECT_TRUE(WriteFileInPlace(path(L"torn"), next.data(), next.size()));
        EXPECT_EQ(next, ReadNative(native("torn"))) << old_size << " " << done;
      }
    }
  }
}

TEST_F(FileTest, AFullDiskShowsBeforeTheOldContentsAreTouched) {
  WriteNative(native("file"), "old");
  ChildProcess child([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4096, 4096};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 98;
    const std::string large(10'000, 'x');
    for (const wchar_t* name : {L"file", L"new"}) {
      if (WriteFileInPlace(path(name), large.data(), large.size())) return 1;
    }
    return static_cast<int>(GetLastError());
  });
  EXPECT_EQ(static_cast<int>(kErrorFileTooLarge), child.Wait());
  EXPECT_EQ("old", ReadNative(native("file")));
  EXPECT_THAT(All(), ElementsAre("file"));
}

TEST_F(FileTest, AReadFollowsLinksOfTheCallerAlone) {
  WriteNative(native("secret"), "precious");
  fs::create_symlink("secret", native("own"));
  fs::create_symlink("own", native("twice"));
  EXPECT_TRUE(ReadFile(path(L"twice")));
  if (getuid() != 0) GTEST_SKIP() << "another user's link takes root to make";
  fs::create_symlink("secret", native("planted"));
  ASSERT_EQ(0, lchown(native("planted").c_str(), 65534, 65534));
  EXPECT_FALSE(ReadFile(path(L"planted")));
  EXPECT_EQ(5U, GetLastError());
}

TEST_F(FileTest, RenameReplacesNothing) {
  WriteNative(native("a"), "a");
  WriteNative(native("b"), "b");
  EXPECT_FALSE(RenameFile(path(L"a"), path(L"b")));
  EXPECT_EQ(183U, GetLastError());
  EXPECT_TRUE(RenameFile(path(L"a"), path(L"a")));
  EXPECT_TRUE(RenameFile(path(L"b"), temp_.path() + L"\\.\\b")) << "the same name, spelt otherwise";
  EXPECT_TRUE(RenameFile(path(L"a"), path(L"c")));
  EXPECT_THAT(All(), ElementsAre("b", "c"));
}

TEST_F(FileTest, FoldersAreMadeByTwoProcessesAtOnce) {
  for (int round = 0; round < 50; ++round) {
    const std::wstring deep = path(L"r" + std::to_wstring(round) + L"\\a\\b\\c\\d\\e");
    ChildProcess other([&] { return CreateFolders(deep) ? 0 : 1; });
    EXPECT_TRUE(CreateFolders(deep));
    EXPECT_EQ(0, other.Wait());
  }
}

TEST_F(FileTest, ASearchMatchesAsOnWindows) {
  for (const char* name : {"b.txt", "A.TXT", "noext", "c.tar.gz", ".hidden", "Ｆ.txt"}) {
    WriteNative(native(name), "");
  }
  fs::create_directory(native("folder.txt"));
  const std::pair<const wchar_t*, std::vector<std::wstring>> cases[] = {
      {L"*.txt", {L"A.TXT", L"b.txt", L"folder.txt", L"Ｆ.txt"}},
      {L"*.*", {L".hidden", L"A.TXT", L"b.txt", L"c.tar.gz", L"folder.txt", L"noext", L"Ｆ.txt"}},
      {L"ｆ.*", {L"Ｆ.txt"}},
      {L"c*r*", {L"c.tar.gz"}},
      {L"none*", {}}};
  for (const auto& [pattern, names] : cases) {
    EXPECT_EQ(names, Names(FindFiles(temp_.path(), pattern))) << ToUtf8(pattern);
  }
  EXPECT_EQ(2U, GetLastError());
  EXPECT_FALSE(FindFiles(path(L"nowhere"), L"*"));
  EXPECT_EQ(3U, GetLastError());
}

TEST_F(FileTest, AFamilyIsFoundToTheLetter) {
  for (const char* name : {"J.dat", "J.096", "J.Zz", "J.aa", "J", "J2.001", "j.001", "xJ.001",
                           "J*.001", ".005", "J.\xff\\1"}) {
    WriteNative(native(name), "");
  }
  fs::create_directory(native("J.001"));
  const std::wstring no_utf8 = PathFromNative("J.\xff\\1");
  EXPECT_EQ((std::vector<std::wstring>{L"J.096", L"J.aa", L"J.dat", L"J.Zz", no_utf8, L"J.001"}),
            Names(FindFamily(path(L"J"))));
  EXPECT_EQ((std::vector<std::wstring>{L"J*.001"}), Names(FindFamily(path(L"J*"))));
  for (const wchar_t* base : {L"", L"K"}) {
    EXPECT_FALSE(FindFamily(path(base))) << "a base without a name has no family";
    EXPECT_EQ(2U, GetLastError());
  }
}

// In a small folder by reading it, in a large one by asking for names as well.
TEST_F(FileTest, TheFirstOfAFamilyIsTheSameInAFolderOfAnySize) {
  // Each comes before those that are there: a directory, files, links to a directory and to nothing.
  const std::pair<std::string, const char*> names[] = {{"J.004", "/"},     {"J.dat", ""},
                                                       {"J.150", ""},      {"J.042", ""},
                                                       {"J.005", "J.004"}, {"J.007", "nowhere"}};
  for (const int others : {0, 700}) {
    for (int i = 0; i < others; ++i) WriteNative(native("other" + std::to_string(i)), "");
    EXPECT_FALSE(FindFirstOfFamily(path(L"J")));
    for (const auto& [name, target] : names) {
      if (*target == '\0') {
        WriteNative(native(name), "");
      } else if (*target == '/') {
        fs::create_directory(native(name));
      } else {
        fs::create_symlink(target, native(name));
      }
      const auto first = FindFirstOfFamily(path(L"J"));
      ASSERT_TRUE(first) << name;
      EXPECT_EQ(FindFamily(path(L"J"))->front().name, first->name) << name;
    }
    for (const auto& [name, target] : names) fs::remove(native(name));
  }
}

}  // namespace
}  // namespace vk::tq::testing
