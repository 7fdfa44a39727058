#include "kills/stores.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <set>

#include "foundation/file_lock.h"
#include "foundation/product_folder.h"
#include "jobs/manage_file_access.h"
#include "jobs/nemi_print_info_file_access.h"
#include "platform/path.h"
#include "platform/profile.h"
#include "platform/text.h"
#include "settings/client_setting.h"
#include "users/shared_user_data_file_access.h"
#include "users/user_data_file_access.h"
#include "users/white_list_file_access.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t kJobLock[] = L"Global\\KITORA_QTL_JOB_MANAGE";
constexpr wchar_t kInfoLock[] = L"KITORA_QTL_JOB_INFO_NEMI";
// The second file has several memory pages, which the kernel does not write as one.
constexpr int kOtherClientKeys = 60, kOtherConfigKeys = 600;
constexpr int kPlainText = 250, kLongJob = 20'000, kLongInfo = 300'000;

// The native folders; ProductTest makes them anew for each test.
std::string jobs_folder, second_folder;

// A caller's lock for a scope.
using Lock = std::unique_ptr<void, HANDLE (*)(HANDLE)>;

std::wstring InFolder(const std::string& folder, std::wstring_view name, int place) {
  return PathFromNative(folder) + L"\\" + std::wstring(name) + std::to_wstring(place);
}

CString Number(int version) { return std::to_wstring(version); }

// A long text: its number, and a tail that differs from the last one in length and each character.
CString Text(int version, int most = kPlainText) {
  const int length = version * 97 % most;
  return Number(version) + L":" +
         CString(static_cast<std::size_t>(length), static_cast<wchar_t>(L'あ' + version % 50));
}

// The version whose number and text these are.
int VersionOf(const CString& number, const CString& text, int most = kPlainText) {
  const int version = ParseInt(number);
  return number == Number(version) && text == Text(version, most) ? version : kTorn;
}

// ---- A job ----

int StatusOf(int version) {
  return std::array{2, 97, 5, 96, 1, 999, 95}[static_cast<std::size_t>(version) % 7];
}

MANAGE_FILE JobRecord(int version, int most) {
  MANAGE_FILE record;
  record.userid = Number(version);
  record.comment = Text(version, most);
  record.ManageStatus = StatusOf(version);
  return record;
}

template <int kMost>
bool WriteJob(int place, int version) {
  CManageFileAccess job(InFolder(jobs_folder, L"J", place).c_str());
  job.SetManageData(JobRecord(version, kMost));
  return job.WriteAll() == 1;
}

// Two names of one file are what a kill leaves where a rename takes two steps.
bool HasOneNumber(int place) {
  const Lock lock(GetManageFileMutex(kJobLock), ReleaseManageFileMutex);
  std::set<ino_t> files;
  for (const std::string& name : ListNative(jobs_folder)) {
    if (!name.starts_with("J" + std::to_string(place) + ".") || name.ends_with(".dat")) continue;
    struct stat info {};
    if (stat((jobs_folder + "/" + name).c_str(), &info) == 0) files.insert(info.st_ino);
  }
  return files.size() == 1;
}

// A status follows its information, and may be that of the version before.
template <int kMost>
int ReadJob(int place) {
  CManageFileAccess job(InFolder(jobs_folder, L"J", place).c_str());
  if (job.ReadAll() != 1) return kNotRead;
  const MANAGE_FILE& record = job.GetManageData();
  const int version = VersionOf(record.userid, record.comment, kMost);
  const int status = record.ManageStatus;
  return status == StatusOf(version) || status == StatusOf(version - 1) ? version : kTorn;
}

template <int (*kRead)(int)>
int ReadJobAlone(int place) {
  const int version = kRead(place);
  return version == kNotRead || HasOneNumber(place) ? version : kTorn;
}

// The status is the version modulo 1000, so a process remembers the newest that it has seen.
int newest_status = 0;

bool WriteJobStatus(int place, int version) {
  newest_status = version;
  CManageFileAccess job(InFolder(jobs_folder, L"J", place).c_str());
  if (version == 1) {
    job.GetManageData().ManageStatus = 97;
    if (job.WriteAll() != 1) return false;
  }
  job.GetManageData().ManageStatus = version % 1000;
  return job.WriteStatus() == 1;
}

int ReadJobStatus(int place) {
  CManageFileAccess job(InFolder(jobs_folder, L"J", place).c_str());
  if (job.ReadStatus() != 1) return kNotRead;
  newest_status += (job.GetManageData().ManageStatus - newest_status % 1000 + 1000) % 1000;
  return newest_status;
}

// The status that stands in the status file: the extension is 099 throughout.
bool WriteStatusFile(int place, int version) {
  CManageFileAccess job(InFolder(jobs_folder, L"J", place).c_str());
  job.SetManageData(JobRecord(version, kPlainText));
  job.GetManageData().ManageStatus = 95 + version % 4;
  job.GetManageData().ErrorMessage = Text(version);
  return job.WriteAll(1) == 1;
}

int ReadStatusFile(int place) {
  const std::wstring base = InFolder(jobs_folder, L"J", place);
  CManageFileAccess job(base.c_str());
  if (job.ReadAll() != 1) return kNotRead;
  const MANAGE_FILE& record = job.GetManageData();
  const int version = VersionOf(record.userid, record.comment);
  const Profile file(base + L".dat");
  const CString message = file.GetString(L"Information", L"ErrorMessage", L"", 1024);
  // The status file may be a version behind, but its message and its status are of one.
  const int behind = message == Text(version) ? 0 : 1;
  const bool is_whole = message == Text(version - behind) &&
                        record.ManageStatus == 95 + (version - behind) % 4 &&
                        file.GetInt(L"Setting", L"LogPrintTimeout", -1) == 30;
  return is_whole ? version : kTorn;
}

// ---- A print information file ----

bool WriteInfoTo(const std::wstring& path, int version, int most) {
  CNemiPrintInfoFileAccess file(path.c_str());
  file.GetNemiInfData().ID = Number(version);
  file.GetNemiInfData().Comment = Text(version, most);
  file.GetNemiInfData().ImageLogID = Number(version);
  return file.WriteAll() == 1;
}

int ReadInfoFrom(const std::wstring& path, int most) {
  CNemiPrintInfoFileAccess file(path.c_str());
  if (file.ReadAll() != 1) return kNotRead;
  const NEMI_INF_FILE& record = file.GetNemiInfData();
  return record.ID == record.ImageLogID ? VersionOf(record.ID, record.Comment, most) : kTorn;
}

std::wstring InfoPath(int place) { return InFolder(jobs_folder, L"P", place) + L".xml"; }

bool WriteInfo(int place, int version) { return WriteInfoTo(InfoPath(place), version, kPlainText); }
int ReadInfo(int place) { return ReadInfoFrom(InfoPath(place), kPlainText); }

// Moved into another file system, which copies it. What is not moved yet counts, as it does for who
// moves it.
bool WriteInfoElsewhere(int place, int version) {
  const std::wstring path = InFolder(jobs_folder, L"M", place) + L".dat";
  return WriteInfoTo(path, version, kLongInfo) &&
         CNemiPrintInfoFileAccess(path.c_str()).Move(PathFromNative(second_folder).c_str()) == 1;
}

int ReadInfoElsewhere(int place) {
  const int there = ReadInfoFrom(InFolder(second_folder, L"M", place) + L".xml", kLongInfo);
  const std::wstring here = InFolder(jobs_folder, L"M", place) + L".dat";
  if (there == kTorn || !ExistsNative(PathToNative(here))) return there;
  return ReadInfoFrom(here, kLongInfo);
}

// ---- Users ----

template <class Access>
bool WriteUser(int, int version) {
  Access user;
  user.SetServiceDataDirectry();
  user.SetUserID(Number(version).c_str());
  user.SetUserAccount(Text(version).c_str());
  user.SetUserGroupNo(Number(version).c_str());
  return user.WriteAll() == 1;
}

template <class Access>
int ReadUser(int) {
  Access user;
  user.SetServiceDataDirectry();
  if (user.ReadAll() != 1) return kNotRead;
  const int version = VersionOf(user.GetUserID(), user.GetUserAccount());
  return user.GetUserID() == user.GetUserGroupNo() ? version : kTorn;
}

bool WritePrinters(int, int version) {
  CWhiteListFileAccess list;
  list.Add(Number(version), Text(version));
  for (int i = 0; i < version % 7; ++i) list.Add(L"2", Number(version));
  const Lock lock(GetPrinterWhiteListMutex(), ReleasePrinterWhiteListMutex);
  return lock && list.Write(PathFromNative(jobs_folder)) == 1;
}

int ReadPrinters(int) {
  CWhiteListFileAccess list;
  const Lock lock(GetPrinterWhiteListMutex(), ReleasePrinterWhiteListMutex);
  if (!lock || list.Read(PathFromNative(jobs_folder)) != 1) return kNotRead;
  const CStringArray& names = list.GetNames();
  const int version = names.IsEmpty() ? kTorn : VersionOf(list.GetKinds()[0], names[0]);
  const auto others = std::count(names.begin(), names.end(), Number(version));
  return names.GetSize() == 1 + others && others == version % 7 ? version : kTorn;
}

// ---- INI files ----

std::vector<ProfileValue> OtherKeys(int count) {
  std::vector<ProfileValue> keys;
  for (int i = 0; i < count; ++i) {
    const wchar_t* const section = i % 2 == 0 ? L"Setting" : L"Thread";
    keys.push_back({section, L"Key" + Number(i), L"value " + Number(i)});
  }
  return keys;
}

// Whether every key that nobody writes stands in the file, and no other section.
bool HasOtherKeys(const Profile& file, int count) {
  const auto is_there = [&](const ProfileValue& key) {
    return file.GetString(key.section, key.key, L"", 64) == key.value;
  };
  return file.SectionNames(1024).size() == 2 && std::ranges::all_of(OtherKeys(count), is_there);
}

bool WriteClientIni(int, int version) {
  return CClientSetting().WritePrimPSIpAddr(Text(version)) == 1;
}

int ReadClientIni(int) {
  const CString text = CClientSetting().ReadPrimPSIpAddr();
  const Profile file(ProductPath(L"\\config\\Client.ini"));
  const bool is_whole = HasOtherKeys(file, kOtherClientKeys);
  return is_whole ? VersionOf(text.substr(0, text.find(L':')), text) : kTorn;
}

bool WriteConfigIni(int, int version) {
  const CString number = Number(version);
  return CClientSetting().WriteTrayData(3, number, 0, Text(version), 5, number) == 1;
}

int ReadConfigIni(int) {
  const Profile file(ProductPath(L"\\PrintProcessor\\config.ini"));
  const auto name = [&](const wchar_t* key) { return file.GetString(L"Setting", key, L"", 1024); };
  const bool is_whole = name(L"NameTray1") == name(L"NameTray3") &&
                        HasOtherKeys(file, kOtherConfigKeys) &&
                        file.GetInt(L"Setting", L"UseTray3", 0) == 5;
  return is_whole ? VersionOf(name(L"NameTray1"), name(L"NameTray2")) : kTorn;
}

constexpr wchar_t kIniLock[] = L"Global\\KITORA_QTL_TEST";

constexpr Store kStores[] = {
    {"Job", kJobLock, WriteJob<kPlainText>, ReadJobAlone<ReadJob<kPlainText>>},
    {"LongJob", kJobLock, WriteJob<kLongJob>, ReadJobAlone<ReadJob<kLongJob>>},
    {"JobStatus", kJobLock, WriteJobStatus, ReadJobAlone<ReadJobStatus>},
    {"JobStatusByLink", kJobLock, WriteJobStatus, ReadJobAlone<ReadJobStatus>, true, true},
    {"StatusFile", kJobLock, WriteStatusFile, ReadJobAlone<ReadStatusFile>, false},
    {"PrintInfo", kInfoLock, WriteInfo, ReadInfo},
    {"MovedPrintInfo", kInfoLock, WriteInfoElsewhere, ReadInfoElsewhere, true, false, 40},
    {"UserData", L"KITORA_QTL_USER_DATA", WriteUser<CUserDataFileAccess>,
     ReadUser<CUserDataFileAccess>},
    {"SharedUserData", L"KITORA_QTL_SHARED_USER_DATA", WriteUser<CSharedUserDataFileAccess>,
     ReadUser<CSharedUserDataFileAccess>},
    {"PrinterList", L"Global\\KITORA_QTL_WHITELIST_DAT_FILE", WritePrinters, ReadPrinters},
    {"ClientIni", kIniLock, WriteClientIni, ReadClientIni},
    {"ConfigIni", kIniLock, WriteConfigIni, ReadConfigIni},
};

}  // namespace

std::span<const Store> Stores() { return kStores; }

const Store& FindStore(std::string_view name) {
  return *std::ranges::find(kStores, name,
                            [](const Store& store) { return std::string_view(store.name); });
}

void PrintTo(const Store& store, std::ostream* out) { *out << store.name; }

StoreTest::StoreTest() {
  WriteKeyFile();
  jobs_folder = native("jobs");
  std::string other = "/dev/shm/tq.XXXXXX";
  second_folder = mkdtemp(other.data()) != nullptr ? other : native("second");
  for (const std::string& folder : Folders()) fs::create_directories(folder);
  WriteProfile(ProductPath(L"\\config\\Client.ini"), OtherKeys(kOtherClientKeys));
  WriteProfile(ProductPath(L"\\PrintProcessor\\config.ini"), OtherKeys(kOtherConfigKeys));
}

StoreTest::~StoreTest() {
  std::error_code ignored;
  fs::remove_all(second_folder, ignored);
}

std::vector<std::string> StoreTest::Folders() const {
  return {jobs_folder, second_folder, product_native("config"), product_native("data"),
          product_native("PrintProcessor")};
}

std::vector<std::string> StoreTest::Names() const {
  std::vector<std::string> names;
  for (const std::string& folder : Folders())
    std::ranges::move(ListNative(folder), std::back_inserter(names));
  return names;
}

}  // namespace vk::tq::testing
