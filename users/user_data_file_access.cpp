#include "users/user_data_file_access.h"

#include <utility>

#include "platform/path.h"

namespace vk::tq {
namespace {

using Kind = UserDataFileKind<t_user_file>;

constexpr Kind::Field kFields[] = {
    {L"UserID", &t_user_file::UserID},
    {L"UserAcount", &t_user_file::UserAcount},
    {L"PrintUserNo", &t_user_file::PrintUserNo},
    {L"UserGroupNo", &t_user_file::UserGroupNo},
    {L"LastWindowsLogonDateTime", &t_user_file::LastWindowsLogonDateTime},
    {L"LastRegistUserTickCount", &t_user_file::LastRegistUserTickCount},
};

constexpr Kind kKind = {
    .file_name = L"DATA.XML",
    .fields = kFields,
    .expires = false,
    .constructor = L"CUserDataFileAccess::CUserDataFileAccess",
    .read_all = L"CUserDataFileAccess::ReadAll",
    .write_all = L"CUserDataFileAccess::WriteAll",
    .delete_file = L"CUserDataFileAccess::Delete",
    .keep_seconds = L"ユーザデータ保持期間 %d秒",
    .not_deciphered = L"ユーザ情報の復号化に失敗しました。",
    .not_enciphered = L"ユーザ情報の暗号化に失敗しました。",
    .no_xml = L"ユーザ情報の保存に失敗しました。",
    .write_broke = L"ユーザ情報の保存処理で予期せぬエラーが発生しました。",
    .not_parsed = L"ユーザ情報の読み込みに失敗しました。",
    .read_broke = L"ユーザ情報の読み込み処理で予期せぬエラーが発生しました。",
    .delete_broke = L"ユーザ情報の削除処理で予期せぬエラーが発生しました。",
    .no_path = L"ユーザ情報ファイルへのパスが未設定です。",
    .no_file = L"ユーザ情報ファイルが存在しません。",
};

constexpr FileLock kLock = {
    .name = L"KITORA_QTL_USER_DATA",
    .function = L"CUserDataFileAccess::GetMutex",
    .open_number = 130303,
    .open_text = L"ユーザ情報ファイルへのロックが取得できませんでした。",
    .wait_number = 130304,
    .wait_text = L"ユーザ情報ファイルへのロックが取得できませんでした。",
    .has_code = true,
};

}  // namespace

CUserDataFileAccess::CUserDataFileAccess() : UserDataFile(kKind) { SetUserDataDirectry(); }

void CUserDataFileAccess::SetUserDataDirectry() { SetProductDirectory(kFolderAppData); }

void CUserDataFileAccess::SetDataDirectry(const wchar_t* path) {
  CString directory = path == nullptr ? CString() : InternalPath(path);
  if (!directory.ends_with(L'\\')) directory += L'\\';
  SetDirectory(std::move(directory));
}

HANDLE CUserDataFileAccess::GetMutex(SECURITY_ATTRIBUTES* attributes) {
  return TakeFileLock(kLock, attributes);
}

HANDLE CUserDataFileAccess::GetMutex(SECURITY_ATTRIBUTES* attributes, const wchar_t* name) {
  FileLock lock = kLock;
  lock.name = name == nullptr ? L"" : name;
  return TakeFileLock(lock, attributes);
}

void CUserDataFileAccess::RelMutex(HANDLE mutex) { LockOperations::RelMutex(mutex); }

int CUserDataFileAccess::CreateNullDACL(SECURITY_ATTRIBUTES* attributes) {
  return LockOperations::CreateNullDACL(attributes);
}

int CUserDataFileAccess::DestroyNullDACL(SECURITY_ATTRIBUTES* attributes) {
  return LockOperations::DestroyNullDACL(attributes);
}

int CUserDataFileAccess::RunUnderLock(const ExceptionLine& line, const Work& work,
                                      int source_line) {
  return RunLocked([](SECURITY_ATTRIBUTES* everybody) { return GetMutex(everybody); }, 0, line,
                   work, source_line);
}

}  // namespace vk::tq
