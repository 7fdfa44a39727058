// tqctl user: who the user of this PC is.
#include "tqctl/assignment.h"
#include "tqctl/command.h"
#include "tqctl/held_lock.h"
#include "tqctl/key_file.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"

namespace tqctl {
namespace {

using vk::tq::CSharedUserDataFileAccess;
using vk::tq::CUserDataFileAccess;

struct UserOptions {
  bool is_shared = false;
  bool is_service = false;
  std::vector<std::wstring> fields;
};

void DeclareUser(CLI::App& command, UserOptions& options) {
  auto* const shared =
      command.add_flag("--shared", options.is_shared, "The user of a PC that several users share");
  command.add_flag("--service", options.is_service, "The data that the service reads")
      ->excludes(shared);
}

template <class Record>
struct Field {
  const wchar_t* name;
  std::wstring Record::*member;
};

// One kind of user data: its record's fields, its lock, and what people call it.
template <class Access>
struct Kind;

template <>
struct Kind<CUserDataFileAccess> {
  using R = vk::tq::t_user_file;
  static constexpr const wchar_t* kName = L"user data";
  static constexpr const wchar_t* kLock = L"KITORA_QTL_USER_DATA";
  static constexpr Field<R> kFields[] = {
      {L"UserID", &R::UserID},
      {L"UserAcount", &R::UserAcount},
      {L"PrintUserNo", &R::PrintUserNo},
      {L"UserGroupNo", &R::UserGroupNo},
      {L"LastWindowsLogonDateTime", &R::LastWindowsLogonDateTime},
      {L"LastRegistUserTickCount", &R::LastRegistUserTickCount},
  };
};

template <>
struct Kind<CSharedUserDataFileAccess> {
  using R = vk::tq::t_shared_user_file;
  static constexpr const wchar_t* kName = L"fresh data of a shared PC's user";
  static constexpr const wchar_t* kLock = L"KITORA_QTL_SHARED_USER_DATA";
  static constexpr Field<R> kFields[] = {
      {L"UserID", &R::UserID},
      {L"UserAcount", &R::UserAcount},
      {L"PrintUserNo", &R::PrintUserNo},
      {L"UserGroupNo", &R::UserGroupNo},
  };
};

Failure Refused(const wchar_t* what) {
  return {std::wstring(L"The ") + what,
          L"Look at the rights of the file, and at the key file with \"tqctl crypt check\"."};
}

template <class Access>
void RequireData(Access& access) {
  if (access.IsExist() == 1) return;
  throw Failure(std::wstring(L"There is no ") + Kind<Access>::kName + L".",
                L"\"tqctl user set\" makes it.");
}

template <class Access>
void Show(Context& context, Access& access) {
  RequireData(access);
  if (access.ReadAll() != 1) throw Refused(L"user data cannot be read.");
  Fields shown;
  for (const auto& field : Kind<Access>::kFields) {
    shown.emplace_back(field.name, access.GetUserFileData().*field.member);
  }
  context.out.Show(shown);
}

// The fields that are not named stay as they are.
template <class Access>
void Set(Context& context, Access& access, const std::vector<std::wstring>& fields) {
  const HeldLock lock(Kind<Access>::kLock);
  if (access.IsExist() == 1 && access.ReadAll() != 1) throw Refused(L"user data cannot be read.");
  RequireKeyForWriting();
  AssignAll(access.GetUserFileData(), fields, [](auto& record, const auto& visit) {
    for (const auto& field : Kind<Access>::kFields) visit(field.name, record.*field.member);
  });
  if (access.WriteAll() != 1) throw Refused(L"user data cannot be written.");
  context.out.Done(L"The user data is written.", {{L"written", true}});
}

template <class Access>
void Delete(Context& context, Access& access) {
  RequireData(access);
  if (access.Delete() != 1) throw Refused(L"user data cannot be deleted.");
  context.out.Done(L"The user data is deleted.", {{L"deleted", true}});
}

// Hands on the kind of data that the options name.
template <class Work>
void WithAccess(const UserOptions& options, const Work& work) {
  if (options.is_shared) {
    CSharedUserDataFileAccess access;
    return work(access);
  }
  CUserDataFileAccess access;
  if (options.is_service) access.SetServiceDataDirectry();
  work(access);
}

void DeclareSet(CLI::App& command, UserOptions& options) {
  DeclareUser(command, options);
  AddTexts(command, "--field", options.fields, "A field, as name=value; may be repeated")
      ->required();
}

void ShowUser(Context& context, const UserOptions& options) {
  WithAccess(options, [&](auto& access) { Show(context, access); });
}

void SetUser(Context& context, const UserOptions& options) {
  WithAccess(options, [&](auto& access) { Set(context, access, options.fields); });
}

void DeleteUser(Context& context, const UserOptions& options) {
  WithAccess(options, [&](auto& access) { Delete(context, access); });
}

}  // namespace

void AddUser(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "user", "Who the user of this PC is");
  AddCommand(noun, context, "show", "The user's data", DeclareUser, ShowUser);
  AddCommand(noun, context, "set", "Change fields of the user's data", DeclareSet, SetUser);
  AddCommand(noun, context, "delete", "Delete the user's data", DeclareUser, DeleteUser);
}

}  // namespace tqctl
