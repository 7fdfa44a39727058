#include "users/user_data_file.h"

#include <stdexcept>
#include <utility>

#include "foundation/product_folder.h"
#include "foundation/util.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/profile.h"
#include "platform/secure_memory.h"
#include "platform/text.h"
#include "storage/crypto.h"
#include "storage/xml.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"

namespace vk::tq {
namespace {

constexpr int kDefaultKeepSeconds = 10;

CXml RecordXml() { return CXml(L"Velkorandia", L"UserData"); }

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
  const auto status = GetFileStatus(m_strFilePath);
  if (!status) return 0;
  if (!has_to_be_fresh) return 1;
  return CurrentClock().Now() - status->last_write().GetTime() <= m_nKeepSeconds ? 1 : 0;
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
  return RunLocked([this](SECURITY_ATTRIBUTES* attributes) { return TakeLock(attributes); }, 0,
                   {5, 130308, kind_.read_all, kind_.read_broke},
                   [this](int& result) { ReadRecord(result); });
}

template <class Record>
int UserDataFile<Record>::WriteAll() {
  return RunLocked([this](SECURITY_ATTRIBUTES* attributes) { return TakeLock(attributes); }, 0,
                   {5, 130306, kind_.write_all, kind_.write_broke},
                   [this](int& result) { WriteRecord(result); });
}

template <class Record>
int UserDataFile<Record>::Delete() {
  if (IsThere(kind_.expires) == 0) return 1;
  return RunLocked([this](SECURITY_ATTRIBUTES* attributes) { return TakeLock(attributes); }, 0,
                   {4, 130309, kind_.delete_file, kind_.delete_broke},
                   [this](int& result) { RemoveRecord(result); });
}

template <class Record>
void UserDataFile<Record>::ReadRecord(int& result) {
  CString xml;
  const WipeOnExit wipe(xml);
  if (CCrypto().CryptingStringReader(m_strFilePath, xml) != 0) {
    LogFailure(130301, kind_.read_all, __LINE__, kind_.not_deciphered);
    return;
  }
  CStringArray names;
  for (const auto& field : kind_.fields) names.Add(field.element);
  CMapStringToString values;
  const WipeTextsOnExit wipe_values(values);
  if (RecordXml().SelectXMLStringValue(xml, names, values) != 0) {
    LogFailure(130307, kind_.read_all, __LINE__, kind_.not_parsed);
    return;
  }
  Record record;
  for (const auto& field : kind_.fields) values.Lookup(field.element, record.*field.member);
  m_userData = std::move(record);
  result = 1;
}

template <class Record>
void UserDataFile<Record>::WriteRecord(int& result) const {
  if (!MakeDirectory()) return;
  CStringArray names;
  CStringArray values;
  const WipeTextsOnExit wipe_values(values);
  for (const auto& field : kind_.fields) {
    names.Add(field.element);
    values.Add(m_userData.*field.member);
  }
  CString xml = RecordXml().CreateXmlString01(names, values);
  const WipeOnExit wipe(xml);
  if (xml.empty()) {
    LogFailure(130305, kind_.write_all, __LINE__, kind_.no_xml);
    return;
  }
  CCrypto crypto;
  if (crypto.CryptingStringWriter(xml, m_strFilePath) != 0) {
    Log4cxxMgr::LogOutDetail(5, 130302, kind_.write_all, __LINE__, kind_.not_enciphered,
                             Format(L"%d", crypto.m_nLastError));
    return;
  }
  result = 1;
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
