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

std::wstring Default(const std::wstring& label, long long value) {
  return Bad(label, std::to_wstring(value), L"デフォルト値を使用します。");
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
    for (const wchar_t* text : {L"\"  \"", L"-1", L"+1", L"1.5", L"１２", L"12a"}) {
      warned(text, number.not_a_number, number.default_value);
    }
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
  Check(L"P4", nullptr, &C::P4, 77, 1, {Line(3, 120200100, Default(label, 3))});
  Check(L"P4", L"255", &C::P4, 255);
  Check(L"P4", L"256", &C::P4, 20, 1, {Line(3, 120200110, Default(label, 256))});
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
      Check(flag.key, L"0x", flag.member, false);
      Check(flag.key, L"1 no", flag.member, true);
      const bool used = flag.default_value.value_or(before);
      for (const std::wstring text : {L"", L" 1", L"2", L"１"}) {
        const std::wstring shown = flag.default_value ? std::to_wstring(used) : text;
        Lines lines = {Line(3, text.empty() ? flag.empty : flag.bad,
                            Bad(flag.label, shown, L"デフォルト値を使用します。"))};
        if (shown.empty()) lines.clear();
        Check(flag.key, (L"\"" + text + L"\"").c_str(), flag.member, used, 1, lines);
      }
    }
  }
}

// ---- Texts ----

TEST_F(ClientSettingReadTest, TheFtpAccount) {
  Check(L"P2", ToUpper(Enciphered(L" U SER ")).c_str(), &C::P2, L"U SER");
  EXPECT_EQ(setting_.P3, L"geheim 秘密");

  // What is no hexadecimal digit counts as 0, and an odd digit is the high half of a byte.
  const CByteArray bytes{0x40, 0xFA, 0x10};
  Check(L"P2", L"4Gfa1", &C::P2, Trim(CCrypto().DecryptByTripleDESToByteArray(bytes)));

  // No key can be made from this key file: both are blank, and all other keys are read.
  WriteKeyFile(std::string(34, 'x'));
  Check(L"", nullptr, &C::ServiceSocket, 1, 0,
        {Line(4, 120200070, Bad(L"ＦＴＰユーザ名", L"")),
         Line(4, 120200090, Bad(L"ＦＴＰパスワード", L""))},
        {{kEventError, Bad(L"ＦＴＰユーザ名", L"")}, {kEventError, Bad(L"ＦＴＰパスワード", L"")}});
  EXPECT_EQ(setting_.P3, L"");
}

TEST_F(ClientSettingReadTest, Texts) {
  Check(L"P1", L"\" a b \"", &C::P1, L"a b");
  before_.ClientIPAddress = L"kept";
  for (const wchar_t* text : {L"", L"\"  \""}) {
    Check(L"P1Secondary", text, &C::P1Secondary, L"192.0.2.1");
    Check(L"ClientIPAddress", text, &C::ClientIPAddress, L"kept", 1,
          {Line(3, 120200580, L"クライアントIPアドレスが設定されていません。")});
  }
  Check(L"ClientIPAddress", L"\" b \"", &C::ClientIPAddress, L"b");
  const std::wstring long_text(1023, L'1');  // more is not seen
  Check(L"P1Secondary", (long_text + L"2").c_str(), &C::P1Secondary, long_text);
}

TEST_F(ClientSettingReadTest, CardSystemCode) {
  const auto check = [this](const wchar_t* text, const std::wstring& code, int result,
                            const Lines& lines) {
    Check(L"SharedPCCardSystemCode", text, &C::SharedPCCardSystemCode, code, result, lines);
  };
  before_.SharedPCCardSystemCode = L"FE00";
  check(nullptr, L"", 1, {});
  check(L"\" 9aFe \"", L"9AFE", 1, {Line(2, 0, L"[カードシステムコード] 設定値:[9AFE]")});
  for (const auto& [text, shown] :
       {std::pair{L"12345", L"12345"}, {L"fg", L"FG"}, {L"ａ", L"Ａ"}}) {
    check(text, L"", 0, {Line(4, 120200720, Bad(L"カードシステムコード", shown))});
  }
}

// ---- Directories ----

TEST_F(ClientSettingReadTest, DirectoriesThatCannotBeMade) {
  const std::wstring file = path(L"file");
  WriteNative(native("file"), "x");
  for (const DirectoryKey& key : KeysOf<DirectoryKey>()) {
    if (key.place == Place::kServer) continue;
    const std::wstring text = L"ディレクトリの存在確認及び、作成処理に失敗しました。[" +
                              std::wstring(key.label) + L"] 設定値:[" + file + L"]";
    Check(key.key, (file + L"\\").c_str(), key.member, DefaultOf(key),
          key.traits.is_job_transfer ? 1 : 0,
          {Line(5, 120200600, L"システムディレクトリの作成に失敗しました。：" + file,
                L"CheckExistDirectry", 183),
           Line(4, key.not_creatable, text)},
          {{key.traits.event_id, text}});
  }
  EXPECT_FALSE(ExistsNative(native("volumes"))) << "no default is made";
}

TEST_F(ClientSettingReadTest, DirectoriesThatAreThere) {
  const std::wstring there = path(L"there");
  std::filesystem::create_directory(native("there"));
  for (const DirectoryKey& key : KeysOf<DirectoryKey>()) {
    const std::wstring kept = key.place == Place::kServer ? L"\\" : L"";
    Check(key.key, (L"\" " + there + L" \"").c_str(), key.member, there);
    Check(key.key, (there + L"\\\\").c_str(), key.member, there + L"\\" + kept);
  }
}

TEST_F(ClientSettingReadTest, ADirectoryIsMadeForTheUsers) {
  const std::wstring made = path(L"made");
  Write(L"NemiInfoDir", (made + L"\\").c_str());
  EXPECT_EQ(setting_.Read(1), 1);
  EXPECT_EQ(setting_.NemiInfoDir, made);
  AccountId users;
  AccessList list;
  ASSERT_EQ(LookUpAccount(L"users", users), SecurityStep::kNone);
  ASSERT_EQ(ReadAccessList(made, list), SecurityStep::kNone);
  EXPECT_THAT(list.entries, ::testing::Contains(::testing::Field(&AccessEntry::account, users)));
  const LogLine first = log_.lines().front();
  const LogLine last = log_.lines().back();
  EXPECT_EQ(first, Line(5, 120200620, L"ファイルの存在確認に失敗しました。", L"IsDirectry", 2));
  EXPECT_EQ(last, Line(3, 120200610, L"システムディレクトリを作成しました。：" + made,
                       L"CheckExistDirectry", last.code));
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
  setting_.P1 = setting_.P2 = setting_.P3 = L"kept";
  EXPECT_EQ(setting_.Read(1), 0);
  EXPECT_FALSE(ExistsNative(product_native("config/Client.ini")));
  EXPECT_EQ(setting_.P1 + setting_.P2 + setting_.P3, L"keptkeptkept");
  const std::string missing = Recorded(log_);
  good_[L"P1"] = L"\" \"";
  good_[L"P2"] = good_[L"P3"] = Enciphered(L" ");
  for (const auto& key : KeysOf<DirectoryKey>()) {
    EXPECT_EQ(setting_.*key.member, DefaultOf(key));
    good_[key.key] = L"\" \"";
  }
  Write();
  EXPECT_EQ(setting_.Read(1), 0);
  EXPECT_EQ(setting_.P1 + setting_.P2 + setting_.P3, L"");
  EXPECT_EQ(missing + Recorded(log_),
            ReadNative(std::string(TQ_TEST_DATA) + "/client_ini_log.txt"));
}

TEST_F(ClientSettingReadTest, TheJobTransferGroupKeepsItsValuesUnlessModeIsOne) {
  for (const int mode : {0, 1, 2}) {
    for (const DirectoryKey& key : KeysOf<DirectoryKey>()) setting_.*key.member = L"earlier";
    setting_.Read(mode);
    for (const DirectoryKey& key : KeysOf<DirectoryKey>()) {
      EXPECT_EQ(setting_.*key.member == L"earlier", key.traits.is_job_transfer && mode != 1);
    }
  }
}

}  // namespace
}  // namespace vk::tq::testing
