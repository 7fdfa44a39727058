// The list of allowed users. Input: a mode (0 plain, 1 enciphered), two lines (job user, current
// user), the list.
#include <fcntl.h>
#include <sys/stat.h>

#include <vector>

#include "fuzz/support.h"
#include "platform/profile.h"
#include "storage/crypto.h"
#include "users/enable_users_accessor.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

// Makes the list one that was written long ago, and at another time than all before: it is read
// anew, and at once.
void Age(const std::string& native) {
  static std::time_t stamp = 1'000'000;
  const timespec times[] = {{++stamp, 0}, {stamp, 0}};
  Require(utimensat(AT_FDCWD, native.c_str(), times, 0) == 0, "a time can be set");
}

void WriteList(const Sandbox& sandbox, bool is_enciphered, std::string_view bytes) {
  const std::string plain = sandbox.Native("EnableUsers.ini");
  const std::string enciphered = sandbox.Native("EnableUsers.dat");
  sandbox.Write(plain, bytes);
  std::filesystem::remove(enciphered);
  if (is_enciphered) {
    CCrypto().CryptFileMake(PathFromNative(plain), PathFromNative(enciphered));
  }
  Age(is_enciphered ? enciphered : plain);
}

// Each entry of a sectioned list is found, whatever the case of its name.
void CheckEntries(const CEnableUsersAccessor& users, std::string_view bytes,
                  const CString& current_user) {
  const std::optional<std::wstring> text = DecodeProfile(bytes);
  const Profile profile = Profile::FromText(text->substr(0, text->find(L'\0')));
  constexpr std::size_t kRoom = 1024;
  std::vector<std::wstring> names = profile.KeyNames(L"ChangeUsers", kRoom);
  if (!names.empty()) names.pop_back();  // the end of the room may have cut it
  for (const CString& name : names) {
    CString account = profile.GetString(L"ChangeUsers", name, L"", kRoom);
    if (account.empty()) account = current_user;
    CString found;
    Require(users.GetTQLoginAccount(name, current_user, found) == 1 && found == account,
            "an entry is found");
    Require(users.GetTQLoginAccount(ToUpper(name), current_user, found) == 1 && found == account,
            "an entry is found in upper case");
  }
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  const Sandbox& sandbox = TheSandbox();
  const bool is_enciphered = input.Mode() == 1;
  const CString job_user = Wide(input.Line());
  const CString current_user = Wide(input.Line());
  WriteList(sandbox, is_enciphered, input.Rest());

  const CEnableUsersAccessor& users = *CEnableUsersAccessor::GetInstance(sandbox.Path(""));
  CString account;
  const int type = users.GetEnableUserType(job_user, current_user, account);
  Require(type >= 0 && type <= 3, "the type is one");
  Require(type != 0 || account.empty(), "who is in no list has no account");
  CString upper;
  Require(users.GetEnableUserType(ToUpper(job_user), current_user, upper) == type,
          "names are told apart without regard to case");
  if (is_enciphered) CheckEntries(users, input.Rest(), current_user);
}
