#include "kills/stores.h"

#include <algorithm>
#include <filesystem>
#include <memory>

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

// The second file has several memory pages, which the kernel does not write as one.
constexpr int kOtherClientKeys = 60, kOtherConfigKeys = 600;
constexpr int kShort = 250, kLong = 20'000;

// The native folders; StoreTest makes them anew for each test.
std::string jobs_folder, second_folder;

std::wstring InFolder(const std::string& folder, std::wstring_view name) {
  return PathFromNative(folder) + L"\\" + std::wstring(name);
}

CString Number(int version) { return std::to_wstring(version); }

// A long text: its number, and a tail that differs from the last one in length and each character.
CString Text(int version, int most = kShort) {
  const int length = version * 97 % most;
  return Number(version) + L":" +
         CString(static_cast<std::size_t>(length), static_cast<wchar_t>(L'あ' + version % 50));
}

// The version whose number and text these are.
int VersionOf(const CString& number, const CString& text, int most = kShort) {
  const int version = ParseInt(number);
  return number == Number(version) && text == Text(version, most) ? version : kTorn;
}

// ---- A job ----

// Four versions of a job have the same information and differ by their status alone. A long one has
// all its versions written whole, and its status stands in the status file.
template <bool kIsLong>
int StatusOf(int version) {
  constexpr int kStatuses[] = {98, 97, 5, 96, 1, 999, 95, 2};
  return kIsLong ? 95 + version % 4 : kStatuses[version % 8];
}

template <bool kIsLong>
bool WriteJob(int place, int version) {
  CManageFileAccess job(InFolder(jobs_folder, L"J" + Number(place)).c_str());
  MANAGE_FILE& record = job.GetManageData();
  record.userid = Number(version);
  record.comment = Text(version, kIsLong ? kLong : kShort);
  record.ErrorMessage = Text(version);
  record.ManageStatus = StatusOf<kIsLong>(version);
  if (kIsLong) return job.WriteAll(1) == 1;
  return (version % 4 == 1 ? job.WriteAll() : job.WriteStatus()) == 1;
}

template <bool kIsLong>
int ReadJob(int place) {
  CManageFileAccess job(InFolder(jobs_folder, L"J" + Number(place)).c_str());
  if (job.ReadAll() != 1) return kNotRead;
  const MANAGE_FILE& record = job.GetManageData();
  const int written = VersionOf(record.userid, record.comment, kIsLong ? kLong : kShort);
  if (written == kTorn) return kTorn;
  for (int version = written; version < written + (kIsLong ? 1 : 4); ++version) {
    if (record.ManageStatus == StatusOf<kIsLong>(version)) return version;
  }
  // A status follows its information, and may be that of the version before.
  return record.ManageStatus == StatusOf<kIsLong>(written - 1) ? written : kTorn;
}

// ---- A print information file ----

bool WriteInfoTo(const std::wstring& path, int version, int most) {
  CNemiPrintInfoFileAccess file(path.c_str());
  file.GetNemiInfData().Comment = Text(version, most);
  file.GetNemiInfData().ImageLogID = Number(version);
  return file.WriteAll() == 1;
}

int ReadInfoFrom(const std::wstring& path, int most) {
  CNemiPrintInfoFileAccess file(path.c_str());
  if (file.ReadAll() != 1) return kNotRead;
  return VersionOf(file.GetNemiInfData().ImageLogID, file.GetNemiInfData().Comment, most);
}

bool WriteInfo(int, int version) {
  return WriteInfoTo(InFolder(jobs_folder, L"P.xml"), version, kShort);
}

int ReadInfo(int) { return ReadInfoFrom(InFolder(jobs_folder, L"P.xml"), kShort); }

// Moved into another file system, which copies it. What is not moved yet counts, as it does for who
// moves it.
bool WriteInfoElsewhere(int, int version) {
  const std::wstring path = InFolder(jobs_folder, L"M.dat");
  return WriteInfoTo(path, version, kLong) &&
         CNemiPrintInfoFileAccess(path.c_str()).Move(PathFromNative(second_folder).c_str()) == 1;
}

int ReadInfoElsewhere(int) {
  const int there = ReadInfoFrom(InFolder(second_folder, L"M.xml"), kLong);
  if (there == kTorn || !ExistsNative(jobs_folder + "/M.dat")) return there;
  return ReadInfoFrom(InFolder(jobs_folder, L"M.dat"), kLong);
}

// ---- Users ----

template <class Access>
bool WriteUser(int, int version) {
  Access user;
  user.SetServiceDataDirectry();
  user.SetUserAccount(Text(version).c_str());
  user.SetUserGroupNo(Number(version).c_str());
  return user.WriteAll() == 1;
}

template <class Access>
int ReadUser(int) {
  Access user;
  user.SetServiceDataDirectry();
  return user.ReadAll() == 1 ? VersionOf(user.GetUserGroupNo(), user.GetUserAccount()) : kNotRead;
}

using Lock = std::unique_ptr<void, HANDLE (*)(HANDLE)>;

bool WritePrinters(int, int version) {
  CWhiteListFileAccess list;
  for (int i = 0; i <= version % 7; ++i) list.Add(Number(version), Text(version));
  const Lock lock(GetPrinterWhiteListMutex(), ReleasePrinterWhiteListMutex);
  return lock && list.Write(PathFromNative(jobs_folder)) == 1;
}

int ReadPrinters(int) {
  CWhiteListFileAccess list;
  const Lock lock(GetPrinterWhiteListMutex(), ReleasePrinterWhiteListMutex);
  if (!lock || list.Read(PathFromNative(jobs_folder)) != 1) return kNotRead;
  const CStringArray& names = list.GetNames();
  const int version = names.IsEmpty() ? kTorn : VersionOf(list.GetKinds()[0], names[0]);
  const auto count = std::count(names.begin(), names.end(), Text(version));
  return count == names.GetSize() && count == 1 + version % 7 ? version : kTorn;
}

// ---- INI files ----

// Keys that nobody writes.
std::vector<ProfileValue> OtherKeys(int count) {
  std::vector<ProfileValue> keys;
  for (int i = 0; i < count; ++i)
    keys.push_back({L"Setting", L"Key" + Number(i), L"value " + Number(i)});
  return keys;
}

int ReadIni(const wchar_t* name, int other_keys, const wchar_t* first, const wchar_t* last) {
  const Profile file(ProductPath(name));
  const auto value = [&](const CString& key) { return file.GetString(L"Setting", key, L"", 1024); };
  const bool is_whole = std::ranges::all_of(
      OtherKeys(other_keys), [&](const ProfileValue& key) { return value(key.key) == key.value; });
  return is_whole ? VersionOf(Number(ParseInt(value(first))), value(last)) : kTorn;
}

bool WriteClientIni(int, int version) {
  return CClientSetting().WritePrimPSIpAddr(Text(version)) == 1;
}

int ReadClientIni(int) { return ReadIni(L"\\config\\Client.ini", kOtherClientKeys, L"P1", L"P1"); }

bool WriteConfigIni(int, int version) {
  return CClientSetting().WriteTrayData(3, Text(version), 0, L"", 5, Number(version)) == 1;
}

int ReadConfigIni(int) {
  return ReadIni(L"\\PrintProcessor\\config.ini", kOtherConfigKeys, L"NameTray3", L"NameTray1");
}

constexpr wchar_t kJobLock[] = L"Global\\KITORA_QTL_JOB_MANAGE";
constexpr wchar_t kInfoLock[] = L"KITORA_QTL_JOB_INFO_NEMI";
constexpr wchar_t kIniLock[] = L"Global\\KITORA_QTL_TEST";
using User = CUserDataFileAccess;
using SharedUser = CSharedUserDataFileAccess;

constexpr Store kStores[] = {
    {"Job", kJobLock, WriteJob<false>, ReadJob<false>, 240},
    {"JobByLink", kJobLock, WriteJob<false>, ReadJob<false>, 120, true},
    {"LongJob", kJobLock, WriteJob<true>, ReadJob<true>, 240},
    {"PrintInfo", kInfoLock, WriteInfo, ReadInfo},
    {"MovedPrintInfo", kInfoLock, WriteInfoElsewhere, ReadInfoElsewhere, 100},
    {"UserData", L"KITORA_QTL_USER_DATA", WriteUser<User>, ReadUser<User>},
    {"SharedUserData", L"KITORA_QTL_SHARED_USER_DATA", WriteUser<SharedUser>, ReadUser<SharedUser>},
    {"PrinterList", L"Global\\KITORA_QTL_WHITELIST_DAT_FILE", WritePrinters, ReadPrinters},
    {"ClientIni", kIniLock, WriteClientIni, ReadClientIni},
    {"ConfigIni", kIniLock, WriteConfigIni, ReadConfigIni},
};

}  // namespace

std::span<const Store> Stores() { return kStores; }

const Store& FindStore(std::string_view name) {
  return *std::ranges::find(kStores, name, &Store::name);
}

void PrintTo(const Store& store, std::ostream* out) { *out << store.name; }

StoreTest::StoreTest() {
  WriteKeyFile();
  jobs_folder = native("jobs");
  second_folder = second_.native();
  for (const char* name : {"data", "PrintProcessor"}) fs::create_directories(product_native(name));
  fs::create_directory(jobs_folder);
  WriteProfile(ProductPath(L"\\config\\Client.ini"), OtherKeys(kOtherClientKeys));
  WriteProfile(ProductPath(L"\\PrintProcessor\\config.ini"), OtherKeys(kOtherConfigKeys));
}

std::ptrdiff_t StoreTest::CountFiles() const {
  using Walk = fs::recursive_directory_iterator;
  return std::distance(Walk(temp_.native()), Walk()) + std::distance(Walk(second_folder), Walk());
}

}  // namespace vk::tq::testing
