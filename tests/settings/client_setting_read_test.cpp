#include <filesystem>
#include <map>

#include "platform/file_security.h"
#include "platform/text.h"
#include "settings/client_setting_table.h"
#include "storage/crypto.h"
#include "support/test_support.h"

// The rows of settings/client_setting_table.h say which keys there are. That they are the right
// ones is shown by WithoutAFileEveryKeyIsVisitedInItsOrder and LabelsOfFailures, which have the
// texts, and by settings_document_test.cpp, which has the other numbers and the limits.
namespace vk::tq::testing {
namespace {

using namespace client_keys;
using Lines = std::vector<LogLine>;
using Events = std::vector<Event>;

constexpr unsigned long kError = 0xC0004000;
constexpr unsigned long kWarning = 0x80003000;

LogLine Line(int level, int number, const std::wstring& message, const wchar_t* operation = L"Read",
             std::optional<int> code = {}) {
  return {level, number, CString(L"CClientSetting::") + operation, message, {}, code};
}

std::wstring Default(const std::wstring& label, long long value) {
  return L"設定値が異常です。デフォルト値を使用します。[" + label + L"] 設定値:[" +
         std::to_wstring(value) + L"]";
}

std::wstring Bad(const std::wstring& label, const std::wstring& value) {
  return L"設定値が異常です。[" + label + L"] 設定値:[" + value + L"]";
}

// A path of the default directories.
std::wstring Literal(const std::wstring& name) {
  return L"C:\\Documents and Settings\\All Users\\Application Data\\ORV-INC\\Velkorandia\\"
         L"Tessaloquin\\" +
         name;
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
  return key.place == Place::kLocal ? Literal(key.default_name) : key.default_name;
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
    std::wstring text = L"[Setting]\n";
    for (const auto& [name, good] : good_) {
      if (name != key && name != L"PrinterInfoCycle") text += name + L"=" + good + L"\n";
    }
    const bool in_thread = key == L"PrinterInfoCycle";
    const std::wstring entry = value != nullptr ? key + L"=" + value + L"\n" : L"";
    if (!in_thread) text += entry;
    text += L"[Thread]\n" + (in_thread ? entry : L"PrinterInfoCycle=1\n");
    WriteNative(product_native("config/Client.ini"), ToUtf8(text));
    log_.Clear();
  }

  // Reads a file in which one key alone is not good, and compares what that gives.
  void Check(const std::wstring& key, const wchar_t* value, int result, const Lines& lines,
             const Events& events) {
    SCOPED_TRACE(ToUtf8(key) + " = " + (value ? ToUtf8(value) : "(missing)"));
    Write(key, value);
    EXPECT_EQ(setting_.Read(1), result);
    EXPECT_EQ(log_.lines(), lines);
    EXPECT_EQ(log_.events(), events);
  }

  // As Check, with a fresh object and the value of a member.
  template <class Member, class Expected>
  void CheckMember(const std::wstring& key, const wchar_t* value, Member member,
                   const Expected& expected, int result, const Lines& lines,
                   const Events& events = {}) {
    setting_ = C();
    Check(key, value, result, lines, events);
    EXPECT_EQ(setting_.*member, expected)
        << ToUtf8(key) << " = " << (value ? ToUtf8(value) : "(missing)");
  }

  // A value for every key that leaves no line.
  std::map<std::wstring, std::wstring> good_;
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
    const Events events = traits.event ? Events{{kWarning, traits.event}} : Events{};
    for (const wchar_t* text : kNoNumbers) {
      CheckMember(
          number.key, text, *member, number.default_value, 1,
          {Line(traits.level, number.not_a_number, Default(number.label, number.default_value))},
          events);
    }
    const auto [least, most] = number.accepted;
    for (const long long value : {0LL, 1LL, 0LL + most, 1LL + most, kMax, 99999999999LL}) {
      const long long seen = std::min(value, kMax);
      const std::wstring text = L"\" 00" + std::to_wstring(value) + L" \"";
      if (seen >= least && seen <= most) {
        CheckMember(number.key, text.c_str(), *member, seen, 1, {});
        continue;
      }
      const long long shown = traits.hides_value ? number.default_value : seen;
      CheckMember(number.key, text.c_str(), *member, number.default_value, 1,
                  {Line(traits.level, number.out_of_limit, Default(number.label, shown))}, events);
    }
  }
}

TEST_F(ClientSettingReadTest, P4IsAByteWithRulesOfItsOwn) {
  const std::wstring label = L"ＦＴＰリトライ回数";
  for (const wchar_t* text : kNoNumbers) {
    setting_.P4 = 77;
    Check(L"P4", text, 1, {Line(3, 120200100, Default(label, 3))}, {});
    EXPECT_EQ(setting_.P4, 77) << "the member keeps what it held";
  }
  CheckMember(L"P4", L"0", &C::P4, 0, 1, {});
  CheckMember(L"P4", L"255", &C::P4, 255, 1, {});
  CheckMember(L"P4", L"256", &C::P4, 20, 1, {Line(3, 120200110, Default(label, 256))});
  CheckMember(L"P4", L"99999999999", &C::P4, 20, 1, {Line(3, 120200110, Default(label, kMax))});
}

TEST_F(ClientSettingReadTest, PlainIntegersTakeWhatTheyFind) {
  for (const IntegerKey& key : KeysOf<IntegerKey>()) {
    CheckMember(key.key, nullptr, key.member, key.default_value, 1, {});
    CheckMember(key.key, L"abc", key.member, 0, 1, {});
    CheckMember(key.key, L"-12abc", key.member, -12, 1, {});
  }
}

// ---- Flags ----

TEST_F(ClientSettingReadTest, Flags) {
  for (const FlagKey& flag : KeysOf<FlagKey>()) {
    for (const wchar_t* text : {L"0", L"0x", L"01"}) {
      CheckMember(flag.key, text, flag.member, false, 1, {});
    }
    for (const wchar_t* text : {L"1", L"10", L"1 no"}) {
      CheckMember(flag.key, text, flag.member, true, 1, {});
    }
    if (!flag.default_value) continue;
    const auto warned = [&](const wchar_t* text, int number) {
      setting_.*flag.member = !*flag.default_value;
      Check(flag.key, text, 1, {Line(3, number, Default(flag.label, *flag.default_value))}, {});
      EXPECT_EQ(setting_.*flag.member, *flag.default_value) << ToUtf8(flag.key);
    };
    warned(nullptr, flag.empty);
    warned(L"", flag.empty);
    for (const wchar_t* text : {L"\" 1\"", L"2", L"true", L"-1", L"１"}) warned(text, flag.bad);
  }
}

TEST_F(ClientSettingReadTest, SharedPcKeepsItsValue) {
  for (const bool held : {false, true}) {
    for (const wchar_t* text :
         {static_cast<const wchar_t*>(nullptr), L"", L"2", L"2 x", L"yes", L"０"}) {
      const bool is_empty = text == nullptr || *text == L'\0';
      const auto warning = [&] {
        return Line(3, 120200010,
                    L"設定値が異常です。デフォルト値を使用します。[共有ＰＣ設定] 設定値:[" +
                        std::wstring(text) + L"]");
      };
      setting_.SharedPC = held;
      Check(L"SharedPC", text, 1, is_empty ? Lines{} : Lines{warning()}, {});
      EXPECT_EQ(setting_.SharedPC, held);
    }
  }
}

// ---- Texts ----

TEST_F(ClientSettingReadTest, RequiredTexts) {
  for (const RequiredTextKey& text : KeysOf<RequiredTextKey>()) {
    const auto stored = [&](const std::wstring& value) {
      return text.form == Form::kEnciphered ? Enciphered(value) : L"\"" + value + L"\"";
    };
    for (const wchar_t* missing : {static_cast<const wchar_t*>(nullptr), L""}) {
      setting_.*text.member = L"kept";
      Check(text.key, missing, 0, {Line(4, text.missing, text.missing_text)},
            {{kError, text.missing_text}});
      EXPECT_EQ(setting_.*text.member, L"kept");
    }
    for (const wchar_t* blank : {L" \t", L"\u3000"}) {
      CheckMember(text.key, stored(blank).c_str(), text.member, L"", 0,
                  {Line(4, text.blank, Bad(text.label, L""))}, {{kError, Bad(text.label, L"")}});
    }
    CheckMember(text.key, stored(L" a b ").c_str(), text.member, L"a b", 1, {});
  }
}

TEST_F(ClientSettingReadTest, TheFtpAccount) {
  CheckMember(L"P2", Enciphered(L"").c_str(), &C::P2, L"", 0,
              {Line(4, 120200070, Bad(L"ＦＴＰユーザ名", L""))},
              {{kError, Bad(L"ＦＴＰユーザ名", L"")}});
  EXPECT_EQ(setting_.P3, L"geheim 秘密");
  CheckMember(L"P2", ToUpper(Enciphered(L"USER")).c_str(), &C::P2, L"USER", 1, {});

  // What is no hexadecimal digit counts as 0, and an odd digit is the high half of a byte.
  const auto plain = [](std::initializer_list<unsigned char> bytes) {
    return CCrypto().DecryptByTripleDESToByteArray(CByteArray(bytes));
  };
  CheckMember(L"P2", L"4Gfa1", &C::P2, Trim(plain({0x40, 0xFA, 0x10})), 1, {});

  // No key can be made from this key file: both are blank, and all other keys are read.
  WriteKeyFile(std::string(34, 'x'));
  Write();
  EXPECT_EQ(setting_.Read(1), 0);
  EXPECT_EQ(setting_.P3, L"");
  EXPECT_EQ(setting_.ServiceSocket, 1);
  EXPECT_EQ(log_.lines(), (Lines{Line(4, 120200070, Bad(L"ＦＴＰユーザ名", L"")),
                                 Line(4, 120200090, Bad(L"ＦＴＰパスワード", L""))}));
}

TEST_F(ClientSettingReadTest, OptionalTexts) {
  for (const wchar_t* text : {static_cast<const wchar_t*>(nullptr), L"", L"\"  \""}) {
    CheckMember(L"P1Secondary", text, &C::P1Secondary, L"192.0.2.1", 1, {});
    setting_.ClientIPAddress = L"kept";
    Check(L"ClientIPAddress", text, 1,
          {Line(3, 120200580, L"クライアントIPアドレスが設定されていません。")}, {});
    EXPECT_EQ(setting_.ClientIPAddress, L"kept");
  }
  CheckMember(L"P1Secondary", L"\" b \"", &C::P1Secondary, L"b", 1, {});
  const std::wstring long_text(1023, L'1');  // more is not seen
  CheckMember(L"P1Secondary", (long_text + L"2").c_str(), &C::P1Secondary, long_text, 1, {});
  CheckMember(L"ClientIPAddress", L"\" b \"", &C::ClientIPAddress, L"b", 1, {});

  // A copy of P1 also when that failed.
  good_.erase(L"P1Secondary");
  setting_.P1 = L"earlier";
  Write(L"P1");
  EXPECT_EQ(setting_.Read(0), 0);
  EXPECT_EQ(setting_.P1Secondary, L"earlier");
}

TEST_F(ClientSettingReadTest, CardSystemCode) {
  const wchar_t* const key = L"SharedPCCardSystemCode";
  for (const wchar_t* text : {static_cast<const wchar_t*>(nullptr), L"", L"\"  \""}) {
    setting_.SharedPCCardSystemCode = L"FE00";
    Check(key, text, 1, {}, {});
    EXPECT_EQ(setting_.SharedPCCardSystemCode, L"");
  }
  for (const auto& [text, code] : {std::pair{L"fe00", L"FE00"}, {L"\" 9aF \"", L"9AF"}}) {
    CheckMember(key, text, &C::SharedPCCardSystemCode, code, 1,
                {Line(2, 0, L"[カードシステムコード] 設定値:[" + std::wstring(code) + L"]")});
  }
  for (const auto& [text, shown] :
       {std::pair{L"12345", L"12345"}, {L"fg", L"FG"}, {L"ａ", L"Ａ"}, {L"1 2", L"1 2"}}) {
    CheckMember(key, text, &C::SharedPCCardSystemCode, L"", 0,
                {Line(4, 120200720, Bad(L"カードシステムコード", shown))});
  }
}

// ---- Directories ----

TEST_F(ClientSettingReadTest, LabelsOfFailures) {
  std::vector<std::wstring> labels;
  for (const RequiredTextKey& key : KeysOf<RequiredTextKey>()) labels.push_back(key.label);
  for (const DirectoryKey& key : KeysOf<DirectoryKey>()) labels.push_back(key.label);
  EXPECT_THAT(
      labels,
      ::testing::ElementsAre(
          L"プリンタサーバＩＰアドレス", L"ＦＴＰユーザ名", L"ＦＴＰパスワード",
          L"ネミ印刷情報格納場所", L"認証中ネミ印刷情報格納場所", L"ネミ印刷管理ファイル格納場所",
          L"ロム印刷情報格納場所", L"認証中ロム印刷情報格納場所", L"ロム印刷管理ファイル格納場所",
          L"ジョブ転送ディレクトリ", L"ロムジョブ転送先ディレクトリ", L"緊急印刷ワークディレクトリ",
          L"緊急印刷転送ディレクトリ", L"緊急印刷ファイル転送先ディレクトリ",
          L"サービス参照ユーザ情報ディレクトリ", L"プリンタ情報一時ディレクトリ",
          L"プリンタ情報転送ディレクトリ", L"プリンタ情報転送先ディレクトリ"));
}

TEST_F(ClientSettingReadTest, DirectoriesThatAreMissingOrBlank) {
  for (const DirectoryKey& key : KeysOf<DirectoryKey>()) {
    const auto check = [&](const wchar_t* text, int number, const std::wstring& message,
                           const std::wstring& event) {
      setting_.*key.member = L"earlier";
      Check(key.key, text, 0, {Line(4, number, message)}, {{key.traits.event_id, event}});
      EXPECT_EQ(setting_.*key.member, DefaultOf(key));
    };
    const wchar_t* const event = key.traits.missing_event;
    check(nullptr, key.missing, key.missing_text, event ? event : key.missing_text);
    check(L"", key.missing, key.missing_text, event ? event : key.missing_text);
    const std::wstring blank = Bad(key.label, L"");
    check(L"\"  \"", key.blank, blank, blank);
    check(L"\u3000", key.blank, blank, blank);
  }
  EXPECT_FALSE(ExistsNative(native("volumes"))) << "no default is made";
}

TEST_F(ClientSettingReadTest, DirectoriesThatAreThere) {
  const std::wstring there = path(L"there");
  std::filesystem::create_directory(native("there"));
  for (const DirectoryKey& key : KeysOf<DirectoryKey>()) {
    CheckMember(key.key, (L"\" " + there + L" \"").c_str(), key.member, there, 1, {});
    const std::wstring kept = key.place == Place::kServer ? L"\\" : L"";
    CheckMember(key.key, (there + L"\\").c_str(), key.member, there + kept, 1, {});
    CheckMember(key.key, (there + L"\\\\").c_str(), key.member, there + L"\\" + kept, 1, {});
  }
}

TEST_F(ClientSettingReadTest, ADirectoryIsMadeForTheUsers) {
  const std::wstring made = path(L"made");
  Write(L"NemiInfoDir", (made + L"\\").c_str());
  EXPECT_EQ(setting_.Read(1), 1);
  EXPECT_EQ(setting_.NemiInfoDir, made);
  EXPECT_EQ(log_.events(), Events{});
  Lines lines = log_.lines();
  AccessList list;
  ASSERT_EQ(ReadAccessList(made, list), SecurityStep::kNone);
  for (const wchar_t* name : {L"users", L"power users"}) {
    AccountId account;
    if (LookUpAccount(name, account) == SecurityStep::kNone) {
      EXPECT_THAT(list.entries,
                  ::testing::Contains(::testing::Field(&AccessEntry::account, account)));
      continue;
    }
    // A machine without the group: the attempt leaves a line.
    ASSERT_GT(lines.size(), 1u);
    EXPECT_EQ(lines[1], (LogLine{2, 0, L"CUtil::SetFileAccess", L"SID取得失敗", {}, 1332}));
    lines.erase(lines.begin() + 1);
  }
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(lines[1].code.has_value());
  lines[1].code.reset();
  EXPECT_EQ(lines,
            (Lines{Line(5, 120200620, L"ファイルの存在確認に失敗しました。", L"IsDirectry", 2),
                   Line(3, 120200610, L"システムディレクトリを作成しました。：" + made,
                        L"CheckExistDirectry")}));
}

TEST_F(ClientSettingReadTest, DirectoriesThatCannotBeMade) {
  WriteNative(native("file"), "x");
  const auto failed = [](const std::wstring& value, int code) {
    return Line(5, 120200600, L"システムディレクトリの作成に失敗しました。：" + value,
                L"CheckExistDirectry", code);
  };
  const LogLine nothing =
      Line(5, 120200620, L"ファイルの存在確認に失敗しました。", L"IsDirectry", 3);
  for (const DirectoryKey& key : KeysOf<DirectoryKey>()) {
    if (key.place == Place::kServer) continue;
    const auto check = [&](const std::wstring& value, Lines lines) {
      const std::wstring text = L"ディレクトリの存在確認及び、作成処理に失敗しました。[" +
                                std::wstring(key.label) + L"] 設定値:[" + value + L"]";
      lines.push_back(Line(4, key.not_creatable, text));
      CheckMember(key.key, (value + L"\\").c_str(), key.member, DefaultOf(key),
                  key.traits.is_job_transfer ? 1 : 0, lines, {{key.traits.event_id, text}});
    };
    check(path(L"file"), {failed(path(L"file"), 183)});
    check(path(L"no\\parent"), {nothing, failed(path(L"no\\parent"), 3)});
  }
}

// ---- The whole file ----

TEST_F(ClientSettingReadTest, WithoutAFileEveryKeyIsVisitedInItsOrder) {
  for (const int mode : {0, 1, 2}) {
    Lines lines;
    Events events;
    const auto warning = [&](int number, const wchar_t* label, int value) {
      lines.push_back(Line(3, number, Default(label, value)));
    };
    const auto failure = [&](int number, const wchar_t* text, unsigned long id = kError,
                             const wchar_t* event = nullptr) {
      lines.push_back(Line(4, number, text));
      events.push_back({id, event ? event : text});
    };
    warning(120200020, L"サービスソケットサーバポート番号", 50514);
    failure(120200040, L"プリンタサーバＩＰが、設定されていません。");
    failure(120200060, L"ＦＴＰユーザ名が、設定されていません。");
    failure(120200080, L"ＦＴＰパスワードが、設定されていません。");
    warning(120200100, L"ＦＴＰリトライ回数", 3);
    failure(120200120, L"ネミ印刷情報ファイル格納ディレクトリが、設定されていません。");
    failure(120200150, L"認証中ネミ印刷情報ファイル格納ディレクトリが、設定されていません。");
    failure(120200180, L"ネミ印刷管理ファイル格納ディレクトリが、設定されていません。");
    if (mode == 1) {
      failure(120200210, L"ロム印刷情報ファイル格納ディレクトリが、設定されていません。");
      failure(120200240, L"認証中ロム印刷情報ファイル格納ディレクトリが、設定されていません。");
      failure(120200270, L"ロム印刷管理ファイル格納ディレクトリが、設定されていません。");
      failure(120200300, L"ジョブ転送ディレクトリが、設定されていません。");
      failure(120200390, L"ロムジョブ転送先ディレクトリが、設定されていません。");
    }
    failure(120200330, L"緊急印刷ワークディレクトリが、設定されていません。");
    failure(120200360, L"緊急印刷転送ディレクトリが、設定されていません。");
    failure(120200410, L"緊急印刷ファイル転送先ディレクトリが、設定されていません。");
    failure(120200430, L"サービス参照ユーザ情報ディレクトリが、設定されていません。");
    warning(120200460, L"共有プリンタファイル送信タイムアウト", 5000);
    warning(120200470, L"共有プリンタファイル送信リトライ回数", 3);
    warning(120200500, L"共有プリンタの通知ユーザ使用設定", 0);
    warning(120200520, L"共有プリンタ機能使用有無", 1);
    warning(120200530, L"サービスソケットサーバ バックログ数", 20);
    warning(120200560, L"ＩＰ／ＰＣ名切替", 0);
    warning(120200570, L"共有プリンタジョブ削除時間", 120);
    lines.push_back(Line(3, 120200580, L"クライアントIPアドレスが設定されていません。"));
    warning(120200590, L"クライアントIPアドレス監視周期", 30);
    warning(120200600, L"プリンタの権限方式", 0);
    warning(120200610, L"DeviceCapability取得インターバルタイマー値", 120);
    warning(120200620, L"トースト表示時間(印刷中)", 10);
    warning(120200620, L"トースト表示時間(以外)", 10);
    warning(120200620, L"共有PC設定のユーザ情報保持期間(秒)", 10);
    warning(120200620, L"共有プリンタのチェックループ間隔", 1000);
    warning(120200620, L"共有プリンタのプリンタ単位間隔", 0);
    failure(120200670, L"プリンタ情報一時ディレクトリが、設定されていません。", kWarning,
            L"プリンタ情報一時格納ディレクトリが、設定されていません。");
    failure(120200690, L"プリンタ情報転送ディレクトリが、設定されていません。", kWarning);
    failure(120200710, L"プリンタ情報転送先ディレクトリが、設定されていません。", kWarning);
    warning(120200730, L"プリンタ情報FTP接続送信リトライ回数", 6);
    events.push_back({kWarning, L"プリンタ情報FTP転送リトライ回数が、設定されていません。"});
    warning(120200740, L"プリンタ情報FTP接続送信リトライ間隔", 10000);
    events.push_back({kWarning, L"プリンタ情報FTP転送リトライ間隔が、設定されていません。"});
    warning(120200744, L"プリンタ情報スレッド間隔", 60000);
    warning(120200748, L"管理ファイル監視待機回数", 15);
    warning(120200748, L"ファイルロック失敗時のリトライ回数", 1);
    warning(120200748, L"共有プリンタキャンセル監視スレッドの監視間隔", 10000);
    warning(120200748, L"FTPサイズチェック区分", 2);
    warning(120200748, L"FTP接続リトライ間隔", 1000);
    warning(120200760, L"プリンタサーバのFQDNの取得試行回数", 3);
    warning(120200762, L"プリンタサーバのFQDNの有効期間", 60);
    warning(120200748, L"ロム仮想ドライバDevmode更新要否", 1);
    lines.push_back(Line(2, 120200752,
                         Default(L"印刷情報の表示画面のステータスバーへのユーザ名表示フラグ", 1)));
    log_.Clear();
    C setting;
    EXPECT_EQ(setting.Read(mode), 0);
    EXPECT_EQ(log_.lines(), lines) << mode;
    EXPECT_EQ(log_.events(), events) << mode;
    EXPECT_EQ(setting.JobTransDir, mode == 1 ? Literal(L"JobTrans") : L"");
    EXPECT_EQ(setting.LomuServerDir, mode == 1 ? L"/LomuRecv" : L"");
  }
  EXPECT_FALSE(ExistsNative(native("volumes")));
  EXPECT_FALSE(ExistsNative(product_native("config/Client.ini")));
}

TEST_F(ClientSettingReadTest, TheJobTransferGroupKeepsItsValuesUnlessModeIsOne) {
  Write();
  EXPECT_EQ(setting_.Read(1), 1);
  EXPECT_EQ(setting_.LomuServerDir, path(L"LomuServerDir"));
  for (const wchar_t* key :
       {L"LomuInfoDir", L"CertLomuInfoDir", L"LomuManageDir", L"JobTransDir", L"LomuServerDir"}) {
    good_.erase(key);
  }
  Write();
  EXPECT_EQ(setting_.Read(0), 1);
  EXPECT_EQ(log_.lines(), Lines{});
  EXPECT_EQ(setting_.LomuServerDir, path(L"LomuServerDir"));
  EXPECT_EQ(setting_.JobTransDir, path(L"JobTransDir"));
}

TEST_F(ClientSettingReadTest, ConstructorValues) {
  const C setting;
  EXPECT_TRUE(setting.SharedPC && setting.SharedPrinter);
  EXPECT_FALSE(setting.SharedPrinterUserType || setting.SelectIPorHost);
  EXPECT_EQ(setting.P4, 3);
  EXPECT_EQ(setting.NupSetting, L"1,2,4,6,9,16");
  EXPECT_EQ(setting.TonerSaveDisp + setting.FontImageDisp, 2);
  EXPECT_EQ(setting.NameTray1 + setting.NameTray2 + setting.NameTray3, L"トレイ1トレイ2トレイ3");
  // Most numbers start with the default of Read.
  const auto check = [&](int C::*member, int expected) {
    if (member == &C::SharedPrinterTransTimeout || member == &C::PrinterInfoCycle) expected = 0;
    if (member == &C::ServerAutoSetting) expected = 1;
    EXPECT_EQ(setting.*member, expected);
  };
  for (const IntegerKey& key : KeysOf<IntegerKey>()) check(key.member, key.default_value);
  for (const NumberKey& key : KeysOf<NumberKey>()) {
    const auto* const member = std::get_if<int C::*>(&key.member);
    if (member != nullptr) check(*member, key.default_value);
  }
}

}  // namespace
}  // namespace vk::tq::testing
