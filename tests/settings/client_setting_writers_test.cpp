#include <filesystem>

#include "platform/error.h"
#include "platform/text.h"
#include "settings/client_setting.h"
#include "settings/client_setting_writer_table.h"
#include "support/failing_allocation.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using C = CClientSetting;
using Lines = std::vector<LogLine>;

constexpr char kClientIni[] = "config/Client.ini";
constexpr char kConfigIni[] = "PrintProcessor/config.ini";

class ClientSettingWritersTest : public ProductTest {
 protected:
  void WriteIni(const char* name, std::string_view bytes) {
    WriteNative(product_native(name), bytes);
  }
  std::string ReadIni(const char* name) { return ReadNative(product_native(name)); }

  C setting_;
};

TEST_F(ClientSettingWritersTest, ClientIniKeysChangeAlone) {
  WriteIni(kClientIni,
           "; site A\r\n[Other]\r\nP1=x\r\n\r\n[Setting]\r\n; servers\r\nP1 = old\r\n"
           "Unknown=\"kept\"\r\nServerAutoSetting=0\r\n[Thread]\r\nPrinterInfoCycle=1\r\n");
  EXPECT_EQ(setting_.WritePrimPSIpAddr(L"192.0.2.1"), 1);
  EXPECT_EQ(setting_.WriteSvIpGetAutoFlg(L"1"), 1);
  EXPECT_EQ(setting_.WriteScndPSIpAddr(L"192.0.2.2"), 1);
  EXPECT_EQ(setting_.WriteClientIP(L"192.0.2.3"), 1);
  EXPECT_EQ(ReadIni(kClientIni),
            "; site A\r\n[Other]\r\nP1=x\r\n\r\n[Setting]\r\n; servers\r\nP1 = 192.0.2.1\r\n"
            "Unknown=\"kept\"\r\nServerAutoSetting=1\r\nP1Secondary=192.0.2.2\r\n"
            "ClientIPAddress=192.0.2.3\r\n[Thread]\r\nPrinterInfoCycle=1\r\n");
  EXPECT_EQ(setting_.ReadPrimPSIpAddr(), L"192.0.2.1");
  EXPECT_EQ(setting_.ReadScndPSIpAddr(), L"192.0.2.2");
  EXPECT_EQ(setting_.ReadSvIpGetAutoFlg(), 1);
  C read;
  read.Read(0);
  EXPECT_EQ(read.ClientIPAddress, L"192.0.2.3");
}

TEST_F(ClientSettingWritersTest, ClientIniReadersWithoutAKey) {
  EXPECT_EQ(setting_.ReadPrimPSIpAddr(), L"");
  EXPECT_EQ(setting_.ReadScndPSIpAddr(), L"");
  EXPECT_EQ(setting_.ReadSvIpGetAutoFlg(), 0);
  WriteIni(kClientIni, "[Setting]\nP1=\" a \"\nServerAutoSetting=2x\n");
  EXPECT_EQ(setting_.ReadPrimPSIpAddr(), L" a ") << "not trimmed";
  EXPECT_EQ(setting_.ReadScndPSIpAddr(), L"") << "no substitute";
  EXPECT_EQ(setting_.ReadSvIpGetAutoFlg(), 2);
  EXPECT_EQ(log_.lines(), Lines{});
}

TEST_F(ClientSettingWritersTest, ClientIniThatCannotBeWritten) {
  std::filesystem::remove_all(product_native("config"));
  EXPECT_EQ(setting_.WritePrimPSIpAddr(L"a"), 0);
  EXPECT_EQ(setting_.WriteScndPSIpAddr(L"a"), 0);
  EXPECT_EQ(setting_.WriteSvIpGetAutoFlg(L"a"), 0);
  EXPECT_EQ(setting_.WriteClientIP(L"a"), 1);
  EXPECT_EQ(log_.lines(), Lines{});
}

TEST_F(ClientSettingWritersTest, ATextIsWrittenOnOneLine) {
  std::filesystem::create_directory(product_native("PrintProcessor"));
  const CString nul(1, L'\0');
  EXPECT_EQ(setting_.WriteClientIP(L"a\r\nb"), 1);
  EXPECT_EQ(setting_.WritePrimPSIpAddr(L"c\nP2=d"), 1);
  EXPECT_EQ(setting_.WriteScndPSIpAddr(L"e" + nul + L"f"), 1);
  EXPECT_EQ(ReadIni(kClientIni),
            "[Setting]\r\nClientIPAddress=a b\r\nP1=c P2=d\r\nP1Secondary=e\r\n");

  EXPECT_EQ(setting_.WriteTrayData(3, L"a\rb", 4, nul + L"c", 5, L"d"), 1);
  EXPECT_EQ(setting_.WriteNupSetting(L"1,2\n"), 1);
  EXPECT_EQ(ReadIni(kConfigIni),
            "[Setting]\r\nUseTray1=3\r\nNameTray1=a b\r\nUseTray2=4\r\nNameTray2=トレイ2\r\n"
            "UseTray3=5\r\nNameTray3=d\r\nNupSetting=1,2 \r\n");
  EXPECT_THAT(log_.lines(3), ::testing::IsSupersetOf(Lines{
                                 {3, 120200870, L"CClientSetting::WriteTrayData",
                                  L"config設定[トレイ1 表示名]       :[a b]"},
                                 {3, 120200840, L"CClientSetting::WriteTrayData",
                                  L"設定値がありません。デフォルト値を使用します。[トレイ2 表示名] "
                                  L"設定値:[トレイ2]"},
                                 {3, 120200900, L"CClientSetting::WriteNupSetting",
                                  L"config設定[使用Nup]              :[1,2 ]"}}));
}

TEST_F(ClientSettingWritersTest, AddIconRetry) {
  const auto read = [&](const std::string& value) {
    WriteIni(kClientIni, "[Setting]\n" + value);
    return setting_.ReadAddIconRetry();
  };
  EXPECT_EQ(read("AddIconRetry=0"), 0);
  EXPECT_EQ(read("AddIconRetry=\" 7 \""), 7);
  EXPECT_EQ(read("AddIconRetry=99999999999"), 2147483647);
  EXPECT_EQ(log_.lines(), Lines{});
  EXPECT_EQ(read(""), 100);
  EXPECT_EQ(read("AddIconRetry=\" 7x\""), 100);
  const auto line = [](const wchar_t* value) {
    return LogLine{3, 120200630, L"CClientSetting::ReadAddIconRetry",
                   L"設定値が異常です。デフォルト値を使用します。[タスクトレイへのアイコン登録時"
                   L"リトライ回数] 設定値:[" +
                       std::wstring(value) + L"]"};
  };
  EXPECT_EQ(log_.lines(), (Lines{line(L""), line(L" 7x")}));
}

TEST_F(ClientSettingWritersTest, EmsDirectory) {
  const std::wstring default_value =
      L"C:\\Documents and Settings\\All Users\\Application Data\\ORV-INC\\Velkorandia\\"
      L"Tessaloquin\\EMS";
  const auto check = [&](const std::wstring& entry, int result, const std::wstring& value) {
    log_.Clear();
    WriteIni(kClientIni, "[Setting]\n" + ToUtf8(entry) + "\n");
    setting_.EMSDir = L"old";
    CString out = L"old";
    EXPECT_EQ(setting_.ReadEMSDir(out), result);
    EXPECT_EQ(out, value);
    EXPECT_EQ(setting_.EMSDir, value);
  };
  const auto failed = [&](int number, const std::wstring& text) {
    const Lines lines = log_.lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), (LogLine{4, number, L"CClientSetting::ReadEMSDir", text}));
    EXPECT_EQ(log_.events(), (std::vector<Event>{{0xC0004000, text}}));
  };
  check(L"", 0, default_value);
  failed(120200640, L"配信先ディレクトリが、設定されていません。");
  check(L"EMSDir=\"  \"", 0, default_value);
  failed(120200650, L"設定値が異常です。[配信先ディレクトリ] 設定値:[]");
  const std::wstring impossible = path(L"no\\parent");
  check(L"EMSDir=" + impossible, 0, default_value);
  failed(120200660,
         L"ディレクトリの存在確認及び、作成処理に失敗しました。[配信先ディレクトリ] 設定値:[" +
             impossible + L"]");
  check(L"EMSDir=" + path(L"ems") + L"\\", 1, path(L"ems"));
  EXPECT_TRUE(ExistsNative(native("ems")));
  EXPECT_EQ(log_.events(), std::vector<Event>{});
}

LogLine TrayLine(int number, const std::wstring& message) {
  return {3, number, L"CClientSetting::WriteTrayData", message};
}

TEST_F(ClientSettingWritersTest, TrayData) {
  WriteIni(kConfigIni, "; mine\n[Setting]\nOther=1\nNameTray1=old\n");
  EXPECT_EQ(setting_.WriteTrayData(3, L"手差し", 4, L"b c", 5, L"d"), 1);
  EXPECT_EQ(ReadIni(kConfigIni),
            "; mine\n[Setting]\nOther=1\nNameTray1=手差し\nUseTray1=3\nUseTray2=4\nNameTray2=b c\n"
            "UseTray3=5\nNameTray3=d\n");
  const LogLine start{0, 0, L"CClientSetting::WriteTrayData", L"START"};
  const LogLine end{0, 0, L"CClientSetting::WriteTrayData", L"END"};
  EXPECT_EQ(log_.lines(),
            (Lines{start, TrayLine(120200870, L"config設定[トレイ1 有効/無効]    :[3]"),
                   TrayLine(120200870, L"config設定[トレイ1 表示名]       :[手差し]"),
                   TrayLine(120200870, L"config設定[トレイ2 有効/無効]    :[4]"),
                   TrayLine(120200870, L"config設定[トレイ2 表示名]       :[b c]"),
                   TrayLine(120200870, L"config設定[トレイ3 有効/無効]    :[5]"),
                   TrayLine(120200870, L"config設定[トレイ3 表示名]       :[d]"), end}));

  log_.Clear();
  EXPECT_EQ(setting_.WriteTrayData(4, L"", -1, L"", 3, L""), 1);
  const std::wstring use = L"設定値が異常です。デフォルト値を使用します。[トレイ";
  const std::wstring name = L"設定値がありません。デフォルト値を使用します。[トレイ";
  const Lines corrected = {
      TrayLine(120200810, use + L"1 有効/無効] 設定値:[0]"),
      TrayLine(120200820, name + L"1 表示名] 設定値:[トレイ1]"),
      TrayLine(120200830, use + L"2 有効/無効] 設定値:[0]"),
      TrayLine(120200840, name + L"2 表示名] 設定値:[トレイ2]"),
      TrayLine(120200850, use + L"3 有効/無効] 設定値:[0]"),
      TrayLine(120200860, name + L"3 表示名] 設定値:[トレイ3]"),
  };
  const Lines lines = log_.lines(3);
  ASSERT_EQ(lines.size(), 12u);
  EXPECT_EQ(Lines(lines.begin(), lines.begin() + 6), corrected);
  EXPECT_EQ(lines[6], TrayLine(120200870, L"config設定[トレイ1 有効/無効]    :[0]"));
  EXPECT_EQ(ReadIni(kConfigIni),
            "; mine\n[Setting]\nOther=1\nNameTray1=トレイ1\nUseTray1=0\nUseTray2=0\n"
            "NameTray2=トレイ2\nUseTray3=0\nNameTray3=トレイ3\n");
}

// The operations that write a number. Limits, defaults and warnings of their rows are compared with
// the document by settings_document_test.cpp.
const struct {
  client_keys::NumberWriter row;
  int (C::*write)(int);
} kWriters[] = {{client_keys::kTonerSaveDisp, &C::WriteTonerSaveDisp},
                {client_keys::kFontImageDisp, &C::WriteFontImageDisp},
                {client_keys::kSpoolingJobSkipTimer, &C::WriteSpoolingJobSkipTimer},
                {client_keys::kWorkaroundRemnantJob, &C::WriteWorkaroundRemnantJob}};

TEST_F(ClientSettingWritersTest, Numbers) {
  std::filesystem::create_directory(product_native("PrintProcessor"));
  for (const auto& [row, write] : kWriters) {
    const auto line = [&row = row](int number, const wchar_t* text, int value) {
      return LogLine{3, number, row.function, Format(text, value)};
    };
    for (const int value : {0, 1, row.most, row.most + 1, -1, 2147483647}) {
      log_.Clear();
      EXPECT_EQ((setting_.*write)(value), 1);
      const bool is_good = value >= 0 && value <= row.most;
      const int written = is_good ? value : row.default_value;
      Lines lines = {{0, 0, row.function, L"START"}};
      if (!is_good) lines.push_back(line(row.bad, row.bad_text, written));
      lines.push_back(line(row.written, row.written_text, written));
      lines.push_back({0, 0, row.function, L"END"});
      EXPECT_EQ(log_.lines(), lines);
      EXPECT_THAT(ReadIni(kConfigIni),
                  ::testing::HasSubstr(ToUtf8(row.key) + "=" + std::to_string(written) + "\r\n"));
    }
  }
  EXPECT_EQ(setting_.WriteSpoolingJobSkipTimer(10000), 1);
  EXPECT_THAT(log_.lines(), ::testing::Contains(LogLine{
                                3, 120200970, L"CClientSetting::WriteSpoolingJobSkipTimer",
                                L"設定値が異常です。デフォルト値を使用します。"
                                L"[ドライバサービスでのスプーリング監視時間] 設定値:[180]"}));
}

// Notes whether a file is there when a line of a number comes.
class OrderSink : public LogSink {
 public:
  OrderSink(int number, std::string native) : number_(number), native_(std::move(native)) {}
  void Write(const LogRecord& record) override {
    if (record.number == number_) was_there = ExistsNative(native_);
  }
  std::optional<bool> was_there;

 private:
  int number_;
  std::string native_;
};

TEST_F(ClientSettingWritersTest, TraysAreLoggedBeforeTheyAreWrittenAllElseBehind) {
  std::filesystem::create_directory(product_native("PrintProcessor"));
  const auto was_there = [&](int number, const auto& call) {
    std::filesystem::remove(product_native(kConfigIni));
    const auto sink = std::make_shared<OrderSink>(number, product_native(kConfigIni));
    InstallLogSink(sink);
    EXPECT_EQ(call(), 1);
    EXPECT_TRUE(ExistsNative(product_native(kConfigIni)));
    return sink->was_there;
  };
  EXPECT_EQ(was_there(120200870, [&] { return setting_.WriteTrayData(0, L"a", 0, L"b", 0, L"c"); }),
            false);
  EXPECT_EQ(was_there(120200900, [&] { return setting_.WriteNupSetting(L"1"); }), true);
  for (const auto& [row, write] : kWriters) {
    EXPECT_EQ(was_there(row.written, [&, call = write] { return (setting_.*call)(0); }), true);
  }
}

TEST_F(ClientSettingWritersTest, NupSetting) {
  const wchar_t* const function = L"CClientSetting::WriteNupSetting";
  // The folder is missing: nobody looks at the result of the write.
  EXPECT_EQ(setting_.WriteNupSetting(L"1,2,x"), 1);
  EXPECT_FALSE(ExistsNative(product_native(kConfigIni)));
  EXPECT_EQ(log_.lines(),
            (Lines{{0, 0, function, L"START"},
                   {3, 120200900, function, L"config設定[使用Nup]              :[1,2,x]"},
                   {0, 0, function, L"END"}}));
}

// Records the lines, and lets the first allocation behind the line "START" fail.
class FailingSink : public LogSink {
 public:
  void Write(const LogRecord& record) override {
    lines.push_back({record.level,
                     record.number,
                     std::wstring(record.function),
                     std::wstring(record.message),
                     {},
                     record.code});
    if (record.message == L"START") FailNextAllocation();
  }
  Lines lines;
};

TEST_F(ClientSettingWritersTest, AnExceptionIsLoggedBeforeTheEnd) {
  std::filesystem::create_directory(product_native("PrintProcessor"));
  const auto check = [&](const wchar_t* function, int number, auto call) {
    const auto sink = std::make_shared<FailingSink>();
    InstallLogSink(sink);
    SetLastError(5);
    EXPECT_EQ(call(), 0) << number;
    const wchar_t* const text = L"config.iniファイルへの書き込みで予期せぬエラーが発生しました。";
    EXPECT_EQ(sink->lines, (Lines{{0, 0, function, L"START"},
                                  {5, number, function, text, {}, 5},
                                  {0, 0, function, L"END"}}));
  };
  for (const auto& [row, write] : kWriters) {
    check(row.function, row.exception, [&, call = write] { return (setting_.*call)(0); });
  }
  check(L"CClientSetting::WriteNupSetting", 120200910,
        [&] { return setting_.WriteNupSetting(L"1"); });
  check(L"CClientSetting::WriteTrayData", 120200880,
        [&] { return setting_.WriteTrayData(0, L"a", 0, L"b", 0, L"c"); });
  EXPECT_FALSE(ExistsNative(product_native(kConfigIni)));
}

}  // namespace
}  // namespace vk::tq::testing
