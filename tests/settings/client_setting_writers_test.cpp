#include <filesystem>

#include "platform/text.h"
#include "settings/client_setting.h"
#include "settings/client_setting_files.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using C = CClientSetting;

constexpr char kClientIni[] = "config/Client.ini";
constexpr char kConfigIni[] = "PrintProcessor/config.ini";

class ClientSettingWritersTest : public ProductTest {
 protected:
  void WriteIni(const char* name, std::string_view bytes) {
    WriteNative(product_native(name), bytes);
  }

  C setting_;
};

TEST_F(ClientSettingWritersTest, ClientIniKeysChangeAloneAndOnOneLine) {
  const auto read = [&] {
    return setting_.ReadPrimPSIpAddr() + L"," + setting_.ReadScndPSIpAddr() + L"," +
           std::to_wstring(setting_.ReadSvIpGetAutoFlg());
  };
  EXPECT_EQ(read(), L",,0") << "no file";
  WriteIni(kClientIni,
           "[Other]\r\nP1=x\r\n[Setting]\r\nP1 = \" a \"\r\nServerAutoSetting=2x\r\n"
           "[Thread]\r\nPrinterInfoCycle=1\r\n");
  EXPECT_EQ(read(), L" a ,,2") << "not trimmed, no substitute";
  EXPECT_EQ(setting_.WritePrimPSIpAddr(L"c\nP2=d") + setting_.WriteSvIpGetAutoFlg(L"1") +
                setting_.WriteScndPSIpAddr(CString(L"e\0f", 3)) + setting_.WriteClientIP(L"a\r\nb"),
            4);
  EXPECT_EQ(ReadNative(product_native(kClientIni)),
            "[Other]\r\nP1=x\r\n[Setting]\r\nP1 = c P2=d\r\nServerAutoSetting=1\r\n"
            "P1Secondary=e\r\nClientIPAddress=a b\r\n[Thread]\r\nPrinterInfoCycle=1\r\n");
  EXPECT_EQ(read(), L"c P2=d,e,1");
  std::filesystem::remove_all(product_native("config"));
  EXPECT_EQ(setting_.WritePrimPSIpAddr(L"a") + setting_.WriteSvIpGetAutoFlg(L"a"), 0);
  EXPECT_EQ(setting_.WriteClientIP(L"a"), 1);
  EXPECT_THAT(log_.texts(), ::testing::IsEmpty());
}

// What the other operations log, and what they leave in config.ini: texts go on one line, and what is
// not good gets its default.
TEST_F(ClientSettingWritersTest, OperationsTellWhatTheyDo) {
  WriteIni(kClientIni, "[Setting]\nAddIconRetry=\" 7 \"\n");
  EXPECT_EQ(setting_.ReadAddIconRetry(), 7);
  WriteIni(kClientIni, "[Setting]\nAddIconRetry=\" 7x\"\n");
  EXPECT_EQ(setting_.ReadAddIconRetry(), 100);
  CString directory;
  for (const char* value : {"", "\"  \"", "C:\\No\\Parent"}) {
    WriteIni(kClientIni, std::string("[Setting]\nEMSDir=") + value + "\n");
    EXPECT_EQ(setting_.ReadEMSDir(directory), 0);
    EXPECT_EQ(directory, std::wstring(client_keys::kDefaultFolder) + L"EMS");
  }
  WriteIni(kClientIni, "[Setting]\nEMSDir=" + ToUtf8(path(L"ems")) + "\\\n");
  std::filesystem::create_directory(native("ems"));
  EXPECT_EQ(setting_.ReadEMSDir(directory), 1);
  EXPECT_EQ(directory + setting_.EMSDir, path(L"ems") + path(L"ems"));

  EXPECT_EQ(setting_.WriteTonerSaveDisp(0), 1) << "no folder, nobody looks";
  WriteIni(kConfigIni, "; mine\n[Setting]\nOther=1\nNameTray1=old\n");
  EXPECT_EQ(setting_.WriteTrayData(3, L"a\rb", 4, CString(L"\0c", 2), 5, L"d"), 1);
  EXPECT_EQ(setting_.WriteNupSetting(L"1,2\n"), 1);
  std::string recorded = ReadNative(product_native(kConfigIni));
  EXPECT_EQ(setting_.WriteTrayData(4, L"", -1, L"", 3, L""), 1);
  // The writers of numbers, and the greatest number that each takes.
  const std::pair<int (C::*)(int), int> kWriters[] = {{&C::WriteTonerSaveDisp, 1},
                                                      {&C::WriteFontImageDisp, 1},
                                                      {&C::WriteSpoolingJobSkipTimer, 9999},
                                                      {&C::WriteWorkaroundRemnantJob, 9999}};
  for (const auto& [write, most] : kWriters) {
    for (const int value : {0, most, most + 1, -1}) EXPECT_EQ((setting_.*write)(value), 1);
  }
  EXPECT_EQ(recorded + log_.text() + ReadNative(product_native(kConfigIni)),
            ReadNative(TQ_TEST_DATA "/client_operations_log.txt"));
}

}  // namespace
}  // namespace vk::tq::testing
