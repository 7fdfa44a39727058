#include "users/user_data_file.h"

#include <new>
#include <stdexcept>
#include <utility>

#include "foundation/product_folder.h"
#include "foundation/util.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/profile.h"
#include "platform/text.h"
#include "storage/stored_record.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"

namespace vk::tq {
namespace {

constexpr int kDefaultKeepSeconds = 10;

constexpr const wchar_t* kRecordName = L"UserData";

int ReadKeepSeconds() {
  const Profile client(ProductPath(L"\\config\\Client.ini"));
  return client.GetInt(L"Setting", L"SharedTimeout", kDefaultKeepSeconds);
}

void LogFailure(int number, const wchar_t* function, int line, const wchar_t* text) {
  Log4cxxMgr::LogOutDetail(5, number, function, line, text);
}

}  // namespace

template <class Record>
UserDataFile<Record>::UserDataFile(const UserDataFileKind<Record>& kind)
    : m_nKeepSeconds(ReadKeepSeconds()), kind_(kind) {
  if (Log4cxxMgr::IsKept(2)) {
    Log4cxxMgr::LogOutDetail(2, 0, kind_.constructor, __LINE__,
                             Format(kind_.keep_seconds, m_nKeepSeconds));
  }
}

template <class Record>
int UserDataFile<Record>::IsThere(bool has_to_be_fresh) const {
  return Presence(has_to_be_fresh).value_or(false) ? 1 : 0;
}

template <class Record>
std::optional<bool> UserDataFile<Record>::Presence(bool has_to_be_fresh) const try {
  const auto status = GetFileStatus(m_strFilePath);
  if (!status) return IsPassing(GetLastError()) ? std::nullopt : std::optional(false);
  if (!has_to_be_fresh) return true;
  return CurrentClock().Now() - status->last_write().GetTime() <= m_nKeepSeconds;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

template <class Record>
int UserDataFile<Record>::ReadAll() {
  if (m_strFilePath.empty()) {
    LogFailure(130310, kind_.read_all, __LINE__, kind_.no_path);
    return 0;
  }
  if (IsThere(kind_.expires) == 0) {
    LogFailure(130311, kind_.read_all, __LINE__, kind_.no_file);
    return 0;
  }
  return RunUnderLock({5, 130308, kind_.read_all, kind_.read_broke},
                      [this](int& result) { ReadRecord(result); });
}

template <class Record>
int UserDataFile<Record>::WriteAll() {
  return RunUnderLock({5, 130306, kind_.write_all, kind_.write_broke},
                      [this](int& result) { WriteRecord(result); });
}

template <class Record>
int UserDataFile<Record>::Delete() {
  if (Presence(kind_.expires) == false) return 1;
  return RunUnderLock({4, 130309, kind_.delete_file, kind_.delete_broke},
                      [this](int& result) { RemoveRecord(result); });
}

template <class Record>
void UserDataFile<Record>::ReadRecord(int& result) {
  StoredRecord stored(kRecordName);
  for (const auto& field : kind_.fields) stored.Add(field.element);
  switch (stored.Read(m_strFilePath)) {
    case StoredRecord::Result::kFileFailure:
      return LogFailure(130301, kind_.read_all, __LINE__, kind_.not_deciphered);
    case StoredRecord::Result::kNoXml:
      return LogFailure(130307, kind_.read_all, __LINE__, kind_.not_parsed);
    case StoredRecord::Result::kDone:
      break;
  }
  Record record;
  for (const auto& field : kind_.fields) {
    if (const CString* text = stored.Find(field.element)) record.*field.member = *text;
  }
  m_userData = std::move(record);
  result = 1;
}

template <class Record>
void UserDataFile<Record>::WriteRecord(int& result) const {
  if (!MakeDirectory()) return;
  StoredRecord stored(kRecordName);
  for (const auto& field : kind_.fields) stored.Add(field.element, m_userData.*field.member);
  switch (stored.Write(m_strFilePath)) {
    case StoredRecord::Result::kNoXml:
      return LogFailure(130305, kind_.write_all, __LINE__, kind_.no_xml);
    case StoredRecord::Result::kFileFailure:
      return Log4cxxMgr::LogOutDetail(5, 130302, kind_.write_all, __LINE__, kind_.not_enciphered,
                                      Format(L"%d", stored.last_errno()));
    case StoredRecord::Result::kDone:
      result = 1;
  }
}

template <class Record>
void UserDataFile<Record>::RemoveRecord(int& result) const {
  if (!RemoveFile(m_strFilePath)) throw std::runtime_error("the file cannot be removed");
  result = 1;
}

template <class Record>
bool UserDataFile<Record>::MakeDirectory() const {
  if (GetFileStatus(m_strDataDir) || CreateFolders(m_strDataDir)) return true;
  const ErrorCode error = GetLastError();
  return error == kErrorFileExists || error == kErrorAlreadyExists;
}

template <class Record>
void UserDataFile<Record>::SetServiceDataDirectry() {
  SetProductDirectory(kFolderCommonAppData);
}

template <class Record>
void UserDataFile<Record>::SetProductDirectory(int special_folder) {
  SetDirectory(CUtil::GetSpecialFolderPath(special_folder) + kProductFolder + L"\\data\\");
}

template <class Record>
void UserDataFile<Record>::SetDirectory(CString directory) {
  m_strDataDir = std::move(directory);
  m_strFilePath = m_strDataDir + kind_.file_name;
}

template class UserDataFile<t_user_file>;
template class UserDataFile<t_shared_user_file>;

}  // namespace vk::tq
