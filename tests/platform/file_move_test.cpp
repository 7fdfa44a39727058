#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/error.h"
#include "platform/file.h"
#include "platform/file_security.h"
#include "platform/path.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

struct stat StatNative(const std::string& native) {
  struct stat info {};
  EXPECT_EQ(0, lstat(native.c_str(), &info)) << native;
  return info;
}

// Moves out of a temporary folder, into another one of the same file system or of another.
class FileMoveTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    const bool differ = StatNative(home_.native()).st_dev != StatNative(target_.native()).st_dev;
    if (GetParam() && !differ) GTEST_SKIP() << "there is no second file system";
  }
  bool Move() const { return MoveFileReplacing(PathFromNative(from_), PathFromNative(to_)); }
  std::vector<std::string> Targets() const { return ListNative(target_.native()); }

  const TempFolder home_;
  const ScopedEnvironment place_{"TMPDIR", GetParam() ? "/dev/shm" : home_.native().c_str()};
  const TempFolder target_;
  const std::string from_ = home_.native("from/job.dat");
  const std::string to_ = target_.native("job.xml");
};

INSTANTIATE_TEST_SUITE_P(FileSystems, FileMoveTest, ::testing::Bool(),
                         [](const auto& test) { return test.param ? "Other" : "Same"; });

TEST_P(FileMoveTest, MovesContentsRightsAndTimeInPlaceOfTheOldFile) {
  const std::string contents(200'000, 'x');
  WriteNative(to_, "old");
  for (const mode_t mode : {0600U, 0666U, 0440U}) {
    WriteNative(from_, contents);
    ASSERT_EQ(0, chmod(from_.c_str(), mode));
    AccessList list;
    if (mode == 0600) list.entries = {{{}, kGenericAll}};
    for (AccessEntry& entry : list.entries) LookUpAccount(L"users", entry.account);
    WriteAccessList(PathFromNative(from_), list);
    ReadAccessList(PathFromNative(from_), list);
    const timespec times[2] = {{7, 0}, {1'000'000'000, 123'000'000}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, from_.c_str(), times, 0));
    const mode_t old_mode = StatNative(from_).st_mode;
    ASSERT_TRUE(Move()) << GetLastError();
    EXPECT_FALSE(ExistsNative(from_));
    EXPECT_THAT(Targets(), ElementsAre("job.xml"));
    EXPECT_EQ(contents, ReadNative(to_));
    EXPECT_EQ(old_mode, StatNative(to_).st_mode);
    AccessList moved;
    ReadAccessList(PathFromNative(to_), moved);
    EXPECT_EQ(list, moved);
    EXPECT_EQ(1'000'000'000'123'000'000, GetFileStatus(PathFromNative(to_))->last_write_ns);
  }
}

TEST_P(FileMoveTest, PlantedLinksAreNotFollowed) {
  const std::string victim = home_.native("victim");
  WriteNative(victim, "victim");
  WriteNative(from_, "contents");
  fs::create_symlink(victim, to_);
  ASSERT_TRUE(Move());
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(to_)));
  fs::remove(to_);

  fs::create_symlink(victim, from_);
  EXPECT_EQ(!GetParam(), Move()) << "in one file system the link itself moves";
  EXPECT_EQ(!GetParam(), fs::is_symlink(to_));
  EXPECT_EQ("victim", ReadNative(victim));
}

TEST_P(FileMoveTest, FailuresAndOtherNamesOfOneFileLoseNothing) {
  EXPECT_FALSE(Move());
  EXPECT_EQ(kErrorFileNotFound, GetLastError());
  WriteNative(from_, "contents");
  fs::create_directory(to_);
  EXPECT_FALSE(Move());
  EXPECT_EQ(kErrorAccessDenied, GetLastError());
  EXPECT_THAT(Targets(), ElementsAre("job.xml"));
  fs::remove(to_);

  const std::wstring same = PathFromNative(home_.native("from/../from/job.dat"));
  EXPECT_TRUE(MoveFileReplacing(PathFromNative(from_), same)) << "a name in another spelling";
  EXPECT_EQ("contents", ReadNative(from_));
  if (GetParam()) return;  // no links lead there
  fs::create_hard_link(from_, to_);
  EXPECT_TRUE(Move());
  EXPECT_FALSE(fs::exists(from_));
  EXPECT_EQ("contents", ReadNative(to_));
}

TEST_P(FileMoveTest, ACopyRemovesWhatAKilledOneHasLeft) {
  if (!GetParam()) return;  // nothing is copied
  for (const char* name : {".move-1-0", ".move-1-1", ".move-notes", "job.xml"}) {
    WriteNative(target_.native(name), name);
  }
  const FileDescriptor alive(open(target_.native(".move-1-1").c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_TRUE(SetFileLock(alive.get(), F_WRLCK)) << "its owner goes on";
  WriteNative(from_, "contents");
  EXPECT_TRUE(Move());
  EXPECT_THAT(Targets(), ElementsAre(".move-1-1", ".move-notes", "job.xml"));
}

TEST_P(FileMoveTest, SourceThatCannotGoIsNotCopied) {
  WriteNative(from_, "contents");
  chmod(home_.native().c_str(), 0755);
  chmod(home_.native("from").c_str(), 0555);
  chmod(target_.native().c_str(), 0777);
  ChildProcess child([&] {
    if (geteuid() == 0 && setuid(65534) != 0) return 98;  // nothing is forbidden to root
    return Move() ? 0 : static_cast<int>(GetLastError());
  });
  EXPECT_EQ(static_cast<int>(kErrorAccessDenied), child.Wait());
  chmod(home_.native("from").c_str(), 0755);
  EXPECT_EQ("contents", ReadNative(from_));
  EXPECT_THAT(Targets(), ElementsAre());
}

}  // namespace
}  // namespace vk::tq::testing
