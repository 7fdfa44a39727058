#include "settings/system_setting.h"

#include <chrono>
#include <functional>

#include "platform/text.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using namespace std::string_literals;

using Settings = CSystemSetting;
using Texts = std::vector<std::wstring>;

class OpenSetting : public Settings {
 public:
  using Settings::GetDataNum;
  using Settings::GetDataStr;
  using Settings::GetSize;
  using Settings::ReadCSV;
  using Settings::Settings;
  using Settings::WriteCSV;

  Texts Row() {
    Texts row;
    CString field;
    for (int i = 0; GetDataStr(field, i) == 1; ++i) row.push_back(field);
    return row;
  }
};

// What the file says, what a getter gives and how it is logged, one row a setting.
struct Setting {
  int item;
  int field;
  std::function<std::wstring(const Settings&)> get;
  std::wstring default_value;
  std::wstring label;
};

template <class Getter>
std::function<std::wstring(const Settings&)> By(Getter getter) {
  return [getter](const Settings& settings) {
    if constexpr (std::is_convertible_v<decltype((settings.*getter)()), std::wstring>) {
      return (settings.*getter)();
    } else {
      return std::to_wstring((settings.*getter)());
    }
  };
}

std::function<std::wstring(const Settings&)> Use(int tray) {
  return [tray](const Settings& settings) { return std::to_wstring(settings.GetUseTray(tray)); };
}

std::function<std::wstring(const Settings&)> Name(int tray) {
  return [tray](const Settings& settings) { return settings.GetNameTray(tray); };
}

const std::vector<Setting>& AllSettings() {
  using S = Settings;
  static const std::vector<Setting> settings = {
      {9, 1, By(&S::GetEmergencyFlag), L"1", L"緊急時印刷パスワード有無"},
      {13, 1, By(&S::GetEmsUpdateCycle), L"5", L"配信ファイル更新周期"},
      {14, 1, By(&S::GetAccessKeyMode), L"0", L"アクセスキー使用有無"},
      {5, 1, By(&S::GetSystemEdition), L"1", L"システムエディション"},
      {17, 1, By(&S::GetJobNA), L"0", L"N/Aジョブの取り扱い"},
      {18, 1, By(&S::GetLocalTimeOut), L"30", L"印刷中タイムアウト値"},
      {30, 1, By(&S::GetAutoChangeNextTime), L"1440", L"印刷モードの自動復帰時間"},
      {29, 1, By(&S::GetEmergencyAutoChange), L"0", L"印刷モードの自動切り替え"},
      {26, 1, By(&S::GetModeDisplayUserID), L"1", L"ユーザ登録設定を表示する/しない"},
      {27, 1, By(&S::GetModeSaveGroupNo), L"1", L"グループ選択設定を保存する/しない"},
      {28, 1, By(&S::GetModeSpoolPrintOut), L"0", L""},
      {16, 1, By(&S::GetRenewAccessKeyDisp), L"0", L"アクセスキー変更表示/非表示"},
      {19, 1, By(&S::GetSharedPrinterUnmount), L"0", L"共有プリンタの自動アンマウント"},
      {33, 1, By(&S::GetConfigFilesUpdateSpanDay), L"1", L"設定ファイルの更新間隔(日)"},
      {34, 1, By(&S::GetConfigFilesUpdateRetryCount), L"36", L"設定ファイルの再取得回数(回)"},
      {35, 1, By(&S::GetPInfoUpdateSpanDay), L"1", L"プリンタ情報の収集間隔"},
      {36, 1, By(&S::GetPInfoUpdateDelayMinute), L"5", L"プリンタ情報の収集までのディレイ時間"},
      {37, 1, By(&S::GetUserRegistExpireDay), L"999", L"ユーザ登録の有効期間"},
      {38, 1, By(&S::GetEnableUserIDRegex), L"0", L"Windowsアカウントの一部利用機能　有効/無効"},
      {38, 2, By(&S::GetUserIDRegexPattern), L"", L"ユーザID抽出用正規表現パターン"},
      {15, 1, By(&S::GetDefaultUserID), L"0", L"デフォルトユーザIDにWindowsアカウントを使用する"},
      {40, 1, By(&S::GetFileTranferType), L"0", L"ファイル転送方式"},
      {41, 1, By(&S::GetCertificateValidationCheck), L"0", L"SSLサーバ証明書の検証"},
      {42, 1, By(&S::GetTavoUse), L"0", L"タボ印刷使用"},
      {43, 2, By(&S::GetDelimiterForTavo), L"#SC#", L"タボ　セパレータ"},
      {45, 1, By(&S::GetTavoLocalTimeOut), L"5", L"タボ　印刷中T.O."},
      {44, 1, By(&S::GetEnableRumaPrint), L"0", L"ルマ機能 有効／無効"},
      {59, 1, Use(1), L"0", L"トレイ1 有効/無効"},
      {59, 2, Name(1), L"トレイ1", L"トレイ1 表示名"},
      {60, 1, Use(2), L"0", L"トレイ2 有効/無効"},
      {60, 2, Name(2), L"トレイ2", L"トレイ2 表示名"},
      {61, 1, Use(3), L"0", L"トレイ3 有効/無効"},
      {61, 2, Name(3), L"トレイ3", L"トレイ3 表示名"},
      {62, 1, By(&S::GetModeMultiServerSetting), L"0", L"サーバ二重化、サーバ自動設定する/しない"},
      {66, 2, By(&S::GetNupSetting), L"1,2,4,6,9,16", L"使用Nup"},
      {67, 1, By(&S::GetTonerSaveDisp), L"1", L"トナーセーブの表示"},
      {68, 1, By(&S::GetFontImageDisp), L"1", L"フォントをイメージとして印刷するの表示"},
      {500, 1, By(&S::GetImageLogSetting), L"0", L"イメログ機能の有効無効"},
      {86, 1, By(&S::GetLocalTimeoutUnsentAuthPrint), L"0",
       L"ローカル認証プリントの送信初期状態監視時間"},
      {81, 1, By(&S::GetLocalTimeoutUnsentLogPrint), L"30",
       L"ローカルログだけプリントの送信初期状態監視時間"},
      {82, 1, By(&S::GetLogPrintTimeout), L"1440", L"ログだけ印刷のタイムアウト監視時間"},
      {83, 1, By(&S::GetLogPrintRetryInterval), L"10", L"ログだけ印刷のリトライ間隔時間"},
      {84, 1, By(&S::GetLogPrintRetryMaxCount), L"144", L"ログだけ印刷の最大リトライ印刷回数"},
      {85, 1, By(&S::GetSpoolingJobSkipTimer), L"180", L"ドライバサービスでのスプーリング監視時間"},
  };
  return settings;
}

LogLine Line(int level, int number, const wchar_t* message) {
  return {level, number, L"CSystemSetting::LoadFile", message};
}

class SystemSettingTest : public ProductTest {
 protected:
  std::unique_ptr<OpenSetting> Make(std::string_view bytes) {
    WriteNative(native("system.csv"), bytes);
    return std::make_unique<OpenSetting>(path(L"system.csv").c_str(), Settings::modeRead);
  }

  std::unique_ptr<OpenSetting> Load(std::string_view bytes) {
    auto settings = Make(bytes);
    EXPECT_EQ(settings->LoadFile(), 0);
    return settings;
  }

  std::unique_ptr<OpenSetting> Opened(std::string_view bytes, unsigned flags = Settings::modeRead) {
    auto settings = Make(bytes);
    EXPECT_TRUE(settings->Open(path(L"system.csv").c_str(), flags));
    return settings;
  }

  Texts Row(std::string_view line) {
    const auto settings = Opened(line);
    EXPECT_EQ(settings->ReadCSV(), 1);
    return settings->Row();
  }
};

TEST_F(SystemSettingTest, EachItemFillsItsSettingsAlone) {
  for (const Setting& changed : AllSettings()) {
    const std::string item = std::to_string(changed.item);
    const auto settings = Load(item + ",3,x y");
    for (const Setting& setting : AllSettings()) {
      const std::wstring value = setting.field == 1 ? L"3" : L"x y";
      EXPECT_EQ(setting.get(*settings),
                setting.item == changed.item ? value : setting.default_value)
          << item << " " << ToUtf8(setting.label);
    }
  }
}

TEST_F(SystemSettingTest, ARowThatIsTooShortLosesTheDefault) {
  for (const Setting& setting : AllSettings()) {
    const auto settings = Load(std::to_string(setting.item));
    const std::wstring empty = setting.item == 43 ? L"#SC#" : setting.field == 1 ? L"0" : L"";
    EXPECT_EQ(setting.get(*settings), empty) << setting.item;
  }
  const auto settings = Load("38,1,a.c\n38,1\n13");
  EXPECT_EQ(settings->GetUserIDRegexPattern(), L"");
  EXPECT_THAT(log_.lines(), ::testing::Contains(LogLine{1, 101306, L"CSystemSetting::GetDataNum",
                                                        L"> idx is invalid -> EXIT 0"}));
}

TEST_F(SystemSettingTest, TreatmentsOfSingleItems) {
  const auto number = [&](const char* row, auto getter) { return ((*Load(row)).*getter)(); };
  EXPECT_EQ(number("40,19", &Settings::GetFileTranferType), 3);
  EXPECT_EQ(number("40,-1", &Settings::GetFileTranferType), 15);
  EXPECT_EQ(number("19,257", &Settings::GetSharedPrinterUnmount), 1);
  EXPECT_EQ(number("62,6", &Settings::GetModeMultiServerSetting), 6);
  EXPECT_EQ(number("62,7", &Settings::GetModeMultiServerSetting), 0);
  EXPECT_EQ(number("62,-1", &Settings::GetModeMultiServerSetting), 0);
  EXPECT_EQ(number("13, +7x", &Settings::GetEmsUpdateCycle), 7);
  EXPECT_EQ(number("13,99999999999", &Settings::GetEmsUpdateCycle), 2147483647);
  EXPECT_EQ(number("13,-99999999999", &Settings::GetEmsUpdateCycle), -2147483647 - 1);
  EXPECT_EQ(number("13,\xEF\xBC\x97", &Settings::GetEmsUpdateCycle), 0);
  EXPECT_EQ(Load("43,0,;\n43,0,")->GetDelimiterForTavo(), L";");
  EXPECT_EQ(Load("66,0")->GetNupSetting(), L"");
  EXPECT_EQ(Load("66,,\"1,2\"")->GetNupSetting(), L"1,2");
}

TEST_F(SystemSettingTest, OnlyTheExactKeyMatchesAndTheLastRowWins) {
  const auto settings = Load(
      "key,value\n 13,1\n13 ,2\n013,3\n+13,4\n0,5\n501,6\n1300,7\n\xEF\xBC\x91\xEF\xBC\x93,8\n"
      "9,2\n9,4\n");
  for (const Setting& setting : AllSettings()) {
    EXPECT_EQ(setting.get(*settings), setting.item == 9 ? L"4" : setting.default_value);
  }
}

TEST_F(SystemSettingTest, TheFirstBlankLineEndsTheFile) {
  EXPECT_EQ(Load("\n13,7")->GetEmsUpdateCycle(), 5);
  EXPECT_EQ(Load("13,7\r\n\r\n13,8\r\n")->GetEmsUpdateCycle(), 7);
  EXPECT_EQ(Load("13,7\n \n13,8\n")->GetEmsUpdateCycle(), 8);
}

TEST_F(SystemSettingTest, EncodingsAndDamage) {
  const std::wstring rows = L"59,3,手差し\r\n66,,\"1,2\"\r\n";
  const auto check = [&](const std::string& bytes) {
    const auto settings = Load(bytes);
    EXPECT_EQ(settings->GetNameTray(1), L"手差し") << ToHex(bytes);
    EXPECT_EQ(settings->GetNupSetting(), L"1,2") << ToHex(bytes);
  };
  check(ToUtf8(rows));
  check("\xEF\xBB\xBF" + ToUtf8(rows));
  check("\xFF\xFE" + *EncodeText(kCodePageUtf16Le, rows));
  {
    const ScopedEnvironment page("TQ_ANSI_CODEPAGE", "932");
    check(*EncodeText(kCodePage932, rows));
  }
  // A NUL is a character: it spoils its own row only.
  const auto settings = Load("9\0,4\n13,7\0,x\n59,3,a\0b\n"s);
  EXPECT_EQ(settings->GetEmergencyFlag(), 1);
  EXPECT_EQ(settings->GetEmsUpdateCycle(), 7);
  EXPECT_EQ(settings->GetNameTray(1), L"a\0b"s);
  EXPECT_EQ(Load("59,3,\"open\n60,4,\"a\"")->GetNameTray(1), L"open");
  EXPECT_EQ(Load("59,3," + std::string(3'000'000, 'n'))->GetNameTray(1).size(), 3'000'000u);
}

TEST_F(SystemSettingTest, AFileThatCannotBeOpened) {
  OpenSetting settings(path(L"missing").c_str(), Settings::modeRead);
  EXPECT_EQ(settings.LoadFile(), -1);
  EXPECT_EQ(log_.lines(), std::vector{Line(0, 0, L"START")});
  for (const Setting& setting : AllSettings()) {
    EXPECT_EQ(setting.get(settings), setting.default_value);
  }
}

TEST_F(SystemSettingTest, LoadFileLogsKeysAndSettings) {
  Load("9,2\nname,x\n");
  auto lines = log_.lines();
  ASSERT_GT(lines.size(), 4u);
  EXPECT_EQ(lines.front(), Line(0, 0, L"START"));
  EXPECT_EQ(lines.back(), Line(0, 0, L"END"));
  LogLine key = Line(1, 101300010, L"項目キー");
  key.second = L"9";
  EXPECT_EQ(lines[1], key);
  key.second = L"name";
  EXPECT_EQ(lines[2], key);

  // The order of the table, but item 5 first and item 500 last; item 28 is missing.
  std::vector<const Setting*> expected;
  for (const Setting& setting : AllSettings()) {
    if (setting.item != 28 && setting.item != 5 && setting.item != 500) {
      expected.push_back(&setting);
    }
  }
  const auto find = [](int item) {
    return &*std::ranges::find(AllSettings(), item, &Setting::item);
  };
  expected.insert(expected.begin(), find(5));
  expected.push_back(find(500));
  ASSERT_EQ(lines.size(), 4 + expected.size());
  const auto columns_of = [](std::wstring_view text) {
    std::size_t columns = 0;
    for (const wchar_t c : text) columns += c < 0x80 ? 1 : 2;
    return columns;
  };
  std::size_t widest = 0;
  for (const Setting* setting : expected) widest = std::max(widest, columns_of(setting->label));
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const Setting& setting = *expected[i];
    const std::wstring value = setting.item == 9 ? L"2" : setting.default_value;
    const std::wstring blanks(widest - columns_of(setting.label), L' ');
    const std::wstring message = L"システム設定[" + setting.label + L"]" + blanks + L"：" + value;
    EXPECT_EQ(lines[3 + i], Line(2, 101300020, message.c_str()));
  }
}

TEST_F(SystemSettingTest, TrayGettersLogTheCall) {
  const auto settings = Make("");
  EXPECT_EQ(settings->GetUseTray(0), -1);
  EXPECT_EQ(settings->GetUseTray(4), -1);
  EXPECT_EQ(settings->GetNameTray(-1), L"");
  EXPECT_EQ(settings->GetNameTray(2), L"トレイ2");
  const auto line = [](const wchar_t* function, const wchar_t* message) {
    return LogLine{2, 101300110, function, message};
  };
  const wchar_t* const use = L"CSystemSetting::GetUseTray";
  const wchar_t* const name = L"CSystemSetting::GetNameTray";
  EXPECT_EQ(log_.lines(),
            (std::vector{
                line(use, L"GetUseTray [(in)nTrayNo]：0, [(out)nUseTray]：-1"),
                line(use, L"GetUseTray [(in)nTrayNo]：4, [(out)nUseTray]：-1"),
                line(name, L"GetNameTray [(in)nTrayNo]：-1, [(out)strNameTray]："),
                line(name, L"GetNameTray [(in)nTrayNo]：2, [(out)strNameTray]：トレイ2"),
            }));
}

TEST_F(SystemSettingTest, RowsAreSplitByTheQuoteRules) {
  const struct {
    const char* line;
    Texts fields;
  } cases[] = {
      {"59,3,\"A,B\"", {L"59", L"3", L"A,B"}},
      {"59,3,\"a\"\"b\"", {L"59", L"3", L"a\"b"}},
      {"5,,", {L"5", L"", L""}},
      {",", {L"", L""}},
      {"\"", {L""}},
      {"\"\"", {L""}},
      // Dropped at the positions 0 to 2, wherever the field begins.
      {"a\"b,c\"d", {L"ab,c\"d"}},
      {"ab\"c,d\"e", {L"abc,d\"e"}},
      // Kept in the middle of a field, and it still flips the state.
      {"abc\"d,e\"f,g", {L"abc\"d,e\"f", L"g"}},
      // Dropped beside a separator and at the end.
      {"abcd,\"e\",f", {L"abcd", L"e", L"f"}},
      {"abcd,e\",f\",g", {L"abcd", L"e,f", L"g"}},
      {"abcd,ef\"", {L"abcd", L"ef"}},
      // Two quotes outside quotes are two flips: beside a separator both go, elsewhere both stay.
      {"abcd,\"\",e", {L"abcd", L"", L"e"}},
      {"abcd\"\"e,f", {L"abcd\"\"e", L"f"}},
      {"abcd,\"e\"\"\",f", {L"abcd", L"e\"", L"f"}},
      {"abcd,\"never,closed", {L"abcd", L"never,closed"}},
  };
  for (const auto& c : cases) EXPECT_EQ(Row(c.line), c.fields) << c.line;
}

TEST_F(SystemSettingTest, FieldsOfTheCurrentRow) {
  const auto settings = Opened("5,,3\n123456,a\n\nx");
  CString text = L"old";
  EXPECT_EQ(settings->GetDataStr(text, 0), 0);
  EXPECT_EQ(text, L"");
  ASSERT_EQ(settings->ReadCSV(), 1);
  EXPECT_EQ(settings->GetSize(), 2);
  EXPECT_EQ(settings->GetDataStr(text, 2), 1);
  EXPECT_EQ(text, L"3");
  EXPECT_EQ(settings->GetDataStr(text, 1), 1);
  EXPECT_EQ(settings->GetDataStr(text, 3), 0);
  EXPECT_EQ(settings->GetDataStr(text, -1), 0);
  EXPECT_EQ(settings->GetDataNum(2), 3);
  EXPECT_EQ(settings->GetDataNum(1), 0);
  EXPECT_EQ(settings->GetDataNum(-1), 0);

  ASSERT_EQ(settings->ReadCSV(), 1);
  EXPECT_EQ(settings->Row(), (Texts{L"123456", L"a"})) << "nothing of the longer row before";
  wchar_t buffer[256] = L"old";
  EXPECT_EQ(settings->GetDataStr(buffer, 4, 0), 4);
  EXPECT_STREQ(buffer, L"1234");
  EXPECT_EQ(settings->GetDataStr(buffer, 255, 0), 6);
  EXPECT_STREQ(buffer, L"123456");
  EXPECT_EQ(settings->GetDataStr(buffer, 255, 2), 0);
  EXPECT_EQ(settings->GetDataStr(buffer, -1, 0), 0);
  EXPECT_STREQ(buffer, L"123456") << "left alone";
  EXPECT_EQ(settings->GetDataStr(buffer, 0, 0), 0);
  EXPECT_STREQ(buffer, L"") << "the terminator alone";

  EXPECT_EQ(settings->ReadCSV(), 0) << "a blank line";
  EXPECT_EQ(settings->GetSize(), 0);
  EXPECT_EQ(settings->ReadCSV(), 1);
  EXPECT_EQ(settings->ReadCSV(), 0);

  const auto long_field = Opened(std::string(300, 'x'));
  ASSERT_EQ(long_field->ReadCSV(), 1);
  EXPECT_EQ(long_field->GetDataStr(buffer, 1000, 0), 255);
}

TEST_F(SystemSettingTest, WriteCsvAddsALineFeed) {
  const auto settings = Opened("", Settings::modeWrite);
  settings->WriteCSV(L"59,3,\"A,B\"");
  settings->WriteCSV(L"");
  EXPECT_TRUE(settings->Close());
  EXPECT_EQ(ReadNative(native("system.csv")), "59,3,\"A,B\"\r\n\r\n");
}

TEST_F(SystemSettingTest, ManyRowsLoadFast) {
  std::string rows;
  for (int i = 0; i < 10000; ++i) rows += std::to_string(i % 600) + ",1440,text\r\n";
  InstallLogSink(nullptr);
  const auto start = std::chrono::steady_clock::now();
  Load(rows);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

}  // namespace
}  // namespace vk::tq::testing
