#include "settings/client_setting.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

#include "foundation/log.h"
#include "foundation/util.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/profile.h"
#include "platform/secure_memory.h"
#include "platform/text.h"
#include "settings/client_setting_files.h"
#include "settings/client_setting_table.h"
#include "storage/crypto.h"

namespace vk::tq {

using namespace client_keys;

namespace {

constexpr wchar_t kRead[] = L"CClientSetting::Read";

constexpr int kReadJobTransfer = 1;

constexpr wchar_t kDefaultUsed[] = L"設定値が異常です。デフォルト値を使用します。[%s] 設定値:[%d]";
constexpr wchar_t kDefaultUsedText[] =
    L"設定値が異常です。デフォルト値を使用します。[%s] 設定値:[%s]";
constexpr wchar_t kBadValue[] = L"設定値が異常です。[%s] 設定値:[%s]";
constexpr wchar_t kNoDirectory[] =
    L"ディレクトリの存在確認及び、作成処理に失敗しました。[%s] 設定値:[%s]";

bool IsJobTransfer(const ClientKey& key) {
  const auto* directory = std::get_if<DirectoryKey>(&key);
  return directory != nullptr && directory->traits.is_job_transfer;
}

constexpr bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }
constexpr std::wstring_view kUpperCaseHexDigits = L"0123456789ABCDEF";

unsigned HexDigit(wchar_t character) {
  if (character >= L'0' && character <= L'9') return static_cast<unsigned>(character - L'0');
  if (character >= L'A' && character <= L'F') return static_cast<unsigned>(character - L'A' + 10);
  if (character >= L'a' && character <= L'f') return static_cast<unsigned>(character - L'a' + 10);
  return 0;
}

// Leaves no copy of the old or the new text behind.
void ReplaceSecret(CString& member, std::wstring_view text) {
  { const WipeOnExit wipe(member); }
  member = text;
}

}  // namespace

// Reads the keys into an object: one function for each shape.
class CClientSetting::Reader {
 public:
  explicit Reader(CClientSetting& setting) : setting_(setting), file_(ProductPath(kClientIni)) {}

  int result() const { return result_; }

  void operator()(const NumberKey& key) {
    const auto warn = [&key](int number, int value) {
      Log4cxxMgr::LogOutDetail(key.traits.level, number, kRead, __LINE__,
                               Format(kDefaultUsed, key.label, value));
      if (key.traits.event) CEventLogMgr::EventLogOut(kEventWarning, key.traits.event);
    };
    const std::wstring text = Text(key.key, key.traits.section);
    int value = 0;
    if (!CheckNumeric(text.c_str(), key.default_value, &value)) {
      if (!key.traits.keeps_member) Store(key.member, value);
      warn(key.not_a_number, key.default_value);
    } else if (value < key.accepted.least || value > key.accepted.most) {
      Store(key.member, key.traits.out_of_limit_value.value_or(key.default_value));
      warn(key.out_of_limit, key.traits.hides_value ? key.default_value : value);
    } else {
      Store(key.member, value);
    }
  }

  void operator()(const FlagKey& key) {
    bool& member = setting_.*key.member;
    if (key.default_value) member = *key.default_value;
    const std::wstring text = Text(key.key);
    if (text.starts_with(L'0') || text.starts_with(L'1')) {
      member = text.front() == L'1';
      return;
    }
    if (!key.default_value) {
      if (text.empty()) return;
      Warn(key.bad, Format(kDefaultUsedText, key.label, text));
      return;
    }
    Warn(text.empty() ? key.empty : key.bad, Format(kDefaultUsed, key.label, member ? 1 : 0));
  }

  void operator()(const RequiredTextKey& key) {
    const std::wstring text = Text(key.key);
    if (text.empty()) return Fail(key.missing, key.missing_text, kEventError);
    CString& member = setting_.*key.member;
    if (key.form == Form::kEnciphered) {
      CString plain = Decipher(text);
      const WipeOnExit wipe(plain);
      ReplaceSecret(member, TrimView(plain));
    } else {
      member = TrimView(text);
    }
    if (member.empty()) Fail(key.blank, Format(kBadValue, key.label, member), kEventError);
  }

  void operator()(const OptionalTextKey& key) {
    const std::wstring text = Trim(Text(key.key));
    if (!text.empty()) {
      setting_.*key.member = text;
    } else if (key.substitute != nullptr) {
      setting_.*key.member = setting_.*key.substitute;
    } else {
      Warn(key.missing, key.missing_text);
    }
  }

  void operator()(const DirectoryKey& key) {
    const bool is_local = key.place == Place::kLocal;
    const DirectoryTraits& traits = key.traits;
    CString& member = setting_.*key.member;
    member = is_local ? CString(kDefaultFolder) + key.default_name : key.default_name;
    CString value = Text(key.key);
    if (value.empty()) {
      return Fail(key.missing, key.missing_text, traits.event_id, traits.missing_event);
    }
    value = Trim(value);
    if (value.empty()) {
      return Fail(key.blank, Format(kBadValue, key.label, value), traits.event_id);
    }
    if (is_local && !CheckExistDirectry(value)) {
      const std::wstring message = Format(kNoDirectory, key.label, value);
      return traits.is_job_transfer ? Report(key.not_creatable, message, traits.event_id)
                                    : Fail(key.not_creatable, message, traits.event_id);
    }
    member = value;
  }

  void operator()(const IntegerKey& key) {
    setting_.*key.member = file_.GetInt(kSettingSection, key.key, key.default_value);
  }

  void operator()(const CardCodeKey& key) {
    CString& member = setting_.*key.member;
    member.clear();
    const std::wstring code = ToUpper(TrimView(Text(key.key)));
    constexpr std::size_t kLongest = 4;
    if (code.size() > kLongest ||
        code.find_first_not_of(kUpperCaseHexDigits) != std::wstring::npos) {
      Log4cxxMgr::LogOutDetail(4, key.bad, kRead, __LINE__, Format(kBadValue, key.label, code));
      result_ = 0;
    } else if (!code.empty()) {
      member = code;
      Log4cxxMgr::LogOutDetail(2, 0, kRead, __LINE__, Format(L"[%s] 設定値:[%s]", key.label, code));
    }
  }

 private:
  std::wstring Text(const wchar_t* key, const wchar_t* section = kSettingSection) const {
    return file_.GetString(section, key, L"", kValueBuffer);
  }

  void Store(const NumberMember& to, int value) {
    std::visit(
        [&](auto member) {
          auto& place = setting_.*member;
          place = static_cast<std::remove_reference_t<decltype(place)>>(value);
        },
        to);
  }

  // A key file that no key can be built from must not keep the other settings from being read.
  static CString Decipher(const std::wstring& hex) {
    CByteArray bytes;
    AsciiHexToByteArray(hex.c_str(), bytes);
    try {
      return CCrypto().DecryptByTripleDESToByteArray(bytes);
    } catch (const CInvalidArgException&) {
      return {};
    } catch (const std::runtime_error&) {
      return {};
    }
  }

  static void Warn(int number, std::wstring_view message) {
    Log4cxxMgr::LogOutDetail(3, number, kRead, __LINE__, message);
  }

  static void Report(int number, std::wstring_view message, unsigned long event_id,
                     const wchar_t* event = nullptr) {
    Log4cxxMgr::LogOutDetail(4, number, kRead, __LINE__, message);
    CEventLogMgr::EventLogOut(event_id, event ? std::wstring_view(event) : message);
  }

  void Fail(int number, std::wstring_view message, unsigned long event_id,
            const wchar_t* event = nullptr) {
    Report(number, message, event_id, event);
    result_ = 0;
  }

  CClientSetting& setting_;
  Profile file_;
  int result_ = 1;
};

CClientSetting::~CClientSetting() {
  const WipeOnExit user(P2);
  const WipeOnExit password(P3);
}

int CClientSetting::Read(int mode) {
  Reader reader(*this);
  for (const ClientKey& key : kClientKeys) {
    if (IsJobTransfer(key) && mode != kReadJobTransfer) continue;
    std::visit([&reader](const auto& shape) { reader(shape); }, key);
  }
  return reader.result();
}

int CClientSetting::CheckNumeric(const wchar_t* text, int default_value, int* value) {
  const std::wstring_view digits = TrimView(text);
  if (digits.empty() || !std::ranges::all_of(digits, IsDigit)) {
    *value = default_value;
    return 0;
  }
  *value = ParseInt(digits);
  return 1;
}

int CClientSetting::CheckExistDirectry(CString& path) {
  constexpr wchar_t kFunction[] = L"CClientSetting::CheckExistDirectry";
  if (path.empty()) return 1;
  if (path.back() == L'\\') path.pop_back();
  if (IsDirectry(path.c_str())) return 1;
  if (!CreateFolder(path)) {
    Log4cxxMgr::LogOutDetail(5, 120200600, kFunction, __LINE__, static_cast<int>(GetLastError()),
                             L"システムディレクトリの作成に失敗しました。：" + path);
    return 0;
  }
  CUtil::SetFileAccess(path, L"users", 0);
  CUtil::SetFileAccess(path, L"power users", 0);
  Log4cxxMgr::LogOutDetail(3, 120200610, kFunction, __LINE__, static_cast<int>(GetLastError()),
                           L"システムディレクトリを作成しました。：" + path);
  return 1;
}

int CClientSetting::IsDirectry(const wchar_t* path) {
  const auto status = GetFileStatus(path);
  if (!status) {
    Log4cxxMgr::LogOutDetail(5, 120200620, L"CClientSetting::IsDirectry", __LINE__,
                             static_cast<int>(GetLastError()),
                             L"ファイルの存在確認に失敗しました。");
    return 0;
  }
  return status->is_directory ? 1 : 0;
}

void CClientSetting::AsciiHexToByteArray(const wchar_t* text, CByteArray& bytes) {
  // The terminator stands in for the missing digit of an odd length: it counts as 0.
  const std::size_t size = std::wstring_view(text).size();
  for (std::size_t i = 0; i < size; i += 2) {
    bytes.Add(static_cast<unsigned char>(HexDigit(text[i]) << 4 | HexDigit(text[i + 1])));
  }
}

}  // namespace vk::tq
