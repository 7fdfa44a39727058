#include <filesystem>
#include <map>

#include "platform/text.h"
#include "settings/client_setting.h"
#include "storage/crypto.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using C = CClientSetting;
using Lines = std::vector<LogLine>;
using Events = std::vector<Event>;

constexpr unsigned long kError = 0xC0004000;
constexpr unsigned long kWarning = 0x80003000;

LogLine Line(int level, int number, const std::wstring& message) {
  return {level, number, L"CClientSetting::Read", message};
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

class ClientSettingReadTest : public ProductTest {
 protected:
  ClientSettingReadTest() {
    WriteKeyFile();
    for (const wchar_t* key :
         {L"NemiInfoDir", L"CertNemiInfoDir", L"NemiManageDir", L"LomuInfoDir", L"CertLomuInfoDir",
          L"LomuManageDir", L"JobTransDir", L"EmgWorkDir", L"EmgTransDir", L"ServiceDataDir",
          L"PrinterInfoWorkDir", L"PrinterInfoTransDir"}) {
      std::filesystem::create_directory(native(ToUtf8(key)));
      good_[key] = path(key);
    }
    good_[L"P2"] = Enciphered(L"ftpuser");
    good_[L"P3"] = Enciphered(L"geheim 秘密");
  }

  static std::wstring Enciphered(const CString& text) {
    CByteArray bytes;
    CCrypto().EncryptByTripleDesToByteArray(text, bytes);
    return FromUtf8(ToHex({reinterpret_cast<const char*>(bytes.GetData()),
                           static_cast<std::size_t>(bytes.GetSize())}));
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

  // Every key of the section but PrinterInfoCycle, with a value that leaves no line.
  std::map<std::wstring, std::wstring> good_ = {
      {L"SharedPC", L"1"},
      {L"ServiceSocket", L"1"},
      {L"P1", L"192.0.2.1"},
      {L"P1Secondary", L"192.0.2.2"},
      {L"P4", L"1"},
      {L"LomuServerDir", L"/lomu"},
      {L"EmgServerDir", L"/emg"},
      {L"SharedPrinterTransTimeout", L"1"},
      {L"SharedPrinterTransRetry", L"1"},
      {L"SharedPrinterUserType", L"1"},
      {L"SharedPrinter", L"1"},
      {L"SocketBackLog", L"1"},
      {L"SelectIPorHost", L"1"},
      {L"ShardJobDelete", L"1"},
      {L"ClientIPAddress", L"192.0.2.3"},
      {L"ClientIPAddressCycle", L"1"},
      {L"AuthorityMethod", L"1"},
      {L"DevCapaIntevalTime", L"1"},
      {L"ToastPrintingDisplayTime", L"1"},
      {L"ToastCanceledDisplayTime", L"1"},
      {L"SharedTimeout", L"1"},
      {L"CheckSharedPrinterLoopSpan", L"1"},
      {L"CheckSharedPrinterNewJobSpan", L"1"},
      {L"PrinterInfoServerDir", L"info"},
      {L"PrinterInfoFtpRetry", L"1"},
      {L"PrinterInfoFtpRetryInterval", L"1"},
      {L"StandByIdleCount", L"1"},
      {L"FileLockRetry", L"1"},
      {L"SharedJobCancelInterval", L"1"},
      {L"FtpSizeCheck", L"1"},
      {L"FtpConnectRetryInterval", L"1"},
      {L"FQDNTryCount", L"1"},
      {L"FQDNExpirationMinute", L"1"},
      {L"EnableUpdateDevmode", L"1"},
      {L"ValidPrimaryAP", L"1"},
      {L"ValidPrimaryPS", L"1"},
      {L"ServerAutoSetting", L"1"},
      {L"SharedPCInputUserIDArch", L"1"},
      {L"PrintJobInfoDispUserName", L"1"},
  };
  C setting_;
};

// ---- Numbers ----

constexpr long long kMax = 2147483647;

struct Number {
  const wchar_t* key;
  int C::*member;
  int default_value;
  long long least;
  long long most;
  int not_a_number;
  int out_of_limit;
  const wchar_t* label;
  const wchar_t* event = nullptr;
  int level = 3;
  bool shows_default = false;
};

const Number kNumbers[] = {
    {L"ServiceSocket", &C::ServiceSocket, 50514, 0, 65535, 120200020, 120200030,
     L"サービスソケットサーバポート番号"},
    {L"SharedPrinterTransTimeout", &C::SharedPrinterTransTimeout, 5000, 0, kMax, 120200460, 0,
     L"共有プリンタファイル送信タイムアウト"},
    {L"SharedPrinterTransRetry", &C::SharedPrinterTransRetry, 3, 0, 255, 120200470, 120200480,
     L"共有プリンタファイル送信リトライ回数"},
    {L"SocketBackLog", &C::SocketBackLog, 20, 1, 2000, 120200530, 120200540,
     L"サービスソケットサーバ バックログ数"},
    {L"ShardJobDelete", &C::ShardJobDelete, 120, 0, kMax, 120200570, 0,
     L"共有プリンタジョブ削除時間"},
    {L"ClientIPAddressCycle", &C::ClientIPAddressCycle, 30, 0, kMax, 120200590, 0,
     L"クライアントIPアドレス監視周期"},
    {L"AuthorityMethod", &C::AuthorityMethod, 0, 0, kMax, 120200600, 0, L"プリンタの権限方式"},
    {L"DevCapaIntevalTime", &C::DevCapaIntevalTime, 120, 0, kMax, 120200610, 0,
     L"DeviceCapability取得インターバルタイマー値"},
    {L"ToastPrintingDisplayTime", &C::ToastPrintingDisplayTime, 10, 0, kMax, 120200620, 0,
     L"トースト表示時間(印刷中)"},
    {L"ToastCanceledDisplayTime", &C::ToastCanceledDisplayTime, 10, 0, kMax, 120200620, 0,
     L"トースト表示時間(以外)"},
    {L"SharedTimeout", &C::SharedTimeout, 10, 0, kMax, 120200620, 0,
     L"共有PC設定のユーザ情報保持期間(秒)"},
    {L"CheckSharedPrinterLoopSpan", &C::CheckSharedPrinterLoopSpan, 1000, 0, kMax, 120200620, 0,
     L"共有プリンタのチェックループ間隔"},
    {L"CheckSharedPrinterNewJobSpan", &C::CheckSharedPrinterNewJobSpan, 0, 0, kMax, 120200620, 0,
     L"共有プリンタのプリンタ単位間隔"},
    {L"PrinterInfoFtpRetry", &C::PrinterInfoFtpRetry, 6, 0, 255, 120200730, 120200730,
     L"プリンタ情報FTP接続送信リトライ回数",
     L"プリンタ情報FTP転送リトライ回数が、設定されていません。"},
    {L"PrinterInfoFtpRetryInterval", &C::PrinterInfoFtpRetryInterval, 10000, 0, 60000, 120200740,
     120200742, L"プリンタ情報FTP接続送信リトライ間隔",
     L"プリンタ情報FTP転送リトライ間隔が、設定されていません。"},
    {L"PrinterInfoCycle", &C::PrinterInfoCycle, 60000, 0, 360000, 120200744, 120200746,
     L"プリンタ情報スレッド間隔"},
    {L"StandByIdleCount", &C::StandByIdleCount, 15, 0, kMax, 120200748, 0,
     L"管理ファイル監視待機回数"},
    {L"FileLockRetry", &C::FileLockRetry, 1, 0, kMax, 120200748, 0,
     L"ファイルロック失敗時のリトライ回数"},
    {L"SharedJobCancelInterval", &C::SharedJobCancelInterval, 10000, 0, kMax, 120200748, 0,
     L"共有プリンタキャンセル監視スレッドの監視間隔"},
    {L"FtpSizeCheck", &C::FtpSizeCheck, 2, 0, 3, 120200748, 120200750, L"FTPサイズチェック区分"},
    {L"FtpConnectRetryInterval", &C::FtpConnectRetryInterval, 1000, 0, kMax - 1, 120200748,
     120200750, L"FTP接続リトライ間隔"},
    {L"FQDNTryCount", &C::FQDNTryCount, 3, 1, kMax - 1, 120200760, 120200761,
     L"プリンタサーバのFQDNの取得試行回数"},
    {L"FQDNExpirationMinute", &C::FQDNExpirationMinute, 60, 0, kMax - 1, 120200762, 120200763,
     L"プリンタサーバのFQDNの有効期間"},
    {L"EnableUpdateDevmode", &C::EnableUpdateDevmode, 1, 0, 1, 120200748, 120200750,
     L"ロム仮想ドライバDevmode更新要否"},
    {L"PrintJobInfoDispUserName", &C::PrintJobInfoDispUserName, 1, 0, 1, 120200752, 120200754,
     L"印刷情報の表示画面のステータスバーへのユーザ名表示フラグ", nullptr, 2, true},
};

// What no number is made of: nothing, blanks, signs, points, other digits than 0 to 9.
constexpr const wchar_t* kNoNumbers[] = {nullptr, L"",    L"\"  \"", L"\u3000", L"abc",  L"-1",
                                         L"+1",   L"1.5", L"0x10",   L"1 2",    L"１２", L"12a"};

TEST_F(ClientSettingReadTest, Numbers) {
  for (const Number& number : kNumbers) {
    const Events events = number.event ? Events{{kWarning, number.event}} : Events{};
    for (const wchar_t* text : kNoNumbers) {
      CheckMember(
          number.key, text, number.member, number.default_value, 1,
          {Line(number.level, number.not_a_number, Default(number.label, number.default_value))},
          events);
    }
    for (const long long value : {0LL, 1LL, number.least, number.most, number.most + 1, kMax}) {
      if (value > kMax) continue;
      // Too many digits saturate.
      for (const std::wstring& text :
           {std::to_wstring(value), L"\" 00" + std::to_wstring(value) + L" \"",
            std::wstring(value == kMax ? L"99999999999" : L"")}) {
        if (text.empty()) continue;
        if (value >= number.least && value <= number.most) {
          CheckMember(number.key, text.c_str(), number.member, value, 1, {});
          continue;
        }
        const long long shown = number.shows_default ? number.default_value : value;
        CheckMember(number.key, text.c_str(), number.member, number.default_value, 1,
                    {Line(number.level, number.out_of_limit, Default(number.label, shown))},
                    events);
      }
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
  const struct {
    const wchar_t* key;
    int C::*member;
    int missing;
  } cases[] = {{L"ValidPrimaryAP", &C::ValidPrimaryAP, 1},
               {L"ValidPrimaryPS", &C::ValidPrimaryPS, 1},
               {L"ServerAutoSetting", &C::ServerAutoSetting, 0},
               {L"SharedPCInputUserIDArch", &C::SharedPCInputUserIDArch, 0}};
  for (const auto& c : cases) {
    CheckMember(c.key, nullptr, c.member, c.missing, 1, {});
    CheckMember(c.key, L"abc", c.member, 0, 1, {});
    CheckMember(c.key, L"12abc", c.member, 12, 1, {});
    CheckMember(c.key, L"-5", c.member, -5, 1, {});
  }
}

// ---- Flags ----

TEST_F(ClientSettingReadTest, Flags) {
  const struct {
    const wchar_t* key;
    bool C::*member;
    bool default_value;
    int empty;
    int bad;
    const wchar_t* label;
  } flags[] = {
      {L"SharedPrinterUserType", &C::SharedPrinterUserType, false, 120200500, 120200490,
       L"共有プリンタの通知ユーザ使用設定"},
      {L"SharedPrinter", &C::SharedPrinter, true, 120200520, 120200510,
       L"共有プリンタ機能使用有無"},
      {L"SelectIPorHost", &C::SelectIPorHost, false, 120200560, 120200550, L"ＩＰ／ＰＣ名切替"}};
  for (const auto& flag : flags) {
    const auto warned = [&](const wchar_t* text, int number) {
      setting_.*flag.member = !flag.default_value;
      Check(flag.key, text, 1, {Line(3, number, Default(flag.label, flag.default_value))}, {});
      EXPECT_EQ(setting_.*flag.member, flag.default_value) << ToUtf8(flag.key);
    };
    warned(nullptr, flag.empty);
    warned(L"", flag.empty);
    for (const wchar_t* text : {L"\" 1\"", L"2", L"true", L"-1", L"１"}) warned(text, flag.bad);
    for (const wchar_t* text : {L"0", L"0x", L"01"}) {
      CheckMember(flag.key, text, flag.member, false, 1, {});
    }
    for (const wchar_t* text : {L"1", L"10", L"1 no"}) {
      CheckMember(flag.key, text, flag.member, true, 1, {});
    }
  }
}

TEST_F(ClientSettingReadTest, SharedPcKeepsItsValue) {
  for (const bool held : {false, true}) {
    const auto kept = [&](const wchar_t* text, const Lines& lines) {
      setting_.SharedPC = held;
      Check(L"SharedPC", text, 1, lines, {});
      EXPECT_EQ(setting_.SharedPC, held);
    };
    kept(nullptr, {});
    kept(L"", {});
    for (const wchar_t* text : {L"2", L"2 x", L"yes", L"０"}) {
      kept(text, {Line(3, 120200010,
                       L"設定値が異常です。デフォルト値を使用します。[共有ＰＣ設定] 設定値:[" +
                           std::wstring(text) + L"]")});
    }
  }
  CheckMember(L"SharedPC", L"0x", &C::SharedPC, false, 1, {});
  CheckMember(L"SharedPC", L"1x", &C::SharedPC, true, 1, {});
}

// ---- Texts ----

TEST_F(ClientSettingReadTest, RequiredTexts) {
  const struct {
    const wchar_t* key;
    CString C::*member;
    const wchar_t* missing;
    int missing_number;
    const wchar_t* label;
    int blank_number;
  } texts[] = {{L"P1", &C::P1, L"プリンタサーバＩＰが、設定されていません。", 120200040,
                L"プリンタサーバＩＰアドレス", 120200050},
               {L"P2", &C::P2, L"ＦＴＰユーザ名が、設定されていません。", 120200060,
                L"ＦＴＰユーザ名", 120200070},
               {L"P3", &C::P3, L"ＦＴＰパスワードが、設定されていません。", 120200080,
                L"ＦＴＰパスワード", 120200090}};
  for (const auto& text : texts) {
    const bool is_plain = std::wstring_view(text.key) == L"P1";
    for (const wchar_t* missing : {static_cast<const wchar_t*>(nullptr), L""}) {
      setting_.*text.member = L"kept";
      Check(text.key, missing, 0, {Line(4, text.missing_number, text.missing)},
            {{kError, text.missing}});
      EXPECT_EQ(setting_.*text.member, L"kept");
    }
    const Lines blank_lines = {Line(4, text.blank_number, Bad(text.label, L""))};
    const Events blank_events = {{kError, Bad(text.label, L"")}};
    for (const wchar_t* blank : {L" \t", L"\u3000"}) {
      const std::wstring value = is_plain ? L"\"" + std::wstring(blank) + L"\"" : Enciphered(blank);
      CheckMember(text.key, value.c_str(), text.member, L"", 0, blank_lines, blank_events);
    }
    const std::wstring value = is_plain ? L"\" a b \"" : Enciphered(L" a b ");
    CheckMember(text.key, value.c_str(), text.member, L"a b", 1, {});
  }
  CheckMember(L"P2", Enciphered(L"").c_str(), &C::P2, L"", 0,
              {Line(4, 120200070, Bad(L"ＦＴＰユーザ名", L""))},
              {{kError, Bad(L"ＦＴＰユーザ名", L"")}});
}

TEST_F(ClientSettingReadTest, TheFtpAccount) {
  Write();
  EXPECT_EQ(setting_.Read(1), 1);
  EXPECT_EQ(setting_.P2, L"ftpuser");
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

TEST_F(ClientSettingReadTest, AValueIsSeenUpTo1023Characters) {
  const std::wstring text = std::wstring(1022, L'1') + L"ab";
  CheckMember(L"P1", text.c_str(), &C::P1, text.substr(0, 1023), 1, {});
}

// ---- Directories ----

struct Directory {
  const wchar_t* key;
  CString C::*member;
  std::wstring default_value;
  const wchar_t* missing;
  int missing_number;
  const wchar_t* label;
  int blank_number;
  int create_number;
  bool is_fatal = true;
  unsigned long event_id = kError;
};

const std::vector<Directory>& AllDirectories() {
  static const std::vector<Directory> directories = {
      {L"NemiInfoDir", &C::NemiInfoDir, Literal(L"NemiInf"),
       L"ネミ印刷情報ファイル格納ディレクトリが、設定されていません。", 120200120,
       L"ネミ印刷情報格納場所", 120200130, 120200140},
      {L"CertNemiInfoDir", &C::CertNemiInfoDir, Literal(L"NemiInfCert"),
       L"認証中ネミ印刷情報ファイル格納ディレクトリが、設定されていません。", 120200150,
       L"認証中ネミ印刷情報格納場所", 120200160, 120200170},
      {L"NemiManageDir", &C::NemiManageDir, Literal(L"NemiManage"),
       L"ネミ印刷管理ファイル格納ディレクトリが、設定されていません。", 120200180,
       L"ネミ印刷管理ファイル格納場所", 120200190, 120200200},
      {L"LomuInfoDir", &C::LomuInfoDir, Literal(L"LomuInf"),
       L"ロム印刷情報ファイル格納ディレクトリが、設定されていません。", 120200210,
       L"ロム印刷情報格納場所", 120200220, 120200230, false},
      {L"CertLomuInfoDir", &C::CertLomuInfoDir, Literal(L"LomuInfCert"),
       L"認証中ロム印刷情報ファイル格納ディレクトリが、設定されていません。", 120200240,
       L"認証中ロム印刷情報格納場所", 120200250, 120200260, false},
      {L"LomuManageDir", &C::LomuManageDir, Literal(L"LomuManage"),
       L"ロム印刷管理ファイル格納ディレクトリが、設定されていません。", 120200270,
       L"ロム印刷管理ファイル格納場所", 120200280, 120200290, false},
      {L"JobTransDir", &C::JobTransDir, Literal(L"JobTrans"),
       L"ジョブ転送ディレクトリが、設定されていません。", 120200300, L"ジョブ転送ディレクトリ",
       120200310, 120200320, false},
      {L"LomuServerDir", &C::LomuServerDir, L"/LomuRecv",
       L"ロムジョブ転送先ディレクトリが、設定されていません。", 120200390,
       L"ロムジョブ転送先ディレクトリ", 120200400, 0},
      {L"EmgWorkDir", &C::EmgWorkDir, Literal(L"EMGWork"),
       L"緊急印刷ワークディレクトリが、設定されていません。", 120200330,
       L"緊急印刷ワークディレクトリ", 120200340, 120200350},
      {L"EmgTransDir", &C::EmgTransDir, Literal(L"EMGTrans"),
       L"緊急印刷転送ディレクトリが、設定されていません。", 120200360, L"緊急印刷転送ディレクトリ",
       120200370, 120200380},
      {L"EmgServerDir", &C::EmgServerDir, L"/EMG",
       L"緊急印刷ファイル転送先ディレクトリが、設定されていません。", 120200410,
       L"緊急印刷ファイル転送先ディレクトリ", 120200420, 0},
      {L"ServiceDataDir", &C::ServiceDataDir, Literal(L"Data"),
       L"サービス参照ユーザ情報ディレクトリが、設定されていません。", 120200430,
       L"サービス参照ユーザ情報ディレクトリ", 120200440, 120200450},
      {L"PrinterInfoWorkDir", &C::PrinterInfoWorkDir, Literal(L"PrinterInfoWork"),
       L"プリンタ情報一時ディレクトリが、設定されていません。", 120200670,
       L"プリンタ情報一時ディレクトリ", 120200680, 120200685, true, kWarning},
      {L"PrinterInfoTransDir", &C::PrinterInfoTransDir, Literal(L"PrinterInfoTrans"),
       L"プリンタ情報転送ディレクトリが、設定されていません。", 120200690,
       L"プリンタ情報転送ディレクトリ", 120200700, 120200705, true, kWarning},
      {L"PrinterInfoServerDir", &C::PrinterInfoServerDir, L"PrinterInfo",
       L"プリンタ情報転送先ディレクトリが、設定されていません。", 120200710,
       L"プリンタ情報転送先ディレクトリ", 120200720, 0, true, kWarning},
  };
  return directories;
}

TEST_F(ClientSettingReadTest, DirectoriesThatAreMissingOrBlank) {
  for (const Directory& directory : AllDirectories()) {
    const bool is_work = std::wstring_view(directory.key) == L"PrinterInfoWorkDir";
    for (const wchar_t* text : {static_cast<const wchar_t*>(nullptr), L""}) {
      setting_.*directory.member = L"earlier";
      Check(directory.key, text, 0, {Line(4, directory.missing_number, directory.missing)},
            {{directory.event_id, is_work
                                      ? L"プリンタ情報一時格納ディレクトリが、設定されていません。"
                                      : directory.missing}});
      EXPECT_EQ(setting_.*directory.member, directory.default_value);
    }
    for (const wchar_t* text : {L"\"  \"", L"\u3000"}) {
      CheckMember(directory.key, text, directory.member, directory.default_value, 0,
                  {Line(4, directory.blank_number, Bad(directory.label, L""))},
                  {{directory.event_id, Bad(directory.label, L"")}});
    }
  }
  EXPECT_FALSE(ExistsNative(native("volumes"))) << "no default is made";
}

TEST_F(ClientSettingReadTest, DirectoriesThatAreThereOrMade) {
  for (const Directory& directory : AllDirectories()) {
    const std::wstring there = path(L"there");
    std::filesystem::create_directory(native("there"));
    CheckMember(directory.key, (L"\" " + there + L" \"").c_str(), directory.member, there, 1, {});
    if (directory.create_number == 0) {
      CheckMember(directory.key, L"/a\\", directory.member, L"/a\\", 1, {});
      continue;
    }
    CheckMember(directory.key, (there + L"\\").c_str(), directory.member, there, 1, {});
    CheckMember(directory.key, (there + L"\\\\").c_str(), directory.member, there + L"\\", 1, {});

    const std::wstring made = path(L"made");
    setting_ = C();
    Write(directory.key, (made + L"\\").c_str());
    EXPECT_EQ(setting_.Read(1), 1);
    EXPECT_EQ(setting_.*directory.member, made);
    EXPECT_TRUE(std::filesystem::remove(native("made")));
    auto lines = log_.lines(3);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], (LogLine{5,
                                 120200620,
                                 L"CClientSetting::IsDirectry",
                                 L"ファイルの存在確認に失敗しました。",
                                 {},
                                 2}));
    ASSERT_TRUE(lines[1].code.has_value());
    lines[1].code.reset();
    EXPECT_EQ(lines[1], (LogLine{3, 120200610, L"CClientSetting::CheckExistDirectry",
                                 L"システムディレクトリを作成しました。：" + made}));
    EXPECT_EQ(log_.events(), Events{});
  }
}

TEST_F(ClientSettingReadTest, DirectoriesThatCannotBeMade) {
  WriteNative(native("file"), "x");
  for (const Directory& directory : AllDirectories()) {
    if (directory.create_number == 0) continue;
    for (const wchar_t* name : {L"no\\parent", L"file"}) {
      const std::wstring value = path(name);
      const std::wstring text = L"ディレクトリの存在確認及び、作成処理に失敗しました。[" +
                                std::wstring(directory.label) + L"] 設定値:[" + value + L"]";
      setting_ = C();
      Write(directory.key, (value + L"\\").c_str());
      EXPECT_EQ(setting_.Read(1), directory.is_fatal ? 0 : 1) << ToUtf8(directory.key);
      EXPECT_EQ(setting_.*directory.member, directory.default_value);
      const bool is_file = std::wstring_view(name) == L"file";
      auto lines = log_.lines();
      ASSERT_EQ(lines.size(), is_file ? 2u : 3u);
      if (!is_file) {
        EXPECT_EQ(lines[0].number, 120200620);
        EXPECT_THAT(lines[0].code, ::testing::AnyOf(2, 3));
        lines.erase(lines.begin());
      }
      EXPECT_EQ(lines[0], (LogLine{5,
                                   120200600,
                                   L"CClientSetting::CheckExistDirectry",
                                   L"システムディレクトリの作成に失敗しました。：" + value,
                                   {},
                                   is_file ? 183 : 3}));
      EXPECT_EQ(lines[1], Line(4, directory.create_number, text));
      EXPECT_EQ(log_.events(), (Events{{directory.event_id, text}}));
    }
  }
}

// ---- The whole file ----

TEST_F(ClientSettingReadTest, WithoutAFileEveryKeyIsVisitedInItsOrder) {
  constexpr int kOrder[] = {
      120200020, 120200040, 120200060, 120200080, 120200100, 120200120, 120200150, 120200180,
      // The job-transfer group.
      120200210, 120200240, 120200270, 120200300, 120200390,
      //
      120200330, 120200360, 120200410, 120200430, 120200460, 120200470, 120200500, 120200520,
      120200530, 120200560, 120200570, 120200580, 120200590, 120200600, 120200610, 120200620,
      120200620, 120200620, 120200620, 120200620, 120200670, 120200690, 120200710, 120200730,
      120200740, 120200744, 120200748, 120200748, 120200748, 120200748, 120200748, 120200760,
      120200762, 120200748, 120200752};
  for (const int mode : {0, 1, 2}) {
    log_.Clear();
    C setting;
    EXPECT_EQ(setting.Read(mode), 0);
    std::vector<int> expected(std::begin(kOrder), std::end(kOrder));
    if (mode != 1) expected.erase(expected.begin() + 8, expected.begin() + 13);
    std::vector<int> numbers;
    for (const LogLine& line : log_.lines()) numbers.push_back(line.number);
    EXPECT_EQ(numbers, expected) << mode;
    EXPECT_EQ(setting.JobTransDir, mode == 1 ? Literal(L"JobTrans") : L"");
    EXPECT_EQ(setting.LomuServerDir, mode == 1 ? L"/LomuRecv" : L"");
    EXPECT_EQ(setting.ServerAutoSetting, 0);
    EXPECT_EQ(setting.SharedPrinterTransTimeout, 5000);
    EXPECT_EQ(setting.PrinterInfoCycle, 60000);
  }
  EXPECT_FALSE(ExistsNative(native("volumes")));
  EXPECT_FALSE(ExistsNative(product_native("config/Client.ini")));
}

TEST_F(ClientSettingReadTest, TheJobTransferGroupKeepsItsValuesUnlessModeIsOne) {
  Write();
  EXPECT_EQ(setting_.Read(1), 1);
  EXPECT_EQ(setting_.LomuServerDir, L"/lomu");
  for (const wchar_t* key :
       {L"LomuInfoDir", L"CertLomuInfoDir", L"LomuManageDir", L"JobTransDir", L"LomuServerDir"}) {
    good_.erase(key);
  }
  Write();
  EXPECT_EQ(setting_.Read(0), 1);
  EXPECT_EQ(log_.lines(), Lines{});
  EXPECT_EQ(setting_.LomuServerDir, L"/lomu");
  EXPECT_EQ(setting_.JobTransDir, path(L"JobTransDir"));
}

TEST_F(ClientSettingReadTest, ConstructorValues) {
  const C setting;
  EXPECT_TRUE(setting.SharedPC);
  EXPECT_TRUE(setting.SharedPrinter);
  EXPECT_FALSE(setting.SharedPrinterUserType);
  EXPECT_FALSE(setting.SelectIPorHost);
  EXPECT_EQ(setting.P4, 3);
  EXPECT_EQ(setting.NupSetting, L"1,2,4,6,9,16");
  EXPECT_EQ(setting.TonerSaveDisp, 1);
  EXPECT_EQ(setting.FontImageDisp, 1);
  EXPECT_EQ(setting.ValidPrimaryAP, 1);
  EXPECT_EQ(setting.ValidPrimaryPS, 1);
  EXPECT_EQ(setting.ServerAutoSetting, 1);
  EXPECT_EQ(setting.SharedPCInputUserIDArch, 0);
  EXPECT_EQ(setting.UseTray1 + setting.UseTray2 + setting.UseTray3, 0);
  EXPECT_EQ(setting.NameTray1 + setting.NameTray2 + setting.NameTray3, L"トレイ1トレイ2トレイ3");
  // Most numbers start with the default of Read.
  for (const Number& number : kNumbers) {
    int expected = number.default_value;
    if (number.member == &C::SharedPrinterTransTimeout) expected = 0;
    if (number.member == &C::PrinterInfoCycle) expected = 0;
    EXPECT_EQ(setting.*number.member, expected) << ToUtf8(number.key);
  }
  for (const Directory& directory : AllDirectories()) EXPECT_EQ(setting.*directory.member, L"");
}

TEST_F(ClientSettingReadTest, OtherEncodings) {
  const std::wstring text = L"[setting]\r\nP1=サーバ表\r\nSHAREDTIMEOUT=7\r\n";
  const auto check = [&](const std::string& bytes) {
    WriteNative(product_native("config/Client.ini"), bytes);
    C setting;
    setting.Read(0);
    EXPECT_EQ(setting.P1, L"サーバ表");
    EXPECT_EQ(setting.SharedTimeout, 7);
  };
  check("\xEF\xBB\xBF" + ToUtf8(text));
  check("\xFF\xFE" + *EncodeText(kCodePageUtf16Le, text));
  const ScopedEnvironment page("TQ_ANSI_CODEPAGE", "932");
  check(*EncodeText(kCodePage932, text));
}

}  // namespace
}  // namespace vk::tq::testing
