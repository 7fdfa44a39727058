#include "users/shared_user_data_file_access.h"

namespace vk::tq {
namespace {

using Kind = UserDataFileKind<t_shared_user_file>;

constexpr Kind::Field kFields[] = {
    {L"UserID", &t_shared_user_file::UserID},
    {L"UserAcount", &t_shared_user_file::UserAcount},
    {L"PrintUserNo", &t_shared_user_file::PrintUserNo},
    {L"UserGroupNo", &t_shared_user_file::UserGroupNo},
};

constexpr Kind kKind = {
    .file_name = L"Shared.XML",
    .fields = kFields,
    .expires = true,
    .constructor = L"CSharedUserDataFileAccess::CSharedUserDataFileAccess",
    .read_all = L"CSharedUserDataFileAccess::ReadAll",
    .write_all = L"CSharedUserDataFileAccess::WriteAll",
    .delete_file = L"CSharedUserDataFileAccess::Delete",
    .keep_seconds = L"共有PCユーザデータ保持期間 %d秒",
    .not_deciphered = L"共有PCユーザ情報の復号化に失敗しました。",
    .not_enciphered = L"共有PCユーザ情報の暗号化に失敗しました。",
    .no_xml = L"共有PCユーザ情報の保存に失敗しました。",
    .write_broke = L"共有PCユーザ情報の保存処理で予期せぬエラーが発生しました。",
    .not_parsed = L"共有PCユーザ情報の読み込みに失敗しました。",
    .read_broke = L"共有PCユーザ情報の読み込み処理で予期せぬエラーが発生しました。",
    .delete_broke = L"共有PCユーザ情報の削除処理で予期せぬエラーが発生しました。",
    .no_path = L"共有PCユーザ情報ファイルへのパスが未設定です。",
    .no_file = L"共有PCユーザ情報ファイルが存在しません。",
};

constexpr FileLock kLock = {
    .name = L"KITORA_QTL_SHARED_USER_DATA",
    .function = L"CSharedUserDataFileAccess::GetMutex",
    .open_number = 130303,
    .open_text = L"共有PCユーザ情報ファイルへのロックが取得できませんでした。",
    .wait_number = 130304,
    .wait_text = L"共有PCユーザ情報ファイルへのロックが取得できませんでした。",
    .has_code = true,
};

}  // namespace

CSharedUserDataFileAccess::CSharedUserDataFileAccess() : UserDataFile(kKind) {
  SetServiceDataDirectry();
}

HANDLE CSharedUserDataFileAccess::GetMutex() { return TakeFileLock(kLock, nullptr); }

int CSharedUserDataFileAccess::RunUnderLock(const ExceptionLine& line, const Work& work,
                                            int source_line) {
  return RunLocked([this] { return GetMutex(); }, 0, line, work, source_line);
}

}  // namespace vk::tq
