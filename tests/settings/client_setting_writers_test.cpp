#include <filesystem>
#include <functional>

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
  const auto read = [&] {
    return setting_.ReadPrimPSIpAddr() + L"," + setting_.ReadScndPSIpAddr() + L"," +
           std::to_wstring(setting_.ReadSvIpGetAutoFlg());
  };
  EXPECT_EQ(read(), L",,0");
  WriteIni(kClientIni, "[Setting]\nP1=\" a \"\nServerAutoSetting=2x\n");
  EXPECT_EQ(read(), L" a ,,2") << "not trimmed, no substitute";

  // A file that cannot be written.
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
  EXPECT_THAT(log_.lines(3),
              ::testing::Contains(LogLine{3, 120200870, L"CClientSetting::WriteTrayData",
                                          L"config設定[トレイ1 表示名]       :[a b]"}));
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

TEST_F(ClientSettingWritersTest, TrayData) {
  const auto line = [](int number, const std::wstring& message, int level = 3) {
    return LogLine{level, number, L"CClientSetting::WriteTrayData", message};
  };
  const auto written = [&](const std::wstring& tray, const std::wstring& use,
                           const std::wstring& name) {
    return Lines{line(120200870, L"config設定[トレイ" + tray + L" 有効/無効]    :[" + use + L"]"),
                 line(120200870, L"config設定[トレイ" + tray + L" 表示名]       :[" + name + L"]")};
  };
  const auto expect = [&](std::initializer_list<Lines> parts) {
    Lines lines{line(0, L"START", 0)};
    for (const Lines& part : parts) lines.insert(lines.end(), part.begin(), part.end());
    lines.push_back(line(0, L"END", 0));
    EXPECT_EQ(log_.lines(), lines);
    log_.Clear();
  };
  WriteIni(kConfigIni, "; mine\n[Setting]\nOther=1\nNameTray1=old\n");
  EXPECT_EQ(setting_.WriteTrayData(3, L"手差し", 4, L"b c", 5, L"d"), 1);
  expect({written(L"1", L"3", L"手差し"), written(L"2", L"4", L"b c"), written(L"3", L"5", L"d")});
  EXPECT_EQ(ReadIni(kConfigIni),
            "; mine\n[Setting]\nOther=1\nNameTray1=手差し\nUseTray1=3\nUseTray2=4\nNameTray2=b c\n"
            "UseTray3=5\nNameTray3=d\n");

  EXPECT_EQ(setting_.WriteTrayData(4, L"", -1, L"", 3, L""), 1);
  const auto corrected = [&](int number, const std::wstring& tray) {
    return Lines{line(number, L"設定値が異常です。デフォルト値を使用します。[トレイ" + tray +
                                  L" 有効/無効] 設定値:[0]"),
                 line(number + 10, L"設定値がありません。デフォルト値を使用します。[トレイ" + tray +
                                       L" 表示名] 設定値:[トレイ" + tray + L"]")};
  };
  expect({corrected(120200810, L"1"), corrected(120200830, L"2"), corrected(120200850, L"3"),
          written(L"1", L"0", L"トレイ1"), written(L"2", L"0", L"トレイ2"),
          written(L"3", L"0", L"トレイ3")});
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

// Records the lines, notes whether a file was there when the line of one number came, and can let
// the first allocation behind the line "START" fail.
class WatchingSink : public LogSink {
 public:
  WatchingSink(std::string native, int number, bool fails)
      : native_(std::move(native)), number_(number), fails_(fails) {}
  void Write(const LogRecord& record) override {
    lines.push_back({record.level,
                     record.number,
                     std::wstring(record.function),
                     std::wstring(record.message),
                     {},
                     record.code});
    if (record.number == number_) was_there = ExistsNative(native_);
    if (fails_ && record.message == L"START") FailNextAllocation();
  }
  Lines lines;
  std::optional<bool> was_there;

 private:
  std::string native_;
  int number_;
  bool fails_;
};

// Trays are logged before they are written, all else behind; an exception before the end.
TEST_F(ClientSettingWritersTest, TheOrderOfWritingAndLogging) {
  struct Operation {
    const wchar_t* function;
    int written;
    int exception;
    std::function<int()> write;
  };
  std::vector<Operation> operations = {
      {L"CClientSetting::WriteTrayData", 120200870, 120200880,
       [&] { return setting_.WriteTrayData(0, L"a", 0, L"b", 0, L"c"); }},
      {L"CClientSetting::WriteNupSetting", 120200900, 120200910,
       [&] { return setting_.WriteNupSetting(L"1"); }}};
  for (const auto& [row, write] : kWriters) {
    operations.push_back({row.function, row.written, row.exception,
                          [&, call = write] { return (setting_.*call)(0); }});
  }
  std::filesystem::create_directory(product_native("PrintProcessor"));
  const std::string file = product_native(kConfigIni);
  for (const Operation& operation : operations) {
    const auto watch = [&](bool fails) {
      std::filesystem::remove(file);
      const auto sink = std::make_shared<WatchingSink>(file, operation.written, fails);
      InstallLogSink(sink);
      SetLastError(5);
      EXPECT_EQ(operation.write(), fails ? 0 : 1) << operation.exception;
      EXPECT_EQ(ExistsNative(file), !fails);
      return sink;
    };
    EXPECT_EQ(watch(false)->was_there, operation.written != 120200870) << operation.written;
    const wchar_t* const text = L"config.iniファイルへの書き込みで予期せぬエラーが発生しました。";
    EXPECT_EQ(watch(true)->lines, (Lines{{0, 0, operation.function, L"START"},
                                         {5, operation.exception, operation.function, text, {}, 5},
                                         {0, 0, operation.function, L"END"}}));
  }
}

}  // namespace
}  // namespace vk::tq::testing
