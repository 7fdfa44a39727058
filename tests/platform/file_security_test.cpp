#include "platform/file_security.h"

#include <grp.h>

#include <cstdio>

#include "platform/error.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

class FileSecurityTest : public ::testing::Test {
 protected:
  // What a command prints that runs in the folder of the test.
  std::string OutputOf(const std::string& command) const {
    const std::string line = "cd " + temp_.native() + " && " + command;
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(line.c_str(), "r"), &pclose);
    std::string output;
    for (int c = fgetc(pipe.get()); c != EOF; c = fgetc(pipe.get())) output += static_cast<char>(c);
    return output;
  }
  // The entries, one in a line, numbers for names.
  std::string Acl(const std::string& name) const { return OutputOf("getfacl -cpnE " + name); }

  TempFolder temp_;
};

// A mask that grows for a new entry must not widen what it held back before.
TEST_F(FileSecurityTest, NobodyElseGainsByANewEntry) {
  const std::string users = "group:" + std::to_string(getgrnam("users")->gr_gid);
  const std::tuple<std::string, const wchar_t*, std::string> cases[] = {
      {"chmod 640 file", L"users",
       "user::rw-\ngroup::r--\n" + users + ":rw-\nmask::rw-\nother::---\n\n"},
      {"chmod 640 file", L"nobody",  // a user, since no group has the name
       "user::rw-\nuser:65534:rw-\ngroup::r--\nmask::rw-\nother::---\n\n"},
      {"chmod 600 file; setfacl -n -m u:54321:rw,g::rw,m::r file", L"users",
       "user::rw-\nuser:54321:r--\ngroup::r--\n" + users + ":rw-\nmask::rw-\nother::---\n\n"}};
  WriteNative(temp_.native("file"), "");
  for (const auto& [prepare, name, acl] : cases) {
    SCOPED_TRACE(acl);
    EXPECT_EQ(OutputOf(prepare), "");
    AccountId account;
    AccessList list;
    ASSERT_EQ(LookUpAccount(name, account), SecurityStep::kNone);
    ASSERT_EQ(ReadAccessList(temp_.path(L"file"), list), SecurityStep::kNone);
    list.entries.push_back({account, kGenericAll});
    ASSERT_EQ(WriteAccessList(temp_.path(L"file"), list), SecurityStep::kNone) << GetLastError();
    EXPECT_EQ(Acl("file"), acl);
    EXPECT_EQ(WriteAccessList(temp_.path(L"file"), {}), SecurityStep::kNone);
    EXPECT_EQ(Acl("file"), "user::rw-\ngroup::r--\nother::---\n\n") << "without an entry";
  }
}

// What is read and written back changes nothing, also where the two ACLs of a folder differ.
TEST_F(FileSecurityTest, ReadAndWrittenBackAListStaysAsItIs) {
  EXPECT_EQ(OutputOf("mkdir f && setfacl -m u:1:r,g:2:rx,d:u:1:rx,d:g:2:rx,d:u:3:w f"), "");
  const std::string acl = Acl("f");
  AccessList list;
  ASSERT_EQ(ReadAccessList(temp_.path(L"f"), list), SecurityStep::kNone);
  EXPECT_EQ(list.entries.size(), 4U);
  ASSERT_EQ(WriteAccessList(temp_.path(L"f"), list), SecurityStep::kNone);
  EXPECT_EQ(Acl("f"), acl);
}

TEST_F(FileSecurityTest, MissingObjectsAndLinksFail) {
  EXPECT_EQ(OutputOf("touch file && chmod 640 file && ln -s file link"), "");
  AccessList list;
  for (const auto& [name, error] :
       {std::pair(L"none", kErrorFileNotFound), std::pair(L"link", kErrorAccessDenied)}) {
    EXPECT_EQ(ReadAccessList(temp_.path(name), list), SecurityStep::kQuerySize);
    EXPECT_EQ(GetLastError(), error);
    EXPECT_EQ(WriteAccessList(temp_.path(name), list), SecurityStep::kWriteDescriptor);
    EXPECT_EQ(GetLastError(), error);
  }
}

}  // namespace
}  // namespace vk::tq::testing
