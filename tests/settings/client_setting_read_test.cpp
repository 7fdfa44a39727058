#include <filesystem>
#include <map>

#include "platform/file_security.h"
#include "platform/text.h"
#include "settings/client_setting_table.h"
#include "storage/crypto.h"
#include "support/test_support.h"

// The rows of settings/client_setting_table.h say which keys there are. That they are the right
// ones is shown by tests/data/client_ini_log.txt, which has the texts, and by
// settings_document_test.cpp, which has the other numbers and the limits.
namespace vk::tq::testing {
namespace {

using namespace client_keys;
using Lines = std::vector<LogLine>;
using Events = std::vector<Event>;

LogLine Line(int level, int number, const std::wstring& message, const wchar_t* operation = L"Read",
             std::optional<int> code = {}) {
  return {level, number, CString(L"CClientSetting::") + operation, message, {}, code};
}

std::wstring Bad(const std::wstring& label, const std::wstring& value,
                 const wchar_t* consequence = L"") {
  return std::wstring(L"設定値が異常です。") + consequence + L"[" + label + L"] 設定値:[" + value +
         L"]";
}

std::wstring Default(const std::wstring& label, const std::wstring& value) {
  return Bad(label, value, L"デフォルト値を使用します。");
}
std::wstring Default(const std::wstring& label, long long value) {
  return Default(label, std::to_wstring(value));
}

std::wstring Enciphered(const CString& text) {
  CByteArray bytes;
  CCrypto().EncryptByTripleDesToByteArray(text, bytes);
  return FromUtf8(ToHex(
      {reinterpret_cast<const char*>(bytes.GetData()), static_cast<std::size_t>(bytes.GetSize())}));
}

template <class Key>
std::vector<Key> KeysOf() {
  std::vector<Key> keys;
  for (const ClientKey& key : kClientKeys) {
    if (const auto* found = std::get_if<Key>(&key)) keys.push_back(*found);
  }
  return keys;
}

std::wstring DefaultOf(const DirectoryKey& key) {
  const wchar_t* const folder =
      L"C:\\Documents and Settings\\All Users\\Application Data\\ORV-INC\\Velkorandia\\"
      L"Tessaloquin\\";
  return std::wstring(key.place == Place::kLocal ? folder : L"") + key.default_name;
}

constexpr const wchar_t* kMissing[] = {nullptr, L""};
constexpr const wchar_t* kNoText[] = {nullptr, L"", L"\"  \""};

class ClientSettingReadTest : public ProductTest {
 protected:
  ClientSettingReadTest() {
    WriteKeyFile();
    for (const ClientKey& key : kClientKeys) {
      std::visit([this](const auto& shape) { good_[shape.key] = L"1"; }, key);
    }
    for (const DirectoryKey& key : KeysOf<DirectoryKey>()) {
      good_[key.key] = path(key.key);
      if (key.place == Place::kLocal) std::filesystem::create_directory(native(ToUtf8(key.key)));
    }
    good_[L"P1"] = L"192.0.2.1";
    good_[L"P2"] = Enciphered(L"ftpuser");
    good_[L"P3"] = Enciphered(L"geheim 秘密");
    good_.erase(L"SharedPCCardSystemCode");
  }

  // Writes Client.ini with good values, but for one key; null leaves it out.
  void Write(const std::wstring& key = {}, const wchar_t* value = nullptr) {
    auto values = good_;
    values.erase(key);
    if (value != nullptr) values[key] = value;
    std::wstring setting = L"[Setting]\n";
    std::wstring thread = L"[Thread]\n";
    for (const auto& [name, text] : values) {
      (name == L"PrinterInfoCycle" ? thread : setting) += name + L"=" + text + L"\n";
    }
    WriteNative(product_native("config/Client.ini"), ToUtf8(setting + thread));
    log_.Clear();
  }

  // Reads a file in which one key alone is not good, into a copy of before_, and compares what that
  // gives.
  template <class Member, class Value>
  void Check(const std::wstring& key, const wchar_t* value, Member member, const Value& expected,
             int result = 1, const Lines& lines = {}, const Events& events = {}) {
    SCOPED_TRACE(ToUtf8(key) + " = " + (value ? ToUtf8(value) : "(missing)"));
    Write(key, value);
    setting_ = before_;
    EXPECT_EQ(setting_.Read(1), result);
    EXPECT_EQ(log_.lines(), lines);
    EXPECT_EQ(log_.events(), events);
    EXPECT_EQ(setting_.*member, expected);
  }

  // A value for every key that leaves no line.
  std::map<std::wstring, std::wstring> good_;
  C before_;
  C setting_;
};

// ---- Numbers ----

constexpr long long kMax = 2147483647;

// What no number is made of: nothing, blanks, signs, points, other digits than 0 to 9.
constexpr const wchar_t* kNoNumbers[] = {nullptr, L"",    L"\"  \"", L"\u3000", L"abc",  L"-1",
                                         L"+1",   L"1.5", L"0x10",   L"1 2",    L"１２", L"12a"};

TEST_F(ClientSettingReadTest, Numbers) {
  for (const NumberKey& number : KeysOf<NumberKey>()) {
    const auto* const member = std::get_if<int C::*>(&number.member);
    if (member == nullptr) continue;
    const NumberTraits& traits = number.traits;
    const Events events = traits.event ? Events{{kEventWarning, traits.event}} : Events{};
    const auto warned = [&](const wchar_t* text, int line, long long shown) {
      Check(number.key, text, *member, number.default_value, 1,
            {Line(traits.level, line, Default(number.label, shown))}, events);
    };
    for (const wchar_t* text : kNoNumbers) warned(text, number.not_a_number, number.default_value);
    const auto [least, most] = number.accepted;
    for (const long long value : {0LL, 1LL, 0LL + most, 1LL + most, kMax, 99999999999LL}) {
      const long long seen = std::min(value, kMax);
      const std::wstring text = L"\" 00" + std::to_wstring(value) + L" \"";
      if (seen >= least && seen <= most) {
        Check(number.key, text.c_str(), *member, seen);
      } else {
        warned(text.c_str(), number.out_of_limit, traits.hides_value ? number.default_value : seen);
      }
    }
  }
}

TEST_F(ClientSettingReadTest, P4IsAByteWithRulesOfItsOwn) {
  const std::wstring label = L"ＦＴＰリトライ回数";
  before_.P4 = 77;
  for (const wchar_t* text : kNoNumbers) {
    Check(L"P4", text, &C::P4, 77, 1, {Line(3, 120200100, Default(label, 3))});
  }
  Check(L"P4", L"0", &C::P4, 0);
  Check(L"P4", L"255", &C::P4, 255);
  Check(L"P4", L"256", &C::P4, 20, 1, {Line(3, 120200110, Default(label, 256))});
  Check(L"P4", L"99999999999", &C::P4, 20, 1, {Line(3, 120200110, Default(label, kMax))});
}

TEST_F(ClientSettingReadTest, PlainIntegersTakeWhatTheyFind) {
  for (const IntegerKey& key : KeysOf<IntegerKey>()) {
    Check(key.key, nullptr, key.member, key.default_value);
    Check(key.key, L"abc", key.member, 0);
    Check(key.key, L"-12abc", key.member, -12);
  }
}

// SharedPC, which has no default, keeps its value; it passes over an empty text.
TEST_F(ClientSettingReadTest, Flags) {
  for (const FlagKey& flag : KeysOf<FlagKey>()) {
    for (const bool before : {false, true}) {
      before_.*flag.member = before;
      for (const wchar_t* text : {L"0", L"0x", L"01"}) Check(flag.key, text, flag.member, false);
      for (const wchar_t* text : {L"1", L"10", L"1 no"}) Check(flag.key, text, flag.member, true);
      const bool used = flag.default_value.value_or(before);
      for (const std::wstring text : {L"", L" 1", L"2", L"2 x", L"true", L"-1", L"１"}) {
        Lines lines = {Line(3, text.empty() ? flag.empty : flag.bad, Default(flag.label, used))};
        if (!flag.default_value) lines[0].message = Default(flag.label, text);
        if (!flag.default_value && text.empty()) lines.clear();
        Check(flag.key, (L"\"" + text + L"\"").c_str(), flag.member, used, 1, lines);
        if (text.empty()) Check(flag.key, nullptr, flag.member, used, 1, lines);
      }
    }
  }
}

// ---- Texts ----

TEST_F(ClientSettingReadTest, RequiredTexts) {
  for (const RequiredTextKey& text : KeysOf<RequiredTextKey>()) {
    const auto stored = [&](const std::wstring& value) {
      return text.form == Form::kEnciphered ? Enciphered(value) : L"\"" + value + L"\"";
    };
    before_.*text.member = L"kept";
    for (const wchar_t* missing : kMissing) {
      Check(text.key, missing, text.member, L"kept", 0, {Line(4, text.missing, text.missing_text)},
            {{kEventError, text.missing_text}});
    }
    const std::wstring bad = Bad(text.label, L"");
    for (const wchar_t* blank : {L" \t", L"\u3000"}) {
      Check(text.key, stored(blank).c_str(), text.member, L"", 0, {Line(4, text.blank, bad)},
            {{kEventError, bad}});
    }
    Check(text.key, stored(L" a b ").c_str(), text.member, L"a b");
  }
}

TEST_F(ClientSettingReadTest, TheFtpAccount) {
  const std::wstring no_user = Bad(L"ＦＴＰユーザ名", L"");
  Check(L"P2", Enciphered(L"").c_str(), &C::P2, L"", 0, {Line(4, 120200070, no_user)},
        {{kEventError, no_user}});
  EXPECT_EQ(setting_.P3, L"geheim 秘密");
  Check(L"P2", ToUpper(Enciphered(L"USER")).c_str(), &C::P2, L"USER");

  // What is no hexadecimal digit counts as 0, and an odd digit is the high half of a byte.
  const CByteArray bytes{0x40, 0xFA, 0x10};
  Check(L"P2", L"4Gfa1", &C::P2, Trim(CCrypto().DecryptByTripleDESToByteArray(bytes)));

  // No key can be made from this key file: both are blank, and all other keys are read.
  WriteKeyFile(std::string(34, 'x'));
  Write();
  EXPECT_EQ(setting_.Read(1), 0);
  EXPECT_EQ(setting_.P3, L"");
  EXPECT_EQ(setting_.ServiceSocket, 1);
  EXPECT_EQ(log_.lines(), (Lines{Line(4, 120200070, no_user),
                                 Line(4, 120200090, Bad(L"ＦＴＰパスワード", L""))}));
}

TEST_F(ClientSettingReadTest, OptionalTexts) {
  before_.ClientIPAddress = L"kept";
  for (const wchar_t* text : kNoText) {
    Check(L"P1Secondary", text, &C::P1Secondary, L"192.0.2.1");
    Check(L"ClientIPAddress", text, &C::ClientIPAddress, L"kept", 1,
          {Line(3, 120200580, L"クライアントIPアドレスが設定されていません。")});
  }
  Check(L"P1Secondary", L"\" b \"", &C::P1Secondary, L"b");
  Check(L"ClientIPAddress", L"\" b \"", &C::ClientIPAddress, L"b");
  const std::wstring long_text(1023, L'1');  // more is not seen
  Check(L"P1Secondary", (long_text + L"2").c_str(), &C::P1Secondary, long_text);

  // A copy of P1 also when that failed.
  good_.erase(L"P1Secondary");
  setting_.P1 = L"earlier";
  Write(L"P1");
  EXPECT_EQ(setting_.Read(0), 0);
  EXPECT_EQ(setting_.P1Secondary, L"earlier");
}

TEST_F(ClientSettingReadTest, CardSystemCode) {
  const auto check = [this](const wchar_t* text, const std::wstring& code, int result,
                            const Lines& lines) {
    Check(L"SharedPCCardSystemCode", text, &C::SharedPCCardSystemCode, code, result, lines);
  };
  before_.SharedPCCardSystemCode = L"FE00";
  for (const wchar_t* text : kNoText) check(text, L"", 1, {});
  for (const auto& [text, code] : {std::pair{L"fe00", L"FE00"}, {L"\" 9aF \"", L"9AF"}}) {
    check(text, code, 1, {Line(2, 0, L"[カードシステムコード] 設定値:[" + CString(code) + L"]")});
  }
  for (const auto& [text, shown] :
       {std::pair{L"12345", L"12345"}, {L"fg", L"FG"}, {L"ａ", L"Ａ"}, {L"1 2", L"1 2"}}) {
    check(text, L"", 0, {Line(4, 120200720, Bad(L"カードシステムコード", shown))});
  }
}

// ---- Directories ----

TEST_F(ClientSettingReadTest, DirectoriesThatFail) {
  WriteNative(native("file"), "x");
  const LogLine nothing =
      Line(5, 120200620, L"ファイルの存在確認に失敗しました。", L"IsDirectry", 3);
  for (const DirectoryKey& key : KeysOf<DirectoryKey>()) {
    before_.*key.member = L"earlier";
    const auto check = [&](const wchar_t* text, int number, const std::wstring& message,
                           const std::wstring& event, Lines lines = {}) {
      const bool is_fatal = lines.empty() || !key.traits.is_job_transfer;
      lines.push_back(Line(4, number, message));
      Check(key.key, text, key.member, DefaultOf(key), is_fatal ? 0 : 1, lines,
            {{key.traits.event_id, event}});
    };
    const wchar_t* const event = key.traits.missing_event;
    for (const wchar_t* missing : kMissing) {
      check(missing, key.missing, key.missing_text, event ? event : key.missing_text);
    }
    const std::wstring bad = Bad(key.label, L"");
    for (const wchar_t* blank : {L"\"  \"", L"\u3000"}) check(blank, key.blank, bad, bad);

    if (key.place == Place::kServer) continue;
    for (const auto& [value, code] : {std::pair{path(L"file"), 183}, {path(L"no\\parent"), 3}}) {
      const std::wstring text = L"ディレクトリの存在確認及び、作成処理に失敗しました。[" +
                                std::wstring(key.label) + L"] 設定値:[" + value + L"]";
      Lines lines = {Line(5, 120200600, L"システムディレクトリの作成に失敗しました。：" + value,
                          L"CheckExistDirectry", code)};
      if (code == 3) lines.insert(lines.begin(), nothing);
      check((value + L"\\").c_str(), key.not_creatable, text, text, lines);
    }
  }
  EXPECT_FALSE(ExistsNative(native("volumes"))) << "no default is made";
}

TEST_F(ClientSettingReadTest, DirectoriesThatAreThere) {
  const std::wstring there = path(L"there");
  std::filesystem::create_directory(native("there"));
  for (const DirectoryKey& key : KeysOf<DirectoryKey>()) {
    const std::wstring kept = key.place == Place::kServer ? L"\\" : L"";
    Check(key.key, (L"\" " + there + L" \"").c_str(), key.member, there);
    Check(key.key, (there + L"\\").c_str(), key.member, there + kept);
    Check(key.key, (there + L"\\\\").c_str(), key.member, there + L"\\" + kept);
  }
}

TEST_F(ClientSettingReadTest, ADirectoryIsMadeForTheUsers) {
  const std::wstring made = path(L"made");
  Write(L"NemiInfoDir", (made + L"\\").c_str());
  EXPECT_EQ(setting_.Read(1), 1);
  EXPECT_EQ(setting_.NemiInfoDir, made);
  EXPECT_EQ(log_.events(), Events{});
  Lines lines = {Line(5, 120200620, L"ファイルの存在確認に失敗しました。", L"IsDirectry", 2)};
  AccessList list;
  ASSERT_EQ(ReadAccessList(made, list), SecurityStep::kNone);
  for (const wchar_t* name : {L"users", L"power users"}) {
    AccountId account;
    if (LookUpAccount(name, account) == SecurityStep::kNone) {
      EXPECT_THAT(list.entries,
                  ::testing::Contains(::testing::Field(&AccessEntry::account, account)));
    } else {  // a machine without the group: the attempt leaves a line
      lines.push_back({2, 0, L"CUtil::SetFileAccess", L"SID取得失敗", {}, 1332});
    }
  }
  lines.push_back(Line(3, 120200610, L"システムディレクトリを作成しました。：" + made,
                       L"CheckExistDirectry", lines.back().code));
  EXPECT_EQ(log_.lines(), lines);
}

// ---- The whole file ----

// The lines and the events of a reading, as client_ini_log.txt has them.
std::string Recorded(const LogRecorder& log) {
  std::wstring text;
  for (const LogLine& line : log.lines()) {
    EXPECT_EQ(line, Line(line.level, line.number, line.message));
    text += Format(L"%d %d %s\n", line.level, line.number, line.message);
  }
  for (const auto& [id, message, is_shared] : log.events()) {
    text += (id == kEventError ? L"error " : id == kEventWarning ? L"warning " : L"? ") + message;
    text += is_shared ? L" (shared)\n" : L"\n";
  }
  return ToUtf8(text);
}

// First without a file, then with one that has a blank in each text.
TEST_F(ClientSettingReadTest, EveryKeyIsVisitedInItsOrder) {
  EXPECT_EQ(setting_.Read(1), 0);
  EXPECT_FALSE(ExistsNative(product_native("config/Client.ini")));
  const std::string missing = Recorded(log_);
  for (const auto& key : KeysOf<RequiredTextKey>()) {
    good_[key.key] = key.form == Form::kEnciphered ? Enciphered(L" ") : L"\" \"";
  }
  for (const auto& key : KeysOf<DirectoryKey>()) good_[key.key] = L"\" \"";
  Write();
  EXPECT_EQ(setting_.Read(1), 0);
  EXPECT_EQ(missing + Recorded(log_),
            ReadNative(std::string(TQ_TEST_DATA) + "/client_ini_log.txt"));
}

TEST_F(ClientSettingReadTest, TheJobTransferGroupKeepsItsValuesUnlessModeIsOne) {
  CString C::*const group[] = {&C::LomuInfoDir, &C::CertLomuInfoDir, &C::LomuManageDir,
                               &C::JobTransDir, &C::LomuServerDir};
  for (CString C::*const member : group) before_.*member = L"earlier";
  for (const auto& [mode, lines, events] :
       {std::tuple{0, 43U, 15U}, std::tuple{1, 48U, 20U}, std::tuple{2, 43U, 15U}}) {
    log_.Clear();
    setting_ = before_;
    EXPECT_EQ(setting_.Read(mode), 0);
    EXPECT_EQ(log_.lines().size(), lines);
    EXPECT_EQ(log_.events().size(), events);
    for (CString C::*const member : group) EXPECT_EQ(setting_.*member == L"earlier", mode != 1);
  }
}

TEST_F(ClientSettingReadTest, ConstructorValues) {
  const C setting;
  EXPECT_TRUE(setting.SharedPC && setting.SharedPrinter);
  EXPECT_FALSE(setting.SharedPrinterUserType || setting.SelectIPorHost);
  EXPECT_EQ(setting.NupSetting, L"1,2,4,6,9,16");
  EXPECT_EQ(setting.TonerSaveDisp + setting.FontImageDisp, 2);
  EXPECT_EQ(setting.NameTray1 + setting.NameTray2 + setting.NameTray3, L"トレイ1トレイ2トレイ3");
  EXPECT_EQ(setting.ValidPrimaryAP + setting.ValidPrimaryPS + setting.ServerAutoSetting, 3);
  // Most numbers start with the default of Read.
  for (const NumberKey& key : KeysOf<NumberKey>()) {
    const std::wstring_view name = key.key;
    const bool is_zero = name == L"SharedPrinterTransTimeout" || name == L"PrinterInfoCycle";
    std::visit([&](auto member) { EXPECT_EQ(setting.*member, is_zero ? 0 : key.default_value); },
               key.member);
  }
}

}  // namespace
}  // namespace vk::tq::testing
