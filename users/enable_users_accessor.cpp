#include "users/enable_users_accessor.h"

#include <chrono>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/clock.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/profile.h"
#include "platform/secure_memory.h"
#include "platform/text.h"
#include "storage/crypto.h"
#include "users/product_folder.h"

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

void LogOpenFailure(ErrorCode error) {
  LogText(4, kConstructor, __LINE__,
          L"許可ユーザリストファイルのOpenに失敗しました。[Errorcode=%d]", error);
}

// The last-write time in nanoseconds, never 0; 0 when the file cannot be opened.
std::int64_t LastWrite(const CString& path) {
  InputFile file;
  if (!file.Open(path)) return 0;
  const auto status = file.Status();
  if (!status) return 0;
  return status->last_write_ns == 0 ? 1 : status->last_write_ns;
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
    if (!path_.empty()) RemoveFile(path_);
  }
  const CString& path() const { return path_; }

 private:
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

// The text of a file that begins with a byte-order mark or is in the ANSI code page.
CString DecodeMarkedText(std::string_view bytes) {
  constexpr std::pair<std::string_view, unsigned> kMarks[] = {
      {"\xFF\xFE", kCodePageUtf16Le},
      {"\xEF\xBB\xBF", kCodePageUtf8},
  };
  for (const auto& [mark, code_page] : kMarks) {
    if (bytes.starts_with(mark)) {
      return DecodeText(code_page, bytes.substr(mark.size())).value_or(CString());
    }
  }
  return DecodeText(kCodePageAnsi, bytes).value_or(CString());
}

}  // namespace

CEnableUsersAccessor* CEnableUsersAccessor::s_pInstance = nullptr;

CEnableUsersAccessor* CEnableUsersAccessor::GetInstance() {
  s_pInstance =
      GetInstance(CUtil::GetSpecialFolderPath(kFolderCommonAppData) + kProductFolder + L"\\config");
  return s_pInstance;
}

CEnableUsersAccessor* CEnableUsersAccessor::GetInstance(const CString& directory) {
  if (s_pInstance != nullptr) {
    const std::int64_t last_write = LastWrite(s_pInstance->m_strListPath);
    if (last_write == 0 || last_write == s_pInstance->m_ftLastWrite) return s_pInstance;
    delete std::exchange(s_pInstance, nullptr);
  }
  s_pInstance = new CEnableUsersAccessor(directory);
  return s_pInstance;
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
  is_enciphered = GetFileStatus(m_strListPath).has_value();
  if (is_enciphered) return true;
  m_strListPath = InternalPath(directory + L"\\EnableUsers.ini");
  if (GetFileStatus(m_strListPath)) return true;
  LogText(2, kConstructor, __LINE__,
          L"許可ユーザリストファイルが存在しませんでした。ファイル名：%s", m_strListPath);
  return false;
}

bool CEnableUsersAccessor::ReadList(bool is_enciphered) {
  if (!is_enciphered) return ReadEntries(m_strListPath);
  const ScopedTemporaryFile plain(CreateTemporaryFile(L"EnableUsers"));
  const int result = CCrypto().DecryptFileMake(m_strListPath, plain.path());
  if (result != 0) {
    LogText(4, kConstructor, __LINE__,
            L"許可ユーザリストファイルの復号化に失敗しました。[Errorcode=%d]", result);
    return false;
  }
  return ReadEntries(plain.path());
}

bool CEnableUsersAccessor::ReadEntries(const CString& path) {
  const Profile profile(path);
  if (profile.SectionNames(kBufferSize).empty()) return ReadLines(path);
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
  return true;
}

bool CEnableUsersAccessor::ReadLines(const CString& path) {
  const auto bytes = ReadFile(path);
  if (!bytes) {
    LogOpenFailure(GetLastError());
    return false;
  }
  CString text = DecodeMarkedText({reinterpret_cast<const char*>(bytes->data()), bytes->size()});
  const WipeOnExit wipe(text);
  text.resize(text.find_last_not_of(L'\0') + 1);
  std::wstring_view rest = text;
  while (!rest.empty()) {
    const std::size_t end = rest.find(L'\n');
    const std::wstring_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::wstring_view::npos ? rest.size() : end + 1);
    const std::size_t equals = line.find(L'=');
    const bool has_name = equals != std::wstring_view::npos;
    m_mapChangeUsers[has_name ? ToUpper(TrimView(line.substr(0, equals))) : CString()] =
        Trim(has_name ? line.substr(equals + 1) : line);
  }
  return true;
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

int CEnableUsersAccessor::GetTQLoginAccount(const CString& job_user, const CString& current_user,
                                            CString& account) const {
  constexpr const wchar_t* kFunction = L"CEnableUsersAccessor::GetTQLoginAccount";
  if (m_mapChangeUsers.empty()) {
    LogText(2, kFunction, __LINE__,
            L"許可ユーザ定義が見つかりません。現在のユーザ[%s]でジョブ登録処理を続けます。",
            job_user);
    account = job_user;
    return 0;
  }
  const CString user = ToUpper(job_user);
  const auto found = user.empty() ? m_mapChangeUsers.end() : m_mapChangeUsers.find(user);
  if (found == m_mapChangeUsers.end()) {
    LogText(2, kFunction, __LINE__, L"印刷ジョブユーザ[%s]が許可ユーザ定義に見つかりません。",
            user);
    account.clear();
    return 0;
  }
  const bool is_defined = !found->second.empty();
  const CString& login = is_defined ? found->second : current_user;
  LogText(2, kFunction, __LINE__,
          is_defined ? L"印刷ジョブユーザ[%s]が許可ユーザ定義に見つかりました。"
                       L"定義されたログインユーザ[%s]でジョブ登録処理を続けます。"
                     : L"印刷ジョブユーザ[%s]が許可ユーザ定義に見つかりました。"
                       L"現在のログインユーザ[%s]でジョブ登録処理を続けます。",
          user, login);
  account = login;
  return 1;
}

int CEnableUsersAccessor::GetLogOnlyUserAccount(const CString& job_user, CString& account) const {
  constexpr const wchar_t* kFunction = L"CEnableUsersAccessor::GetLogOnlyUserAccount";
  if (m_mapLogOnlyUsers.empty()) {
    LogText(2, kFunction, __LINE__,
            L"ログだけプリントの許可ユーザ定義が見つかりません。"
            L"現在のユーザ[%s]でジョブ登録処理を続けます。",
            job_user);
    account = job_user;
    return 0;
  }
  const CString user = ToUpper(job_user);
  const auto found = user.empty() ? m_mapLogOnlyUsers.end() : m_mapLogOnlyUsers.find(user);
  if (found == m_mapLogOnlyUsers.end()) {
    LogText(2, kFunction, __LINE__,
            L"印刷ジョブユーザ[%s]がログだけプリントを許可されていません。"
            L"現在のユーザ[%s]でジョブ登録処理を続けます。",
            user, user);
    account.clear();
    return 0;
  }
  const bool is_defined = !found->second.empty();
  const CString& login = is_defined ? found->second : user;
  LogText(2, kFunction, __LINE__,
          is_defined ? L"印刷ジョブユーザ[%s]がログだけプリントを許可されています。"
                       L"定義されたユーザ[%s]でジョブ登録処理を続けます。"
                     : L"印刷ジョブユーザ[%s]がログだけプリントを許可されています。"
                       L"現在のユーザ[%s]でジョブ登録処理を続けます。",
          user, login);
  account = login;
  return 1;
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
  const CString user = ToUpper(job_user);
  if (!user.empty()) {
    if (const auto own = users.find(user); own != users.end()) {
      if (own->second.empty()) {
        LogText(2, kFunction, __LINE__, L"印刷ジョブユーザ[%s]は、PcLogon問合せユーザです。", user);
      } else {
        LogText(2, kFunction, __LINE__,
                L"印刷ジョブユーザ[%s]は、定義されたユーザ[%s]でジョブ登録処理を続けます。", user,
                own->second);
      }
      account = own->second;
      return 1;
    }
    if (const auto any = users.find(L"*"); any != users.end()) {
      LogText(2, kFunction, __LINE__,
              L"印刷ジョブユーザ[%s]は、*定義されているためPcLogon問合せユーザです。", user);
      account = any->second;
      return 1;
    }
  }
  LogText(2, kFunction, __LINE__, L"印刷ジョブユーザ[%s]は、PcLogon問合せユーザではありません。",
          user);
  account.clear();
  return 0;
}

}  // namespace vk::tq
