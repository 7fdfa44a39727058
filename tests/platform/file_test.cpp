#include "platform/file.h"

#include <unistd.h>

#include <filesystem>
#include <functional>
#include <tuple>

#include "platform/error.h"
#include "platform/path.h"
#include "platform/profile.h"
#include "platform/stdio_file.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;
using FileTest = ProductTest;
using WideNames = std::vector<std::wstring>;

// Of an error, its number.
WideNames Names(const std::optional<std::vector<FoundFile>>& files) {
  if (!files) return {std::to_wstring(GetLastError())};
  WideNames names;
  for (const FoundFile& file : *files) names.push_back(file.name);
  return names;
}

TEST_F(FileTest, FailuresTellTheirError) {
  WriteNative(native("file"), "abc");
  fs::create_symlink("nowhere", native("own"));
  const auto writes = [](const std::wstring& name) { return WriteFileInPlace(name, "x", 1); };
  const auto tells = [](const std::wstring& name) { return GetFileStatus(name).has_value(); };
  const auto renames = [&](const std::wstring& name) { return RenameFile(path(L"file"), name); };
  const struct {
    std::function<bool(const std::wstring&)> operation;
    const wchar_t* name;
    ErrorCode error;  // none: it succeeds
  } cases[] = {{writes, L"none\\file", 3},
               {tells, L"none", 2},
               {tells, L"none\\file", 3},
               {CreateFolder, L"a\\b", 3},
               {CreateFolders, L"a\\b\\日本 語\\d\\", 0},
               {CreateFolders, L"a\\b\\日本 語\\d", 0},
               {CreateFolder, L"a", 183},
               {CreateFolders, L"file", 183},
               {renames, L"own", 183},
               {renames, L".\\file", 0},  // the same name, spelt otherwise
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

TEST_F(FileTest, AReadFollowsLinksOfTheCallerAlone) {
  WriteNative(native("secret"), "[s]\nk=precious\n");
  fs::create_symlink("secret", native("own"));
  fs::create_symlink("own", native("twice"));
  // As bytes, as an INI file, and as lines.
  const auto read = [&](const std::wstring& link) {
    const std::wstring value = Profile(link).GetString(L"s", L"k", L"", 10);
    const bool has_lines = CStdioFile().Open(link.c_str(), CStdioFile::modeRead);
    return std::tuple(ReadFile(link).has_value(), value, has_lines);
  };
  EXPECT_EQ(read(path(L"twice")), std::tuple(true, L"precious", true));
  if (getuid() != 0) GTEST_SKIP() << "another user's link takes root to make";
  ASSERT_EQ(0, lchown(native("own").c_str(), 65534, 65534));
  EXPECT_EQ(read(path(L"twice")), std::tuple(false, L"", false));
  EXPECT_EQ(5U, GetLastError());
}

TEST_F(FileTest, AWriteInPlaceKeepsTheFileItself) {
  WriteNative(native("file"), "a longer text than the new one");
  fs::create_hard_link(native("file"), native("twin"));
  for (const std::string text : {"new", "", "much longer than all of the others before it"}) {
    ASSERT_TRUE(WriteFileInPlace(path(L"file"), text.data(), text.size()));
    EXPECT_EQ(text, ReadNative(native("twin")));
  }
}

TEST_F(FileTest, ANewFileAppearsWhole) {
  for (const bool is_kept : {false, true}) {
    InPlaceWriter file;
    ASSERT_TRUE(file.Open(path(L"new"), 3));
    ASSERT_TRUE(file.Write("abc", 3));
    EXPECT_FALSE(ExistsNative(native("new")));
    EXPECT_TRUE(!is_kept || file.Commit());
  }
  EXPECT_EQ("abc", ReadNative(native("new")));
}

// What a kill leaves of a write of many pages, at each of its steps.
TEST_F(FileTest, ContentsOfManyPagesAreTheOldOrTheNew) {
  const auto whole = [&](std::string_view torn) {
    WriteNative(native("torn"), torn);
    const auto bytes = ReadFile(path(L"torn"));
    return bytes ? std::string(bytes->begin(), bytes->end()) : "not read";
  };
  const std::string fresh(20'000, 'n');
  for (const std::size_t old_size : {5'000U, 20'000U, 90'000U}) {
    SCOPED_TRACE(old_size);
    const std::string old(old_size, 'o');
    WriteNative(native("file"), old);
    InPlaceWriter writer;
    ASSERT_TRUE(writer.Open(path(L"file"), fresh.size()));
    ASSERT_TRUE(writer.Write(fresh.data(), fresh.size()));
    const std::string before_the_cut = ReadNative(native("file"));
    ASSERT_TRUE(writer.Commit());
    EXPECT_EQ(fresh, ReadNative(native("file")));
    const auto written_up_to = [&](std::size_t done) {
      const std::size_t rest = std::max(old_size, done) - done;
      return std::string(before_the_cut).replace(done, rest, rest, 'o');
    };
    // A mark that is not whole yet is none: the old contents count.
    for (const std::size_t missing : {1U, 24U, 25U, 10'000U}) {
      const std::string cut = written_up_to(0).substr(0, before_the_cut.size() - missing);
      EXPECT_EQ(old, whole(cut).substr(0, old_size)) << missing;
    }
    for (const std::size_t done : {0U, 4'096U, 8'192U, 20'000U}) {
      const std::string torn = written_up_to(done);
      EXPECT_EQ(fresh, whole(torn)) << done;
      // The next writer begins with whole contents, also when it ends before it has written.
      { EXPECT_TRUE(InPlaceWriter().Open(path(L"torn"), 100'000)); }
      EXPECT_EQ(fresh, ReadNative(native("torn"))) << done;
      for (const std::string& next : {std::string("short"), std::string(30'000, 'x')}) {
        WriteNative(native("torn"), torn);
        EXPECT_TRUE(WriteFileInPlace(path(L"torn"), next.data(), next.size()));
        EXPECT_EQ(next, ReadNative(native("torn"))) << done;
      }
    }
  }
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
    WriteNative(native("in/" + std::string(name)), "");
  }
  fs::create_directory(native("in/folder.txt"));
  const std::pair<const wchar_t*, WideNames> cases[] = {
      {L"*.txt", {L"A.TXT", L"b.txt", L"folder.txt", L"Ｆ.txt"}},
      {L"*.*", {L".hidden", L"A.TXT", L"b.txt", L"c.tar.gz", L"folder.txt", L"noext", L"Ｆ.txt"}},
      {L"ｆ.*", {L"Ｆ.txt"}},
      {L"c*r*", {L"c.tar.gz"}},
      {L"none*", {L"2"}}};
  for (const auto& [pattern, names] : cases) {
    EXPECT_EQ(names, Names(FindFiles(path(L"in"), pattern))) << ToUtf8(pattern);
  }
  EXPECT_EQ(WideNames{L"3"}, Names(FindFiles(path(L"nowhere"), L"*")));
}

TEST_F(FileTest, AFamilyIsFoundToTheLetter) {
  for (const char* name : {"J.dat", "J.096", "J.Zz", "J.aa", "J", "J2.001", "j.001", "xJ.001",
                           "J*.001", ".005", "J.\xff\\1"}) {
    WriteNative(native(name), "");
  }
  fs::create_directory(native("J.001"));
  const std::wstring no_utf8 = PathFromNative("J.\xff\\1");
  EXPECT_EQ((WideNames{L"J.096", L"J.aa", L"J.dat", L"J.Zz", no_utf8, L"J.001"}),
            Names(FindFamily(path(L"J"))));
  EXPECT_EQ(WideNames{L"J*.001"}, Names(FindFamily(path(L"J*"))));
  EXPECT_EQ(WideNames{L"2"}, Names(FindFamily(path(L"")))) << "no name, no family";
}

// In a small folder by reading it, in a large one by asking for names as well.
TEST_F(FileTest, TheFirstOfAFamilyIsTheSameInAFolderOfAnySize) {
  // Each comes before those that are there.
  const std::function<void()> steps[] = {
      [&] { fs::create_directory(native("in/J.004")); },
      [&] { WriteNative(native("in/J.dat"), ""); },
      [&] { WriteNative(native("in/J.150"), ""); },
      [&] { WriteNative(native("in/J.042"), ""); },
      [&] { fs::create_symlink("J.004", native("in/J.005")); },
      [&] { fs::create_symlink("nowhere", native("in/J.007")); }};
  for (const int others : {0, 700}) {
    fs::create_directory(native("in"));
    for (int i = 0; i < others; ++i) WriteNative(native("in/other" + std::to_string(i)), "");
    EXPECT_FALSE(FindFirstOfFamily(path(L"in\\J")));
    for (const auto& step : steps) {
      step();
      const auto first = FindFirstOfFamily(path(L"in\\J"));
      ASSERT_TRUE(first) << &step - steps;
      EXPECT_EQ(FindFamily(path(L"in\\J"))->front().name, first->name) << &step - steps;
    }
    fs::remove_all(native("in"));
  }
}

}  // namespace
}  // namespace vk::tq::testing
