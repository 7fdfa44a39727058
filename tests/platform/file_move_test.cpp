#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
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
using ::testing::IsEmpty;

struct stat StatNative(const std::string& native) {
  struct stat info {};
  EXPECT_EQ(0, lstat(native.c_str(), &info)) << native;
  return info;
}

// Moves out of a folder in the temporary folder, into one of the same file system or of another.
class FileMoveTest : public ::testing::TestWithParam<bool> {
 protected:
  FileMoveTest() {
    fs::create_directory(home_.native("from"));
    target_ = home_.native("to");
    if (GetParam()) {
      std::string name = "/dev/shm/tq.XXXXXX";
      if (mkdtemp(name.data()) != nullptr) target_ = name;
    }
    fs::create_directories(target_);
  }
  ~FileMoveTest() override {
    std::error_code ignored;
    fs::remove_all(target_, ignored);
  }

  void SetUp() override {
    const bool differ = StatNative(home_.native()).st_dev != StatNative(target_).st_dev;
    if (GetParam() && !differ) GTEST_SKIP() << "there is no second file system";
  }

  std::string From() const { return home_.native("from/job.dat"); }
  std::string To(std::string_view name = "job.xml") const {
    return target_ + "/" + std::string(name);
  }
  bool Move() const { return MoveFileReplacing(PathFromNative(From()), PathFromNative(To())); }
  std::vector<std::string> Targets() const { return ListNative(target_); }

  TempFolder home_;
  std::string target_;
};

INSTANTIATE_TEST_SUITE_P(FileSystems, FileMoveTest, ::testing::Bool(),
                         [](const auto& test) { return test.param ? "Other" : "Same"; });

TEST_P(FileMoveTest, MovesContentsRightsAndTimeInPlaceOfTheOldFile) {
  const std::string contents(200'000, 'x');
  WriteNative(To(), "old");
  for (const mode_t mode : {0600U, 0666U, 0440U}) {
    WriteNative(From(), contents);
    ASSERT_EQ(0, chmod(From().c_str(), mode));
    const timespec times[2] = {{7, 0}, {1'000'000'000, 123'000'000}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, From().c_str(), times, 0));
    ASSERT_TRUE(Move()) << GetLastError();
    EXPECT_FALSE(ExistsNative(From()));
    EXPECT_THAT(Targets(), ElementsAre("job.xml"));
    EXPECT_EQ(contents, ReadNative(To()));
    EXPECT_EQ(mode, StatNative(To()).st_mode & 07777);
    EXPECT_EQ(1'000'000'000'123'000'000, GetFileStatus(PathFromNative(To()))->last_write_ns);
  }
}

TEST_P(FileMoveTest, AccessListGoesAlong) {
  WriteNative(From(), "x");
  AccessList list;
  list.entries = {{{}, kGenericAll}};
  ASSERT_EQ(SecurityStep::kNone, LookUpAccount(L"users", list.entries[0].account));
  if (WriteAccessList(PathFromNative(From()), list) != SecurityStep::kNone) {
    GTEST_SKIP() << "no access lists here";
  }
  EXPECT_EQ(SecurityStep::kNone, ReadAccessList(PathFromNative(From()), list));
  ASSERT_TRUE(Move());
  AccessList moved;
  EXPECT_EQ(SecurityStep::kNone, ReadAccessList(PathFromNative(To()), moved));
  EXPECT_EQ(list, moved);
}

TEST_P(FileMoveTest, PlantedLinksAreNotFollowed) {
  WriteNative(home_.native("victim"), "victim");
  WriteNative(From(), "contents");
  fs::create_symlink(home_.native("victim"), To());
  ASSERT_TRUE(Move());
  EXPECT_EQ("victim", ReadNative(home_.native("victim")));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(To())));
  fs::remove(To());

  fs::create_symlink(home_.native("victim"), From());
  EXPECT_EQ(!GetParam(), Move()) << "in one file system the link itself moves";
  EXPECT_EQ(!GetParam(), fs::is_symlink(To()));
  EXPECT_EQ("victim", ReadNative(home_.native("victim")));
}

TEST_P(FileMoveTest, FailuresLeaveEverythingAsItWas) {
  EXPECT_FALSE(Move());
  EXPECT_EQ(kErrorFileNotFound, GetLastError());
  WriteNative(From(), "contents");
  fs::create_directory(To());
  EXPECT_FALSE(Move());
  EXPECT_EQ(kErrorAccessDenied, GetLastError());
  EXPECT_EQ("contents", ReadNative(From()));
  EXPECT_THAT(Targets(), ElementsAre("job.xml"));
  fs::remove(To());

  ASSERT_TRUE(MoveFileReplacing(PathFromNative(From()),
                                PathFromNative(home_.native("from/../from/job.dat"))));
  EXPECT_EQ("contents", ReadNative(From())) << "a name in another spelling";
}

TEST_P(FileMoveTest, TwoNamesOfOneFileBecomeOne) {
  if (GetParam()) return;
  WriteNative(From(), "contents");
  fs::create_hard_link(From(), To());
  ASSERT_TRUE(Move());
  EXPECT_FALSE(fs::exists(From()));
  EXPECT_EQ("contents", ReadNative(To()));
}

TEST_P(FileMoveTest, CopyThatCannotBeFinishedLeavesTheSourceAndTheOldTarget) {
  if (!GetParam()) return;  // nothing is copied
  WriteNative(From(), std::string(300'000, 'x'));
  WriteNative(To(), "old");
  ChildProcess child([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{100'000, 100'000};
    setrlimit(RLIMIT_FSIZE, &limit);
    return Move() ? 0 : static_cast<int>(GetLastError());
  });
  EXPECT_EQ(static_cast<int>(kErrorFileTooLarge), child.Wait());
  EXPECT_EQ(300'000, StatNative(From()).st_size);
  EXPECT_THAT(Targets(), ElementsAre("job.xml"));
  EXPECT_EQ("old", ReadNative(To()));
}

TEST_P(FileMoveTest, ACopyRemovesWhatAKilledOneHasLeft) {
  if (!GetParam()) return;  // nothing is copied
  for (const char* name : {".move-1-0", ".move-1-1", ".move-notes", "job.xml"}) {
    WriteNative(To(name), name);
  }
  const int alive = open(To(".move-1-1").c_str(), O_RDWR | O_CLOEXEC);  // its owner goes on
  struct flock lock {};
  lock.l_type = F_WRLCK;
  ASSERT_EQ(0, fcntl(alive, F_OFD_SETLK, &lock));
  WriteNative(From(), "contents");
  EXPECT_TRUE(Move());
  EXPECT_THAT(Targets(), ElementsAre(".move-1-1", ".move-notes", "job.xml"));
  close(alive);
}

TEST_P(FileMoveTest, SourceThatCannotGoIsNotCopied) {
  WriteNative(From(), "contents");
  chmod(home_.native().c_str(), 0755);
  chmod(home_.native("from").c_str(), 0555);
  chmod(target_.c_str(), 0777);
  ChildProcess child([&] {
    if (geteuid() == 0 && setuid(65534) != 0) return 98;  // nothing is forbidden to root
    return Move() ? 0 : static_cast<int>(GetLastError());
  });
  EXPECT_EQ(static_cast<int>(kErrorAccessDenied), child.Wait());
  chmod(home_.native("from").c_str(), 0755);
  EXPECT_EQ("contents", ReadNative(From()));
  EXPECT_THAT(Targets(), IsEmpty());
}

}  // namespace
}  // namespace vk::tq::testing
