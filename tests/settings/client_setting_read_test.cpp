#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

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

std::wstring Enciphered(const CString& text) {
  CByteArray bytes;
  CCrypto().EncryptByTripleDesToByteArray(text, bytes);
  return FromUtf8(ToHex(
      {reinterpret_cast<const char*>(bytes.GetData()), static_cast<std::size_t>(bytes.GetSize())}));
}

class ClientSettingReadTest : public ProductTest {
 protected:
  using Texts = std::map<std::wstring, std::wstring>;

  ClientSettingReadTest() {
    WriteKeyFile();
    std::filesystem::create_directory(native("there"));
    for (const auto& [key, value] : Values()) good_[key] = IsDirectory(key) ? path(L"there") : L"1";
    good_[L"P1"] = L"192.0.2.1";
    good_[L"P2"] = Enciphered(L"ftpuser");
    good_[L"P3"] = Enciphered(L"geheim 秘密");
    good_.erase(L"SharedPCCardSystemCode");
  }

  static bool IsDirectory(const std::wstring& key) { return key.ends_with(L"Dir"); }

  // The members by their keys.
  Texts Values() const {
    Texts values;
    const auto show = [&](const auto& key) {
      std::wostringstream text;
      if constexpr (requires { key.accepted; }) {
        std::visit([&](auto member) { text << setting_.*member; }, key.member);
      } else {
        text << setting_.*key.member;
      }
      values[key.key] = text.str();
    };
    for (const ClientKey& key : kClientKeys) std::visit(show, key);
    return values;
  }

  int Read(const Texts& values) {
    std::wstring setting = L"[Setting]\n";
    std::wstring thread = L"[Thread]\n";
    for (const auto& [key, text] : values) {
      (key == L"PrinterInfoCycle" ? thread : setting) += key + L"=" + text + L"\n";
    }
    WriteNative(product_native("config/Client.ini"), ToUtf8(setting + thread));
    log_.Clear();
    return setting_.Read(1);
  }

  // Reads a file of good values but for one line, "key=value", or "key" to leave it out. Gives the
  // result, the key's member and the lines; of a message with values, the last of them.
  std::wstring Reading(const std::wstring& line) {
    const std::wstring key = line.substr(0, line.find(L'='));
    Texts values = good_;
    values.erase(key);
    if (key != line) values[key] = line.substr(key.size() + 1);
    setting_ = before_;
    const int result = Read(values);
    std::wstring text = Format(L"%d %s", result, Values()[key]);
    for (const LogLine& left : log_.lines()) {
      const std::size_t end = left.message.ends_with(L']') ? left.message.rfind(L'[') : 0;
      text += Format(L", %d %d %s", left.level, left.number, left.message.substr(end));
    }
    return text;
  }

  // A value for every key that leaves no line.
  Texts good_;
  C before_;
  C setting_;
};

TEST_F(ClientSettingReadTest, EachKeyHasItsRules) {
  before_.P4 = 77;
  before_.SharedPC = true;
  before_.ClientIPAddress = L"kept";
  before_.SharedPCCardSystemCode = L"FE00";
  std::ifstream rows(TQ_TEST_DATA "/client_ini_rules.txt");
  std::string told;
  for (std::string row; std::getline(rows, row);) {
    const std::string line = row.substr(0, row.find(" -> "));
    told += line + " -> " + ToUtf8(Reading(FromUtf8(line))) + "\n";
  }
  EXPECT_EQ(told, ReadNative(TQ_TEST_DATA "/client_ini_rules.txt"));
}

TEST_F(ClientSettingReadTest, TheFtpAccount) {
  EXPECT_EQ(Reading(L"P2=" + ToUpper(Enciphered(L" U SER "))), L"1 U SER");
  EXPECT_EQ(setting_.P3, L"geheim 秘密");
  // What is no hexadecimal digit counts as 0, and an odd digit is the high half of a byte.
  const CByteArray bytes{0x40, 0xFA, 0x10};
  EXPECT_EQ(Reading(L"P2=4Gfa1"), L"1 " + Trim(CCrypto().DecryptByTripleDESToByteArray(bytes)));
  // No key can be made from this key file: both are blank, and all other keys are read.
  WriteKeyFile(std::string(34, 'x'));
  EXPECT_EQ(Reading(L"ServiceSocket=7"), L"0 7, 4 120200070 [], 4 120200090 []");
  EXPECT_EQ(setting_.P2 + setting_.P3, L"");
}

TEST_F(ClientSettingReadTest, TheJobTransferGroupIsReadWithModeOneAlone) {
  std::wstring unread;
  for (const int mode : {0, 1, 2}) {
    setting_ = C();
    setting_.Read(mode);
    for (const auto& [key, value] : Values()) {
      if (IsDirectory(key) && value.empty()) unread += std::to_wstring(mode) + key + L" ";
    }
  }
  EXPECT_EQ(unread,
            L"0CertLomuInfoDir 0JobTransDir 0LomuInfoDir 0LomuManageDir 0LomuServerDir "
            L"2CertLomuInfoDir 2JobTransDir 2LomuInfoDir 2LomuManageDir 2LomuServerDir ");
}

TEST_F(ClientSettingReadTest, ADirectoryIsMadeForTheUsers) {
  const std::wstring made = path(L"made");
  EXPECT_TRUE(Reading(L"NemiInfoDir=" + made + L"\\").starts_with(L"1 " + made + L", "));
  AccountId users;
  AccessList list;
  ASSERT_EQ(LookUpAccount(L"users", users), SecurityStep::kNone);
  ASSERT_EQ(ReadAccessList(made, list), SecurityStep::kNone);
  EXPECT_THAT(list.entries, ::testing::Contains(::testing::Field(&AccessEntry::account, users)));
  EXPECT_EQ(log_.lines().back().message, L"システムディレクトリを作成しました。：" + made);
}

// What three readings log and leave in the members: without a file; of one that has a blank in each
// text; of one that has directories that cannot be made, and 2147483647 for numbers and flags.
TEST_F(ClientSettingReadTest, EveryKeyIsVisitedInItsOrder) {
  std::string recorded;
  const auto record = [&] {
    recorded += log_.text();
    for (const auto& [key, value] : Values()) recorded += ToUtf8(key + L"=" + value) + "\n";
  };
  setting_.P1 = setting_.P2 = setting_.P3 = L"kept";
  EXPECT_EQ(setting_.Read(1), 0);
  EXPECT_FALSE(ExistsNative(product_native("config/Client.ini")));
  record();
  Texts values = good_;
  values[L"P1"] = L"\" \"";
  values[L"P2"] = values[L"P3"] = Enciphered(L" ");
  for (auto& [key, value] : values) {
    if (IsDirectory(key)) value = L"\" \"";
  }
  EXPECT_EQ(Read(values), 0);
  record();
  values = good_;
  for (auto& [key, value] : values) {
    if (IsDirectory(key)) value = L"C:\\No\\Parent";
    if (value == L"1") value = L"2147483647";
  }
  EXPECT_EQ(Read(values), 0);
  record();
  EXPECT_EQ(recorded, ReadNative(TQ_TEST_DATA "/client_ini_log.txt"));
  EXPECT_FALSE(ExistsNative(native("volumes"))) << "no default is made";
}

}  // namespace
}  // namespace vk::tq::testing
