#include "platform/file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "platform/error.h"
#include "platform/log_output.h"
#include "platform/path.h"
#include "platform/profile.h"
#include "platform/stdio_file.h"
#include "platform/text.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using ::testing::ElementsAre;
using FileTest = ProductTest;
using WideTexts = std::vector<std::wstring>;

WideTexts Names(const std::optional<std::vector<FoundFile>>& files) {
  WideTexts names;
  for (const FoundFile& file : files.value()) names.push_back(file.name);
  return names;
}

TEST_F(FileTest, AReadFollowsLinksOfTheCallerAlone) {
  WriteNative(native("secret"), "[s]\nk=precious\n");
  fs::create_symlink("secret", native("own"));
  fs::create_symlink("own", native("twice"));
  // As bytes, as an INI file, and as lines.
  const auto read = [link = path(L"twice")] {
    return std::tuple(ReadFile(link).has_value(), Profile(link).GetString(L"s", L"k", L"", 10),
                      CStdioFile().Open(link.c_str(), CStdioFile::modeRead));
  };
  EXPECT_EQ(read(), std::tuple(true, L"precious", true));
  if (getuid() != 0) GTEST_SKIP() << "another user's link takes root to make";
  ASSERT_EQ(0, lchown(native("own").c_str(), 65534, 65534));
  EXPECT_EQ(read(), std::tuple(false, L"", false));
  EXPECT_EQ(5U, GetLastError());
}

TEST_F(FileTest, ANewFileAppearsWholeAndAnOldOneStaysItself) {
  for (const bool is_kept : {false, true}) {
    InPlaceWriter file;
    ASSERT_TRUE(file.Open(path(L"file"), 3));
    ASSERT_TRUE(file.Write("abc", 3));
    EXPECT_FALSE(ExistsNative(native("file")));
    EXPECT_TRUE(!is_kept || file.Commit());
  }
  fs::create_hard_link(native("file"), native("twin"));
  for (const std::string text : {"longer", "new", ""}) {
    ASSERT_TRUE(WriteFileInPlace(path(L"file"), text.data(), text.size()));
    EXPECT_EQ(text, ReadNative(native("twin")));
  }
}

// What a kill leaves of a write of many pages, at each of its steps.
TEST_F(FileTest, ContentsOfManyPagesAreTheOldOrTheNew) {
  const std::string fresh(20'000, 'n');
  for (const std::size_t old_size : {5'000U, 90'000U}) {
    WriteNative(native("file"), std::string(old_size, 'o'));
    InPlaceWriter writer;
    ASSERT_TRUE(writer.Open(path(L"file"), fresh.size()));
    ASSERT_TRUE(writer.Write(fresh.data(), fresh.size()));
    const std::string before_the_cut = ReadNative(native("file"));
    ASSERT_TRUE(writer.Commit());
    EXPECT_EQ(fresh, ReadNative(native("file")));
    for (const std::size_t done : {0U, 8'192U, 20'000U}) {
      SCOPED_TRACE(std::to_string(old_size) + " " + std::to_string(done));
      const std::size_t rest = std::max(old_size, done) - done;
      WriteNative(native("torn"), std::string(before_the_cut).replace(done, rest, rest, 'o'));
      EXPECT_EQ(SecureBytes(fresh.begin(), fresh.end()), ReadFile(path(L"torn")));
      // The next writer begins with whole contents, also when it ends before it has written.
      { EXPECT_TRUE(InPlaceWriter().Open(path(L"torn"), 100'000)); }
      EXPECT_EQ(fresh, ReadNative(native("torn")));
    }
  }
}

// And a writer that has waited writes no file that is gone meanwhile.
TEST_F(FileTest, AReaderDoesNotStopAWriterForEver) {
  WriteNative(native("file"), "old");
  std::optional<InputFile> reader(std::in_place);
  ASSERT_TRUE(reader->Open(path(L"file")));
  std::thread writer([&] { EXPECT_TRUE(WriteFileInPlace(path(L"file"), "new", 3)); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ("old", ReadNative(native("file")));
  fs::remove(native("file"));
  reader.reset();
  writer.join();
  EXPECT_EQ("new", ReadNative(native("file")));
  const FileDescriptor file(open(native("file").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(SetFileLock(file.get(), F_RDLCK));
  EXPECT_TRUE(WriteFileInPlace(path(L"file"), "newer", 5));
}

TEST_F(FileTest, AReaderThatDoesNotGetTheLockNeverFindsNothing) {
  std::string text(20'000, 'n');
  WriteNative(native("file"), "old");
  InPlaceWriter writer;
  ASSERT_TRUE(writer.Open(path(L"file"), text.size()) && writer.Write(text.data(), text.size()));
  InputFile reader;
  ASSERT_TRUE(reader.Open(path(L"file")));
  ASSERT_TRUE(writer.Commit());
  EXPECT_FALSE(reader.Read(text.data(), text.size()));
  EXPECT_EQ(32U, GetLastError());
}

TEST_F(FileTest, FoldersAreMadeWithTheirParentsAndNotInPlaceOfAFile) {
  WriteNative(native("file"), "");
  EXPECT_TRUE(CreateFolders(path(L"a\\b\\c\\")));
  EXPECT_TRUE(fs::is_directory(native("a/b/c")));
  for (const wchar_t* name : {L"file", L"a\\b"}) {
    EXPECT_FALSE(CreateFolder(path(name)));
    EXPECT_EQ(183U, GetLastError());
  }
  EXPECT_TRUE(CreateFolders(path(L"a\\b")));
  EXPECT_FALSE(CreateFolders(path(L"file")) || CreateFolders(path(L"file\\x")));
  EXPECT_FALSE(CreateFolder(path(L"none\\x")));
  EXPECT_EQ(3U, GetLastError());
}

TEST_F(FileTest, AFamilyIsFoundToTheLetter) {
  for (const std::string name :
       {"J.dat", "J.096", "J.aa", "J", "J2.001", "j.001", "xJ.001", "J*.001", ".005"}) {
    WriteNative(native("in/" + name), "");
  }
  fs::create_directory(native("in/J.001"));
  EXPECT_EQ((WideTexts{L"J.096", L"J.aa", L"J.dat", L"J.001"}), Names(FindFamily(path(L"in\\J"))));
  EXPECT_EQ(WideTexts{L"J*.001"}, Names(FindFamily(path(L"in\\J*"))));
  EXPECT_FALSE(FindFamily(path(L"in\\"))) << "no name, no family";
}

// In a small folder by reading it, in a large one by asking for names as well.
TEST_F(FileTest, TheFirstOfAFamilyIsTheSameInAFolderOfAnySize) {
  fs::create_directory(native("0"));
  for (int i = 0; i < 700; ++i) WriteNative(native("700/other" + std::to_string(i)), "");
  for (const std::string folder : {"0", "700"}) {
    const std::wstring base = path(FromUtf8(folder) + L"\\J");
    EXPECT_FALSE(FindFirstOfFamily(base));
    fs::create_directory(native(folder + "/J.004"));
    // Each comes before those that are there.
    for (const std::string name : {"J.dat", "J.150", "J.042", "J.007"}) {
      fs::create_symlink(name == "J.007" ? "nowhere" : "/dev/null", native(folder + "/" + name));
      EXPECT_EQ(FromUtf8(name), FindFirstOfFamily(base).value_or(FoundFile()).name) << folder;
    }
  }
}

TEST_F(FileTest, NoRenameReplacesAFileAndAMoveUnderAnotherNameOfItLosesNothing) {
  WriteNative(native("file"), "contents");
  fs::create_symlink("nowhere", native("link"));
  EXPECT_FALSE(RenameFile(path(L"file"), path(L"link")));
  EXPECT_EQ(183U, GetLastError());
  EXPECT_TRUE(RenameFile(path(L"file"), path(L".\\file"))) << "in another spelling";
  fs::create_hard_link(native("file"), native("twin"));
  EXPECT_TRUE(MoveFileReplacing(path(L"file"), path(L".\\file")));
  EXPECT_EQ("contents", ReadNative(native("file")));
  EXPECT_TRUE(MoveFileReplacing(path(L"file"), path(L"twin")));
  EXPECT_FALSE(ExistsNative(native("file")));
  EXPECT_EQ("contents", ReadNative(native("twin")));
}

// Moves into another file system.
class FileMoveTest : public ProductTest {
 protected:
  void SetUp() override {
    WriteNative(from_, "");
    if (link(from_.c_str(), to_.c_str()) == 0) GTEST_SKIP() << "there is no second file system";
  }
  bool Move() const { return MoveFileReplacing(PathFromNative(from_), PathFromNative(to_)); }
  std::vector<std::string> Targets() const { return ListNative(target_.native()); }

  const ScopedEnvironment place_{"TMPDIR", "/dev/shm"};
  const TempFolder target_;
  const std::string from_ = native("from/job.dat");
  const std::string to_ = target_.native("job.xml");
};

TEST_F(FileMoveTest, MovesContentsRightsAndTimeInPlaceOfTheOldFile) {
  const std::string contents(200'000, 'x');
  WriteNative(from_, contents);
  WriteNative(to_, "old");
  fs::permissions(from_, fs::perms(0440));
  const timespec times[2] = {{7, 0}, {1'000'000'000, 123'000'000}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, from_.c_str(), times, 0));
  ASSERT_TRUE(Move()) << GetLastError();
  EXPECT_FALSE(ExistsNative(from_));
  EXPECT_THAT(Targets(), ElementsAre("job.xml"));
  EXPECT_EQ(contents, ReadNative(to_));
  EXPECT_EQ(fs::perms(0440), fs::status(to_).permissions());
  EXPECT_EQ(1'000'000'000'123'000'000, GetFileStatus(PathFromNative(to_))->last_write_ns);
}

TEST_F(FileMoveTest, PlantedLinksAreNotFollowed) {
  const std::string victim = native("victim");
  WriteNative(victim, "victim");
  WriteNative(from_, "contents");
  fs::create_symlink(victim, to_);
  ASSERT_TRUE(Move());
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(to_)));
  fs::create_symlink(victim, from_);
  EXPECT_FALSE(Move());
  EXPECT_EQ("victim", ReadNative(victim));
  EXPECT_EQ("contents", ReadNative(to_));
}

// It ends no process by a signal.
TEST_F(FileMoveTest, ALimitOfFileSizesIsAnError) {
  const std::wstring text(9'000, L'x');
  WriteNative(from_, ToUtf8(text));
  WriteNative(native("lines"), "");
  CStdioFile lines;
  ASSERT_TRUE(lines.Open(path(L"lines").c_str(), CStdioFile::modeWrite));
  const ScopedEnvironment log("TQ_LOG_FILE", native("log").c_str());
  const std::function<bool()> writes[] = {
      [&] { return InPlaceWriter().Open(path(L"file"), 9'000); }, [&] { return Move(); },
      [&] { return lines.WriteString(text.c_str()); }};
  ChildProcess child([&] {
    const rlimit limit{8'192, RLIM_INFINITY};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
    for (const auto& write : writes) {
      if (write() || GetLastError() != kErrorFileTooLarge) return 2;
    }
    for (int i = 0; i < 2; ++i) AppendProgramLog(5, text);
    return 0;
  });
  EXPECT_EQ(0, child.Wait());
  EXPECT_TRUE(ExistsNative(from_));
  EXPECT_THAT(Targets(), ElementsAre());
}

// For longer than a reader does. Of several that move one file, one succeeds.
TEST_F(FileMoveTest, ACopyWaitsForWhoWritesOrMoves) {
  WriteNative(from_, std::string(20'000, 'o'));
  const std::string half(5'000, 'n');
  InPlaceWriter writer;
  ASSERT_TRUE(writer.Open(PathFromNative(from_), 2 * half.size()));
  ASSERT_TRUE(writer.Write(half.data(), half.size()));
  const auto move = [&] { return Move() ? 0 : static_cast<int>(GetLastError()); };
  ChildProcess one(move);
  ChildProcess other(move);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  ASSERT_TRUE(writer.Write(half.data(), half.size()) && writer.Commit());
  const int results[] = {one.Wait(), other.Wait()};
  EXPECT_THAT(results, ::testing::UnorderedElementsAre(0, 2));
  EXPECT_THAT(Targets(), ElementsAre("job.xml"));
  EXPECT_EQ(half + half, ReadNative(to_));
}

using StdioFileTest = ProductTest;

std::string Utf16Le(std::wstring_view text) { return *EncodeText(kCodePageUtf16Le, text); }

TEST_F(StdioFileTest, LinesEndAtALineFeedAndTheMarkTellsTheEncoding) {
  const auto lines = [&](std::string_view bytes) {
    WriteNative(native("f.txt"), bytes);
    CStdioFile file;
    EXPECT_TRUE(file.Open(path(L"f.txt").c_str(), CStdioFile::modeRead));
    WideTexts lines_read;
    for (CString line; file.ReadString(line);) lines_read.push_back(line);
    return lines_read;
  };
  EXPECT_EQ(lines("a\rb\r\r\nc\r"), (WideTexts{L"a\rb\r", L"c"}));
  EXPECT_EQ(lines("\xEF\xBB\xBF\u30C8\xFF\n\u30EC"), (WideTexts{L"ト\uFFFD", L"レ"}));
  // The second character of the UTF-16 text holds the byte of a line feed.
  EXPECT_EQ(lines("\xFF\xFE" + Utf16Le(L"ト\u0A30\u300A𠮷\r\nレ\n") + "b"),
            (WideTexts{L"ト\u0A30\u300A𠮷", L"レ", L"\uFFFD"}));
  // A character that lies across the boundary of what is read at once.
  const std::wstring line = std::wstring(65'534, L'x') + L"ト\u300A";
  EXPECT_EQ(lines(ToUtf8(line)), WideTexts{line});
  const ScopedEnvironment page("TQ_ANSI_CODEPAGE", "932");
  EXPECT_EQ(lines("\x83\x67\x83\x8C\x83\x43\n\x95\x5C"), (WideTexts{L"トレイ", L"表"}));
}

TEST_F(StdioFileTest, WritesBehindTheEndInTheFormOfTheFile) {
  for (const std::string old : {"a", "\xFF\xFE", ""}) {
    WriteNative(native("f.txt"), old);
    CStdioFile file;
    EXPECT_TRUE(file.Open(path(L"f.txt").c_str(), CStdioFile::modeWrite));
    EXPECT_TRUE(file.WriteString(L"ト\n"));
    const std::string text = old == "\xFF\xFE" ? Utf16Le(L"ト\r\n") : "\u30C8\r\n";
    EXPECT_EQ(ReadNative(native("f.txt")), old + text);
  }
}

// The file is settled at the first line of a process.
TEST(LogOutputTest, WhatSomebodyPlantedIsLeftAlone) {
  if (!HasOwnProcess()) return;
  const TempFolder temp;
  const std::string log = temp.native("program.log");
  const std::string victim = temp.native("victim");
  const ScopedEnvironment file("TQ_LOG_FILE", log.c_str());
  WriteNative(victim, "");
  const std::function<void()> plants[] = {
      [&] { fs::create_symlink(victim, log); }, [&] { fs::create_hard_link(victim, log); },
      [&] { ASSERT_EQ(0, mkfifo(log.c_str(), 0600)); }, [&] { fs::create_directory(log); }};
  for (const auto& plant : plants) {
    plant();
    AppendProgramLog(5, L"text");
    fs::remove(log);
  }
  EXPECT_EQ("", ReadNative(victim));
  // A new file is written to, in text that steers no terminal.
  const std::wstring controls(L"\0\x1B\x7F\x80\x85\x9F\u2028\u2029", 8);
  AppendProgramLog(5, L"日本\r\n\t" + controls + L"\xA0。|");
  AppendProgramLog(5, L"x");
  EXPECT_THAT(
      ReadNative(log),
      ::testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z "
                              "[0-9]+:[0-9]+ 5 日本\\\\r\\\\n\t\\?{8}\xC2\xA0。\\|\n.* 5 x\n"));
}

}  // namespace
}  // namespace vk::tq::testing
