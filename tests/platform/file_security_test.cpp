#include "platform/file_security.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "platform/error.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

constexpr uid_t kStranger = 54321;  // nobody's user number

// What a command prints.
std::string OutputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
  std::string output;
  for (int c = fgetc(pipe.get()); c != EOF; c = fgetc(pipe.get())) output += static_cast<char>(c);
  return output;
}

// The entries as getfacl shows them, one in a line, numbers for names.
std::string Acl(const std::string& native) { return OutputOf("getfacl -cpnE " + native); }

class FileSecurityTest : public ::testing::Test {
 protected:
  FileSecurityTest() {
    chmod(temp_.native().c_str(), 0755);
    EXPECT_EQ(LookUpAccount(L"users", users_), SecurityStep::kNone);
    WriteNative(file_, "");
    mkdir(folder_.c_str(), 0700);
  }

  // Gives the group users all rights, beside the entries that are there.
  void Grant(const wchar_t* name, std::uint8_t flags) {
    AccessList list;
    ASSERT_EQ(ReadAccessList(temp_.path(name), list), SecurityStep::kNone);
    list.entries.push_back({users_, kGenericAll, flags});
    ASSERT_EQ(WriteAccessList(temp_.path(name), list), SecurityStep::kNone) << GetLastError();
  }

  TempFolder temp_;
  AccountId users_;
  const std::string group_ = std::to_string(getgrnam("users")->gr_gid);
  const std::string file_ = temp_.native("file");
  const std::string folder_ = temp_.native("folder");
};

TEST_F(FileSecurityTest, AUserIsFoundWhereNoGroupHasTheName) {
  AccountId nobody;
  EXPECT_EQ(LookUpAccount(L"nobody", nobody), SecurityStep::kNone);
  EXPECT_EQ(LookUpAccount(L"no such account", nobody), SecurityStep::kLookUpAccount);
}

TEST_F(FileSecurityTest, AFileGetsAnEntryAndKeepsItsMode) {
  chmod(file_.c_str(), 0640);
  const std::string old = Acl(file_);
  Grant(L"file", 0);
  EXPECT_EQ(Acl(file_),
            "user::rw-\ngroup::r--\ngroup:" + group_ + ":rw-\nmask::rw-\nother::---\n\n");
  EXPECT_EQ(WriteAccessList(temp_.path(L"file"), {}), SecurityStep::kNone);
  EXPECT_EQ(Acl(file_), old) << "without the entry";
}

// A mask that grows for a new entry must not widen what it held back before.
TEST_F(FileSecurityTest, NobodyElseGainsByANewEntry) {
  chmod(file_.c_str(), 0600);
  ASSERT_EQ(OutputOf("setfacl -n -m u:54321:rw,g::rw,m::r " + file_), "");
  Grant(L"file", 0);
  EXPECT_EQ(Acl(file_), "user::rw-\nuser:54321:r--\ngroup::r--\ngroup:" + group_ +
                            ":rw-\nmask::rw-\nother::---\n\n");
}

// What is read and written back changes nothing, also where the two ACLs of a folder differ.
TEST_F(FileSecurityTest, ReadAndWrittenBackAListStaysAsItIs) {
  ASSERT_EQ(OutputOf("setfacl -m u:1:r,g:2:rx,d:u:1:rx,d:g:2:rx,d:u:3:w " + folder_), "");
  const std::string acl = Acl(folder_);
  AccessList list;
  ASSERT_EQ(ReadAccessList(temp_.path(L"folder"), list), SecurityStep::kNone);
  EXPECT_EQ(list.entries.size(), 4U);
  ASSERT_EQ(WriteAccessList(temp_.path(L"folder"), list), SecurityStep::kNone);
  EXPECT_EQ(Acl(folder_), acl);
}

TEST_F(FileSecurityTest, MissingObjectsAndLinksFail) {
  const std::string acl = Acl(file_);
  ASSERT_EQ(symlink(file_.c_str(), temp_.native("link").c_str()), 0);
  for (const auto& [name, error] :
       {std::pair(L"none", kErrorFileNotFound), std::pair(L"link", kErrorAccessDenied)}) {
    AccessList list;
    EXPECT_EQ(ReadAccessList(temp_.path(name), list), SecurityStep::kQuerySize);
    EXPECT_EQ(GetLastError(), error);
    list.entries = {{users_, kGenericAll}};
    EXPECT_EQ(WriteAccessList(temp_.path(name), list), SecurityStep::kWriteDescriptor);
  }
  EXPECT_EQ(Acl(file_), acl);
}

TEST_F(FileSecurityTest, TheGroupReallyGetsIn) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  chmod(file_.c_str(), 0600);
  // As a user who is in one group only; 0, or the error.
  const auto open_as_stranger = [&](gid_t group) {
    return ChildProcess([&]() -> int {
             if (setgroups(1, &group) != 0 || setresgid(group, group, group) != 0 ||
                 setresuid(kStranger, kStranger, kStranger) != 0) {
               return 98;
             }
             return open(file_.c_str(), O_RDWR | O_CLOEXEC) >= 0 ? 0 : errno;
           })
        .Wait();
  };
  const gid_t users = getgrnam("users")->gr_gid;
  EXPECT_EQ(open_as_stranger(users), EACCES);
  Grant(L"file", 0);
  EXPECT_EQ(open_as_stranger(users), 0);
  EXPECT_EQ(open_as_stranger(kStranger), EACCES);
}

}  // namespace
}  // namespace vk::tq::testing
