#include "users/enable_users_accessor.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/log.h"
#include "foundation/product_folder.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/profile.h"
#include "platform/text.h"
#include "storage/crypto.h"

namespace vk::tq {
namespace {

constexpr const wchar_t* kConstructor = L"CEnableUsersAccessor::CEnableUsersAccessor";

// The names of a section, and each value, are read into a buffer of so many characters.
constexpr std::size_t kBufferSize = 1024;

// How often a list is read that changes while it is read.
constexpr int kReadings = 8;

// Two changes of a file may get one time stamp when they are no further apart than this.
constexpr std::chrono::milliseconds kTimeStampStep(16);

template <class... Arguments>
void LogText(int level, const wchar_t* function, int line, const wchar_t* format,
             const Arguments&... arguments) {
  if (!Log4cxxMgr::IsKept(level)) return;
  Log4cxxMgr::LogOutDetail(level, 0, function, line, Format(format, arguments...));
}

// A line about a job user who has no entry of his own, whose name it gives in upper case.
void LogUnknown(const wchar_t* function, int line, const wchar_t* format, const CString& job_user) {
  if (!Log4cxxMgr::IsKept(2)) return;
  const CString user = ToUpper(job_user);
  LogText(2, function, line, format, user, user);
}

void LogOpenFailure(ErrorCode error) {
  LogText(4, kConstructor, __LINE__,
          L"許可ユーザリストファイルのOpenに失敗しました。[Errorcode=%d]", error);
}

// The last-write time in nanoseconds, never 0; 0 when the file cannot be opened.
std::int64_t LastWrite(const CString& path) {
  InputFile file;
  FileStatus status;
  if (!file.Open(path, status)) return 0;
  return status.last_write_ns == 0 ? 1 : status.last_write_ns;
}

// The same, but when the file was written a moment ago, only after the next change is sure to have
// another time.
std::int64_t SettledLastWrite(const CString& path) {
  using std::chrono::nanoseconds;
  const nanoseconds last_write(LastWrite(path));
  const nanoseconds now = std::chrono::system_clock::now().time_since_epoch();
  if (last_write <= now && last_write > now - kTimeStampStep) {
    const auto rest =
        std::chrono::ceil<std::chrono::milliseconds>(last_write - (now - kTimeStampStep));
    CurrentClock().Sleep(static_cast<std::uint32_t>(rest.count()));
  }
  return last_write.count();
}

// Removes the file when the scope ends.
class ScopedTemporaryFile {
 public:
  explicit ScopedTemporaryFile(CString path) : path_(std::move(path)) {}
  ScopedTemporaryFile(const ScopedTemporaryFile&) = delete;
  ScopedTemporaryFile& operator=(const ScopedTemporaryFile&) = delete;
  ~ScopedTemporaryFile() {
    const LastErrorKeeper keeper;
    // The name needs memory, which may be there again.
    for (int attempt = 0; attempt < kAttempts && !path_.empty(); ++attempt) {
      try {
        RemoveFile(path_);
        return;
      } catch (const std::bad_alloc&) {
      }
    }
  }
  const CString& path() const { return path_; }

 private:
  static constexpr int kAttempts = 100;
  CString path_;
};

// The names of a section's entries as far as they fit. A name that the end of the buffer cuts would
// be somebody else's, so it is dropped: it is longer in a larger buffer.
std::vector<CString> EntryNames(const Profile& profile, const wchar_t* section) {
  std::vector<CString> names = profile.KeyNames(section, kBufferSize);
  if (names.empty()) return names;
  const std::vector<CString> more = profile.KeyNames(section, kBufferSize + 1);
  if (more[names.size() - 1] != names.back()) names.pop_back();
  return names;
}

}  // namespace

CEnableUsersAccessor* CEnableUsersAccessor::s_pInstance = nullptr;

CEnableUsersAccessor* CEnableUsersAccessor::GetInstance() {
  return GetInstance(ProductPath(L"\\config"));
}

CEnableUsersAccessor* CEnableUsersAccessor::GetInstance(const CString& directory) {
  if (s_pInstance != nullptr) {
    const std::int64_t last_write = LastWrite(s_pInstance->m_strListPath);
    if (last_write == 0 || last_write == s_pInstance->m_ftLastWrite) return s_pInstance;
    delete std::exchange(s_pInstance, nullptr);
  }
  return s_pInstance = new CEnableUsersAccessor(directory);
}

std::size_t CEnableUsersAccessor::HashName::operator()(const CString& name) const {
  return HashNoCase(name);
}

bool CEnableUsersAccessor::EqualName::operator()(const CString& left, const CString& right) const {
  return EqualsNoCase(left, right);
}

CEnableUsersAccessor::CEnableUsersAccessor(const CString& directory) {
  try {
    Load(directory);
  } catch (...) {
    LogText(4, kConstructor, __LINE__,
            L"許可ユーザリストファイルの読み込みで例外エラーが発生しました。");
  }
}

void CEnableUsersAccessor::Load(const CString& directory) {
  bool is_enciphered = false;
  if (!FindList(directory, is_enciphered)) return;
  for (int reading = 0; reading < kReadings; ++reading) {
    const std::int64_t before = SettledLastWrite(m_strListPath);
    if (!ReadList(is_enciphered)) return;
    const std::int64_t after = LastWrite(m_strListPath);
    // What was read of a list that is gone now stands.
    if (after == before || after == 0) {
      m_ftLastWrite = after;
      return;
    }
    DropEntries();
  }
  LogOpenFailure(kErrorSharingViolation);
}

bool CEnableUsersAccessor::FindList(const CString& directory, bool& is_enciphered) {
  m_strListPath = InternalPath(directory + L"\\EnableUsers.dat");
  // One that cannot be asked for must not make way for the other list.
  is_enciphered = GetFileStatus(m_strListPath) || IsPassing(GetLastError());
  if (is_enciphered) return true;
  m_strListPath = InternalPath(directory + L"\\EnableUsers.ini");
  if (GetFileStatus(m_strListPath) || IsPassing(GetLastError())) return true;
  LogText(2, kConstructor, __LINE__,
          L"許可ユーザリストファイルが存在しませんでした。ファイル名：%s", m_strListPath);
  return false;
}

bool CEnableUsersAccessor::ReadList(bool is_enciphered) {
  if (!is_enciphered) return ReadEntries(m_strListPath, false);
  const ScopedTemporaryFile plain(CreateTemporaryFile(L"EnableUsers"));
  const int result = CCrypto().DecryptFileMake(m_strListPath, plain.path());
  if (result != 0) {
    LogText(4, kConstructor, __LINE__,
            L"許可ユーザリストファイルの復号化に失敗しました。[Errorcode=%d]", result);
    return false;
  }
  return ReadEntries(plain.path(), true);
}

bool CEnableUsersAccessor::ReadEntries(const CString& path, bool is_enciphered) {
  const auto bytes = ReadFile(path);
  auto text = bytes ? DecodeProfile({reinterpret_cast<const char*>(bytes->data()), bytes->size()})
                    : std::nullopt;
  if (!text) {
    LogOpenFailure(GetLastError());
    return false;
  }
  text->resize(is_enciphered ? std::min(text->find(L'\0'), text->size())
                             : text->find_last_not_of(L'\0') + 1);
  const Profile profile = Profile::FromText(*text);
  if (profile.SectionNames(kBufferSize).empty()) {
    ReadLines(*text);
  } else {
    ReadSections(profile);
  }
  return true;
}

void CEnableUsersAccessor::ReadSections(const Profile& profile) {
  const std::pair<const wchar_t*, UserMap&> sections[] = {
      {L"ChangeUsers", m_mapChangeUsers},
      {L"LogOnlyUsers", m_mapLogOnlyUsers},
      {L"PcLogonQueryUsers", m_mapPcLogonQueryUsers},
  };
  for (const auto& [section, users] : sections) {
    for (const CString& name : EntryNames(profile, section)) {
      users[ToUpper(name)] = profile.GetString(section, name, L"", kBufferSize);
    }
  }
}

void CEnableUsersAccessor::ReadLines(std::wstring_view text) {
  while (!text.empty()) {
    const std::wstring_view line = text.substr(0, text.find(L'\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const std::size_t equals = line.find(L'=');
    const bool has_user = equals != line.npos;
    CString user = has_user ? ToUpper(TrimView(line.substr(0, equals))) : CString();
    m_mapChangeUsers[std::move(user)] = TrimView(has_user ? line.substr(equals + 1) : line);
  }
}

void CEnableUsersAccessor::DropEntries() {
  m_mapChangeUsers.clear();
  m_mapLogOnlyUsers.clear();
  m_mapPcLogonQueryUsers.clear();
}

int CEnableUsersAccessor::GetEnableUserType(const CString& job_user, const CString& current_user,
                                            CString& account) const {
  if (&account == &job_user || &account == &current_user) {
    return GetEnableUserType(CString(job_user), CString(current_user), account);
  }
  account = job_user;
  if (GetTQLoginAccount(job_user, current_user, account) == 1) return 1;
  if (GetLogOnlyUserAccount(job_user, account) == 1) return 2;
  if (GetPcLogonQueryUserAccount(job_user, account) == 1) return 3;
  return 0;
}

// In the lookups the account is set last: it may be the object that another argument refers to.

int CEnableUsersAccessor::LookUp(const UserMap& users, const LookupTexts& texts,
                                 const CString& job_user, const CString* current_user,
                                 CString& account) {
  if (users.empty()) {
    LogText(2, texts.function, __LINE__, texts.no_list, job_user);
    account = job_user;
    return 0;
  }
  const auto found = job_user.empty() ? users.end() : users.find(job_user);
  if (found == users.end()) {
    LogUnknown(texts.function, __LINE__, texts.unknown, job_user);
    account.clear();
    return 0;
  }
  const auto& [user, defined] = *found;
  const CString& current = current_user == nullptr ? user : *current_user;
  const CString& login = defined.empty() ? current : defined;
  LogText(2, texts.function, __LINE__, defined.empty() ? texts.current : texts.defined, user,
          login);
  account = login;
  return 1;
}

int CEnableUsersAccessor::GetTQLoginAccount(const CString& job_user, const CString& current_user,
                                            CString& account) const {
  static constexpr LookupTexts kTexts = {
      .function = L"CEnableUsersAccessor::GetTQLoginAccount",
      .no_list = L"許可ユーザ定義が見つかりません。現在のユーザ[%s]でジョブ登録処理を続けます。",
      .unknown = L"印刷ジョブユーザ[%s]が許可ユーザ定義に見つかりません。",
      .defined =
          L"印刷ジョブユーザ[%s]が許可ユーザ定義に見つかりました。"
          L"定義されたログインユーザ[%s]でジョブ登録処理を続けます。",
      .current =
          L"印刷ジョブユーザ[%s]が許可ユーザ定義に見つかりました。"
          L"現在のログインユーザ[%s]でジョブ登録処理を続けます。",
  };
  return LookUp(m_mapChangeUsers, kTexts, job_user, &current_user, account);
}

int CEnableUsersAccessor::GetLogOnlyUserAccount(const CString& job_user, CString& account) const {
  static constexpr LookupTexts kTexts = {
      .function = L"CEnableUsersAccessor::GetLogOnlyUserAccount",
      .no_list =
          L"ログだけプリントの許可ユーザ定義が見つかりません。"
          L"現在のユーザ[%s]でジョブ登録処理を続けます。",
      .unknown =
          L"印刷ジョブユーザ[%s]がログだけプリントを許可されていません。"
          L"現在のユーザ[%s]でジョブ登録処理を続けます。",
      .defined =
          L"印刷ジョブユーザ[%s]がログだけプリントを許可されています。"
          L"定義されたユーザ[%s]でジョブ登録処理を続けます。",
      .current =
          L"印刷ジョブユーザ[%s]がログだけプリントを許可されています。"
          L"現在のユーザ[%s]でジョブ登録処理を続けます。",
  };
  return LookUp(m_mapLogOnlyUsers, kTexts, job_user, nullptr, account);
}

int CEnableUsersAccessor::GetPcLogonQueryUserAccount(const CString& job_user,
                                                     CString& account) const {
  constexpr const wchar_t* kFunction = L"CEnableUsersAccessor::GetPcLogonQueryUserAccount";
  const UserMap& users = m_mapPcLogonQueryUsers;
  if (users.empty()) {
    LogText(2, kFunction, __LINE__,
            L"PcLogon問合せユーザの許可ユーザ定義が見つかりません。"
            L"現在のユーザ[%s]は、PcLogon問合せユーザではありません。",
            job_user);
    account.clear();
    return 0;
  }
  if (!job_user.empty()) {
    if (const auto found = users.find(job_user); found != users.end()) {
      const auto& [user, defined] = *found;
      if (defined.empty()) {
        LogText(2, kFunction, __LINE__, L"印刷ジョブユーザ[%s]は、PcLogon問合せユーザです。", user);
      } else {
        LogText(2, kFunction, __LINE__,
                L"印刷ジョブユーザ[%s]は、定義されたユーザ[%s]でジョブ登録処理を続けます。", user,
                defined);
      }
      account = defined;
      return 1;
    }
    if (const auto any = users.find(L"*"); any != users.end()) {
      LogUnknown(kFunction, __LINE__,
                 L"印刷ジョブユーザ[%s]は、*定義されているためPcLogon問合せユーザです。", job_user);
      account = any->second;
      return 1;
    }
  }
  LogUnknown(kFunction, __LINE__, L"印刷ジョブユーザ[%s]は、PcLogon問合せユーザではありません。",
             job_user);
  account.clear();
  return 0;
}

}  // namespace vk::tq
