#include "platform/file_security.h"

#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/posix/file_rights.h"
#include "platform/posix/native.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

class FileSecurityTest : public ProductTest {
 protected:
  // What a command prints that runs in the folder of the test.
  std::string OutputOf(const std::string& command) const {
    const std::string line = "cd " + temp_.native() + " && (" + command + ") >output";
    EXPECT_EQ(0, std::system(line.c_str())) << command;
    return ReadNative(native("output"));
  }
};

// A mask that grows for a new entry must not widen what it held back before.
TEST_F(FileSecurityTest, NobodyElseGainsByANewEntry) {
  const std::string users = "group:" + std::to_string(getgrnam("users")->gr_gid);
  const std::pair<std::string, std::string> cases[] = {
      {"touch file; chmod 640 file",
       "user::rw-\ngroup::r--\n" + users + ":rw-\nmask::rw-\nother::---\n\n"},
      {"chmod 600 file; setfacl -n -m u:54321:rw,g::rw,m::r file",
       "user::rw-\nuser:54321:r--\ngroup::r--\n" + users + ":rw-\nmask::rw-\nother::---\n\n"},
      {"rm file; mkdir -m 750 file; setfacl -m u:1:r,g:2:r,d:u:1:rx,d:g:2:r file",
       "user::rwx\nuser:1:r--\ngroup::r-x\ngroup:2:r--\n" + users +
           ":rwx\nmask::rwx\nother::---\ndefault:user::rwx\ndefault:user:1:r-x\n"
           "default:group::r-x\ndefault:group:2:r--\ndefault:mask::r-x\ndefault:other::---\n\n"}};
  for (const auto& [prepare, acl] : cases) {
    EXPECT_EQ(OutputOf(prepare), "");
    AccountId account;
    AccessList list;
    ASSERT_EQ(LookUpAccount(L"users", account), SecurityStep::kNone);
    ASSERT_EQ(ReadAccessList(path(L"file"), list), SecurityStep::kNone);
    list.entries.push_back({account, kGenericAll});
    ASSERT_EQ(WriteAccessList(path(L"file"), list), SecurityStep::kNone) << GetLastError();
    EXPECT_EQ(OutputOf("getfacl -cpnE file"), acl) << prepare;
  }
}

TEST_F(FileSecurityTest, MissingObjectsAndLinksFail) {
  EXPECT_EQ(OutputOf("touch file && ln -s file link"), "");
  AccessList list;
  for (const auto& [name, error] : {std::pair(L"none", 2U), std::pair(L"link", 5U)}) {
    EXPECT_EQ(ReadAccessList(path(name), list), SecurityStep::kQuerySize);
    EXPECT_EQ(WriteAccessList(path(name), list), SecurityStep::kWriteDescriptor);
    EXPECT_EQ(GetLastError(), error);
  }
}

// A file that somebody else makes in the place of another, who is a member of group 4242 besides 100:
// of another group, members of 100 get no more than anybody, and its own no more than they had.
TEST_F(FileSecurityTest, NoGroupGetsTheRightsOfAnother) {
  if (geteuid() != 0) GTEST_SKIP() << "takes the superuser to become somebody else";
  const std::string user = "chown 65534:100 new; chmod 600 new; chown 0:";
  const std::pair<std::string, std::string> cases[] = {
      {"4242 old; chmod 660 old", "4242\nuser::rw-\ngroup::rw-\nother::---\n\n"},
      {"4243 old; chmod 664 old", "100\nuser::rw-\ngroup::r--\nother::r--\n\n"},
      {"4243 old; setfacl -n -m u:54321:rw,g:7:rw,g::rw,m::rw,o::r old",
       "100\nuser::rw-\nuser:54321:rw-\ngroup::r--\ngroup:7:rw-\nmask::rw-\nother::r--\n\n"}};
  for (const auto& [commands, acl] : cases) {
    SCOPED_TRACE(commands);
    EXPECT_EQ(OutputOf("rm -f old new; touch old new; " + user + commands), "");
    const FileDescriptor from(open(native("old").c_str(), O_PATH | O_CLOEXEC));
    const FileDescriptor to(open(native("new").c_str(), O_WRONLY | O_CLOEXEC));
    struct stat info {};
    ASSERT_EQ(fstat(from.get(), &info), 0);
    ChildProcess child([&] {
      const gid_t member = 4242;
      const bool is_other = setgroups(1, &member) == 0 && setgid(100) == 0 && setuid(65534) == 0;
      return is_other && CopyRights(from.get(), to.get(), info) ? 0 : 1;
    });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(OutputOf("stat -c %g new; getfacl -cpnE new"), acl);
  }
}

}  // namespace
}  // namespace vk::tq::testing
