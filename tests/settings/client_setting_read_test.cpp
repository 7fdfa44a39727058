#include <filesystem>
#include <map>

#include "platform/file_security.h"
#include "platform/text.h"
#include "settings/client_setting_table.h"
#include "storage/crypto.h"
#include "support/test_support.h"

// The rows of settings/client_setting_table.h say which keys there are. That they are the right
// ones is shown by tests/data/client_ini_log.txt.
namespace vk::tq::testing {
namespace {

using namespace client_keys;
using namespace std::string_view_literals;

LogLine Line(int level, int number, const std::wstring& message, const wchar_t* operation = L"Read",
             std::optional<int> code = {}) {
  return {level, number, CString(L"CClientSetting::") + operation, message, {}, code};
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

  // The member of a key.
  std::wstring ValueOf(std::wstring_view name) const {
    std::wstring text;
    const auto show = [&](const auto& value) {
      if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>) {
        text = std::to_wstring(value);
      } else {
        text = value;
      }
    };
    const auto show_member = [&](const auto& key) {
      if (key.key != name) return;
      if constexpr (requires { key.accepted; }) {
        std::visit([&](auto member) { show(setting_.*member); }, key.member);
      } else {
        show(setting_.*key.member);
      }
    };
    for (const ClientKey& key : kClientKeys) std::visit(show_member, key);
    return text;
  }

  // Reads a file in which one key alone is not good, into a copy of before_. Gives the result, the
  // key's member, the lines and the events; of a message with values, the last of them.
  std::wstring Reading(const std::wstring& key, const wchar_t* value) {
    Write(key, value);
    setting_ = before_;
    const int result = setting_.Read(1);
    std::wstring text = Format(L"%d %s", result, ValueOf(key));
    const auto end = [](const CString& message) {
      return message.substr(message.ends_with(L']') ? message.rfind(L'[') : 0);
    };
    for (const LogLine& line : log_.lines()) {
      text += Format(L", %d %d %s", line.level, line.number, end(line.message));
    }
    for (const Event& event : log_.events()) {
      text += (event.id == kEventError ? L", error " : L", warning ") + end(event.message);
    }
    return text;
  }

  // A value for every key that leaves no line.
  std::map<std::wstring, std::wstring> good_;
  C before_;
  C setting_;
};

// ---- Single keys ----

TEST_F(ClientSettingReadTest, EachShapeHasItsRules) {
  before_.P4 = 77;
  before_.SharedPC = true;
  before_.ClientIPAddress = L"kept";
  before_.SharedPCCardSystemCode = L"FE00";
  const std::wstring longest(1023, L'1');
  const std::wstring too_long = longest + L"2";
  const std::tuple<const wchar_t*, std::vector<const wchar_t*>, std::wstring> cases[] = {
      {L"SocketBackLog", {nullptr, L"\"  \"", L"-1"}, L"1 20, 3 120200530 [20]"},
      {L"SocketBackLog", {L"+1", L"1.5", L"１２", L"12a"}, L"1 20, 3 120200530 [20]"},
      {L"SocketBackLog", {L"\" 001 \""}, L"1 1"},
      {L"SocketBackLog", {L"0"}, L"1 20, 3 120200540 [0]"},
      {L"SocketBackLog", {L"2001"}, L"1 20, 3 120200540 [2001]"},
      {L"SharedTimeout", {L"99999999999"}, L"1 2147483647"},
      {L"P4", {nullptr}, L"1 77, 3 120200100 [3]"},
      {L"P4", {L"255"}, L"1 255"},
      {L"P4", {L"256"}, L"1 20, 3 120200110 [256]"},
      {L"ValidPrimaryAP", {nullptr}, L"1 1"},
      {L"ValidPrimaryAP", {L"-12abc"}, L"1 -12"},
      {L"ValidPrimaryPS", {nullptr}, L"1 1"},
      {L"ServerAutoSetting", {nullptr}, L"1 0"},
      {L"SharedPCInputUserIDArch", {nullptr}, L"1 0"},
      {L"SharedPrinter", {L"0x"}, L"1 0"},
      {L"SharedPrinter", {L"1 no"}, L"1 1"},
      {L"SharedPrinter", {nullptr}, L"1 1, 3 120200520 [1]"},
      {L"SharedPrinter", {L"\" 1\"", L"2", L"１"}, L"1 1, 3 120200510 [1]"},
      // Without a default it keeps its value; it passes over an empty text.
      {L"SharedPC", {nullptr}, L"1 1"},
      {L"SharedPC", {L"2"}, L"1 1, 3 120200010 [2]"},
      {L"P1", {L"\" a b \""}, L"1 a b"},
      {L"P1Secondary", {nullptr, L"\"  \""}, L"1 192.0.2.1"},
      {L"P1Secondary", {too_long.c_str()}, L"1 " + longest},  // more is not seen
      {L"ClientIPAddress",
       {nullptr, L"\"  \""},
       L"1 kept, 3 120200580 クライアントIPアドレスが設定されていません。"},
      {L"ClientIPAddress", {L"\" b \""}, L"1 b"},
      {L"SharedPCCardSystemCode", {nullptr}, L"1 "},
      {L"SharedPCCardSystemCode", {L"\" 9aFe \""}, L"1 9AFE, 2 0 [9AFE]"},
      {L"SharedPCCardSystemCode", {L"12345"}, L"0 , 4 120200720 [12345]"},
      {L"SharedPCCardSystemCode", {L"ａ"}, L"0 , 4 120200720 [Ａ]"}};
  for (const auto& [key, values, left] : cases) {
    for (const wchar_t* value : values) {
      EXPECT_EQ(Reading(key, value), left) << ToUtf8(key) << " = " << (value ? ToUtf8(value) : "");
    }
  }
}

TEST_F(ClientSettingReadTest, TheFtpAccount) {
  EXPECT_EQ(Reading(L"P2", ToUpper(Enciphered(L" U SER ")).c_str()), L"1 U SER");
  EXPECT_EQ(setting_.P3, L"geheim 秘密");

  // What is no hexadecimal digit counts as 0, and an odd digit is the high half of a byte.
  const CByteArray bytes{0x40, 0xFA, 0x10};
  EXPECT_EQ(Reading(L"P2", L"4Gfa1"), L"1 " + Trim(CCrypto().DecryptByTripleDESToByteArray(bytes)));

  // No key can be made from this key file: both are blank, and all other keys are read.
  WriteKeyFile(std::string(34, 'x'));
  EXPECT_EQ(Reading(L"ServiceSocket", L"7"),
            L"0 7, 4 120200070 [], 4 120200090 [], error [], error []");
  EXPECT_EQ(setting_.P2 + setting_.P3, L"");
}

// ---- Directories ----

TEST_F(ClientSettingReadTest, Directories) {
  const std::wstring file = path(L"file");
  const std::wstring there = path(L"there");
  WriteNative(native("file"), "x");
  std::filesystem::create_directory(native("there"));
  for (const DirectoryKey& key : KeysOf<DirectoryKey>()) {
    const bool is_local = key.place == Place::kLocal;
    EXPECT_EQ(Reading(key.key, (L"\" " + there + L" \"").c_str()), L"1 " + there);
    EXPECT_EQ(Reading(key.key, (there + L"\\\\").c_str()),
              L"1 " + there + (is_local ? L"\\" : L"\\\\"));
    if (!is_local) continue;
    const std::wstring result = key.traits.is_job_transfer ? L"1 " : L"0 ";
    EXPECT_TRUE(Reading(key.key, file.c_str()).starts_with(result + DefaultOf(key) + L", 5 "));
    EXPECT_EQ(log_.lines()[0].code, 183);
  }
  EXPECT_FALSE(ExistsNative(native("volumes"))) << "no default is made";
}

TEST_F(ClientSettingReadTest, ADirectoryIsMadeForTheUsers) {
  const std::wstring made = path(L"made");
  EXPECT_EQ(Reading(L"NemiInfoDir", (made + L"\\").c_str()).substr(0, made.size() + 2),
            L"1 " + made);
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
    const std::size_t method = line.function.rfind(L':') + 1;
    const CString operation = line.function.substr(method);
    EXPECT_EQ(line, Line(line.level, line.number, line.message, operation.c_str(), line.code));
    text += Format(L"%d %d %s\n", line.level, line.number, line.message);
  }
  for (const auto& [id, message, is_shared] : log.events()) {
    text += (id == kEventError ? L"error " : id == kEventWarning ? L"warning " : L"? ") + message;
    text += is_shared ? L" (shared)\n" : L"\n";
  }
  return ToUtf8(text);
}

// The greatest number that each key takes; the others take any.
constexpr std::pair<const wchar_t*, long long> kMost[] = {{L"ServiceSocket", 65535},
                                                          {L"SharedPrinterTransRetry", 255},
                                                          {L"SocketBackLog", 2000},
                                                          {L"PrinterInfoFtpRetry", 255},
                                                          {L"PrinterInfoFtpRetryInterval", 60000},
                                                          {L"PrinterInfoCycle", 360000},
                                                          {L"FtpSizeCheck", 3},
                                                          {L"FtpConnectRetryInterval", 2147483646},
                                                          {L"FQDNTryCount", 2147483646},
                                                          {L"FQDNExpirationMinute", 2147483646},
                                                          {L"EnableUpdateDevmode", 1},
                                                          {L"PrintJobInfoDispUserName", 1}};

// Without a file; with one that has a blank in each text; with one that has 2147483647 for each
// number, a letter for each flag, and directories that cannot be made.
TEST_F(ClientSettingReadTest, EveryKeyIsVisitedInItsOrder) {
  setting_.P1 = setting_.P2 = setting_.P3 = L"kept";
  EXPECT_EQ(setting_.Read(1), 0);
  EXPECT_FALSE(ExistsNative(product_native("config/Client.ini")));
  EXPECT_EQ(setting_.P1 + setting_.P2 + setting_.P3, L"keptkeptkept");
  std::string recorded = Recorded(log_);
  const auto good = good_;
  std::wstring directories;
  good_[L"P1"] = L"\" \"";
  good_[L"P2"] = good_[L"P3"] = Enciphered(L" ");
  for (const auto& key : KeysOf<DirectoryKey>()) {
    EXPECT_EQ(setting_.*key.member, DefaultOf(key));
    directories += std::wstring(key.default_name) + L" ";
    good_[key.key] = L"\" \"";
  }
  EXPECT_EQ(directories,
            L"NemiInf NemiInfCert NemiManage LomuInf LomuInfCert LomuManage JobTrans /LomuRecv "
            L"EMGWork EMGTrans /EMG Data PrinterInfoWork PrinterInfoTrans PrinterInfo ");
  Write();
  EXPECT_EQ(setting_.Read(1), 0);
  EXPECT_EQ(setting_.P1 + setting_.P2 + setting_.P3, L"");
  recorded += Recorded(log_);
  good_ = good;
  for (const auto& key : KeysOf<NumberKey>()) good_[key.key] = L"2147483647";
  for (const auto& key : KeysOf<FlagKey>()) good_[key.key] = L"x";
  for (const auto& key : KeysOf<DirectoryKey>()) good_[key.key] = L"C:\\No\\Parent";
  Write();
  EXPECT_EQ(setting_.Read(1), 0);
  recorded += Recorded(log_);
  EXPECT_EQ(recorded, ReadNative(TQ_TEST_DATA "/client_ini_log.txt"));
}

TEST_F(ClientSettingReadTest, NumbersHaveTheirLimits) {
  for (const auto& [key, most] : kMost) {
    EXPECT_EQ(Reading(key, std::to_wstring(most).c_str()), L"1 " + std::to_wstring(most));
    Reading(key, std::to_wstring(most + 1).c_str());
    EXPECT_EQ(log_.lines().size(), 1U) << ToUtf8(key);
  }
  for (const NumberKey& key : KeysOf<NumberKey>()) {
    const bool takes_none = key.key == L"SocketBackLog"sv || key.key == L"FQDNTryCount"sv;
    EXPECT_EQ(Reading(key.key, L"0").starts_with(L"1 0"), !takes_none) << ToUtf8(key.key);
  }
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
