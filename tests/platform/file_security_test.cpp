#include "platform/file_security.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/error.h"
#include "support/test_support.h"

namespace vk::tq {
namespace {

using testing::ChildProcess;
using testing::TempFolder;

constexpr uid_t kStranger = 54321;  // nobody's user number

// What a command prints.
std::string OutputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
  std::string output;
  std::array<char, 256> piece;
  while (fgets(piece.data(), piece.size(), pipe.get()) != nullptr) output += piece.data();
  return output;
}

// The entries as getfacl shows them, one in a line, numbers for names.
std::string Acl(const std::string& native) { return OutputOf("getfacl -cpnE " + native); }

AccountId Group(const std::wstring& name) {
  AccountId account;
  EXPECT_EQ(LookUpAccount(name, account), SecurityStep::kNone);
  return account;
}

std::string GroupNumber(const char* name) { return std::to_string(getgrnam(name)->gr_gid); }

// Lists with one entry, or the entries that are there and one more.
void Grant(const std::wstring& path, const AccountId& account, std::uint8_t flags) {
  AccessList list;
  ASSERT_EQ(ReadAccessList(path, list), SecurityStep::kNone);
  list.entries.push_back({account, kGenericAll, flags});
  ASSERT_EQ(WriteAccessList(path, list), SecurityStep::kNone) << GetLastError();
}

class FileSecurityTest : public ::testing::Test {
 protected:
  FileSecurityTest() { chmod(temp_.native().c_str(), 0755); }

  // A new file or folder with a mode.
  std::string MakeFile(mode_t mode) {
    const std::string native = temp_.native("file");
    close(open(native.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
    chmod(native.c_str(), mode);
    return native;
  }
  std::string MakeFolder(mode_t mode) {
    const std::string native = temp_.native("folder");
    mkdir(native.c_str(), 0700);
    chmod(native.c_str(), mode);
    return native;
  }

  TempFolder temp_;
};

TEST_F(FileSecurityTest, LooksUpGroupsBeforeUsers) {
  AccountId group;
  EXPECT_EQ(LookUpAccount(L"users", group), SecurityStep::kNone);
  AccountId user;
  EXPECT_EQ(LookUpAccount(L"root", user), SecurityStep::kNone);  // a group as well
  EXPECT_NE(group, user);
  EXPECT_EQ(LookUpAccount(L"nobody", user), SecurityStep::kNone);  // a user only
  for (const std::wstring& name : {std::wstring(L"power users"), std::wstring(L"だれか"),
                                   std::wstring(), std::wstring(L"users\0x", 7)}) {
    SetLastError(0);
    EXPECT_EQ(LookUpAccount(name, group), SecurityStep::kLookUpAccount);
    EXPECT_EQ(GetLastError(), kErrorNoneMapped);
  }
}

TEST_F(FileSecurityTest, AFileGetsAnEntryAndKeepsItsMode) {
  const std::string file = MakeFile(0640);
  Grant(temp_.path(L"file"), Group(L"users"), 0);
  const std::string users = GroupNumber("users");
  EXPECT_EQ(Acl(file), "user::rw-\ngroup::r--\ngroup:" + users + ":rw-\nmask::rw-\nother::---\n\n");

  // Without the entry the file is as it was.
  EXPECT_EQ(WriteAccessList(temp_.path(L"file"), {}), SecurityStep::kNone);
  EXPECT_EQ(Acl(file), "user::rw-\ngroup::r--\nother::---\n\n");
}

TEST_F(FileSecurityTest, AProgramCanBeExecuted) {
  const std::string file = MakeFile(0700);
  Grant(temp_.path(L"file"), Group(L"users"), 0);
  EXPECT_EQ(Acl(file), "user::rwx\ngroup::---\ngroup:" + GroupNumber("users") +
                           ":rwx\nmask::rwx\nother::---\n\n");
}

TEST_F(FileSecurityTest, AFolderHandsInheritableEntriesOn) {
  const std::string folder = MakeFolder(0750);
  Grant(temp_.path(L"folder"), Group(L"users"), kObjectInherit | kContainerInherit);
  const std::string users = GroupNumber("users");
  EXPECT_EQ(Acl(folder), "user::rwx\ngroup::r-x\ngroup:" + users +
                             ":rwx\nmask::rwx\nother::---\n"
                             "default:user::rwx\ndefault:group::r-x\ndefault:group:" +
                             users + ":rwx\ndefault:mask::rwx\ndefault:other::---\n\n");
  close(open((folder + "/new").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
  EXPECT_THAT(OutputOf("getfacl -cpn " + folder + "/new"),
              ::testing::HasSubstr("group:" + users + ":rwx\t#effective:rw-"));
}

// A mask that grows for a new entry must not widen what it held back before.
TEST_F(FileSecurityTest, NobodyElseGainsByANewEntry) {
  const std::string file = MakeFile(0600);
  ASSERT_EQ(OutputOf("setfacl -n -m u:54321:rw,g::rw,m::r " + file), "");
  AccessList before;
  ASSERT_EQ(ReadAccessList(temp_.path(L"file"), before), SecurityStep::kNone);
  Grant(temp_.path(L"file"), Group(L"users"), 0);
  EXPECT_EQ(Acl(file), "user::rw-\nuser:54321:r--\ngroup::r--\ngroup:" + GroupNumber("users") +
                           ":rw-\nmask::rw-\nother::---\n\n");
  EXPECT_EQ(WriteAccessList(temp_.path(L"file"), before), SecurityStep::kNone);
  EXPECT_EQ(Acl(file), "user::rw-\nuser:54321:r--\ngroup::r--\nmask::r--\nother::---\n\n");
}

// What is read and written back changes nothing, also where the two ACLs of a folder differ.
TEST_F(FileSecurityTest, ReadAndWrittenBackAListStaysAsItIs) {
  const std::string folder = MakeFolder(0750);
  ASSERT_EQ(OutputOf("setfacl -m u:1:r,g:2:rx,d:u:1:rx,d:g:2:rx,d:u:3:w " + folder), "");
  const std::string acl = Acl(folder);
  AccessList list;
  ASSERT_EQ(ReadAccessList(temp_.path(L"folder"), list), SecurityStep::kNone);
  EXPECT_EQ(list.entries.size(), 4U);
  ASSERT_EQ(WriteAccessList(temp_.path(L"folder"), list), SecurityStep::kNone);
  EXPECT_EQ(Acl(folder), acl);
}

TEST_F(FileSecurityTest, WhatAnAclCannotSayIsRefused) {
  const std::string file = MakeFile(0600);
  const AccountId users = Group(L"users");
  const struct {
    AccessEntry entry;
    ErrorCode error;
  } cases[] = {
      {{users, kGenericAll, 0, false}, kErrorNotSupported},
      {{{{1, 2, 3}}, kGenericAll, 0, true}, kErrorInvalidParameter},
      {{{std::vector<unsigned char>(users.bytes.size(), 'x')}, kGenericAll, 0, true},
       kErrorInvalidParameter},
  };
  for (const auto& one : cases) {
    AccessList list;
    list.entries = {one.entry};
    EXPECT_EQ(WriteAccessList(temp_.path(L"file"), list), SecurityStep::kAddEntry);
    EXPECT_EQ(GetLastError(), one.error);
  }
  EXPECT_EQ(Acl(file), "user::rw-\ngroup::---\nother::---\n\n");
}

TEST_F(FileSecurityTest, MissingObjectsAndLinksFail) {
  AccessList list;
  EXPECT_EQ(ReadAccessList(temp_.path(L"none"), list), SecurityStep::kQuerySize);
  EXPECT_EQ(GetLastError(), kErrorFileNotFound);
  EXPECT_EQ(WriteAccessList(temp_.path(L"none"), list), SecurityStep::kWriteDescriptor);

  const std::string file = MakeFile(0600);
  ASSERT_EQ(symlink(file.c_str(), temp_.native("link").c_str()), 0);
  list.entries = {{Group(L"users"), kGenericAll}};
  EXPECT_EQ(ReadAccessList(temp_.path(L"link"), list), SecurityStep::kQuerySize);
  EXPECT_EQ(GetLastError(), kErrorAccessDenied);
  EXPECT_EQ(WriteAccessList(temp_.path(L"link"), list), SecurityStep::kWriteDescriptor);
  EXPECT_EQ(Acl(file), "user::rw-\ngroup::---\nother::---\n\n");
}

TEST_F(FileSecurityTest, AFileSystemWithoutAclsIsNotSupported) {
  AccessList list;
  ASSERT_EQ(ReadAccessList(L"\\proc\\self\\status", list), SecurityStep::kNone);
  list.entries = {{Group(L"users"), kGenericAll}};
  EXPECT_EQ(WriteAccessList(L"\\proc\\self\\status", list), SecurityStep::kWriteDescriptor);
  EXPECT_EQ(GetLastError(), kErrorNotSupported);
}

// Runs a function as a user who is in one group only.
int AsStranger(gid_t group, const std::function<int()>& work) {
  return ChildProcess([&] {
           const bool is_dropped = setgroups(1, &group) == 0 &&
                                   setresgid(group, group, group) == 0 &&
                                   setresuid(kStranger, kStranger, kStranger) == 0;
           return is_dropped ? work() : 98;
         })
      .Wait();
}

TEST_F(FileSecurityTest, TheGroupReallyGetsIn) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  const gid_t users = getgrnam("users")->gr_gid;
  const std::string file = MakeFile(0600);
  const auto open_it = [&] {
    const int descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC);
    return descriptor >= 0 ? 0 : errno;
  };
  EXPECT_EQ(AsStranger(users, open_it), EACCES);
  Grant(temp_.path(L"file"), Group(L"users"), 0);
  EXPECT_EQ(AsStranger(users, open_it), 0);
  EXPECT_EQ(AsStranger(kStranger, open_it), EACCES);

  // Only the owner writes the list.
  EXPECT_EQ(AsStranger(users,
                       [&] {
                         const SecurityStep step = WriteAccessList(temp_.path(L"file"), {});
                         return step == SecurityStep::kWriteDescriptor ? int(GetLastError()) : 99;
                       }),
            int(kErrorAccessDenied));
}

}  // namespace
}  // namespace vk::tq
