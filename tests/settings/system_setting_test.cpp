#include "settings/system_setting.h"

#include <functional>

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using namespace std::literals;

using Settings = CSystemSetting;

class OpenSetting : public Settings {
 public:
  using Settings::GetDataNum;
  using Settings::GetDataStr;
  using Settings::GetSize;
  using Settings::ReadCSV;
  using Settings::Settings;
  using Settings::WriteCSV;

  std::wstring Row() {
    std::wstring row;
    CString field;
    for (int i = 0; GetDataStr(field, i) == 1; ++i) row += field + L"|";
    return row;
  }
};

// What every getter gives, a line each.
std::string ToldBy(const Settings& settings) {
  std::string told;
#define TQ_NUMBER(item, getter, ...) told += #getter " " + std::to_string(settings.getter()) + "\n";
#define TQ_TEXT(item, getter, ...) told += #getter " " + ToUtf8(settings.getter()) + "\n";
#define TQ_TRAY(item, tray, ...)                                \
  told += std::to_string(settings.GetUseTray(tray)) + " for " + \
          ToUtf8(settings.GetNameTray(tray)) + "\n";
#include "settings/system_setting_items.h"
  return told;
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
};

// A file that is missing; one with a row that is nobody's, whose defaults are logged; rows for every
// item, each with its key as number and text; rows that are too short, which lose the default.
TEST_F(SystemSettingTest, EveryItemFillsItsSetting) {
  std::string rows, short_rows, told;
  for (int item = 0; item < 1000; ++item) {
    const std::string key = std::to_string(item);
    rows += key + "," + key + ",text " + key + "\n";
    short_rows += key + "\n";
  }
  OpenSetting missing(path(L"missing").c_str(), Settings::modeRead);
  EXPECT_EQ(missing.LoadFile(), -1);
  const auto settings = Load("name,x\n");
  for (const std::string& text : log_.texts()) told += text + "\n";
  told += ToldBy(*settings) + ToldBy(*Load(rows)) + ToldBy(*Load(short_rows));
  log_.Clear();
  settings->GetNameTray(0);
  settings->GetUseTray(4);
  settings->GetNameTray(2);
  settings->GetDataNum(9);
  for (const std::string& text : log_.texts()) told += text + "\n";
  EXPECT_EQ(told, ReadNative(TQ_TEST_DATA "/system_setting.txt"));
}

TEST_F(SystemSettingTest, TreatmentsOfSingleItems) {
  const std::tuple<std::string_view, std::function<int(const Settings&)>, int> kNumbers[] = {
      {"40,-1", &Settings::GetFileTranferType, 15},
      {"19,257", &Settings::GetSharedPrinterUnmount, 1},
      {"62,7", &Settings::GetModeMultiServerSetting, 0},
      {"13, +7x", &Settings::GetEmsUpdateCycle, 7},
      {"13,99999999999", &Settings::GetEmsUpdateCycle, 2147483647},
      {"13,\xEF\xBC\x97", &Settings::GetEmsUpdateCycle, 0},
      {"13\0,8\n13,7\0,x"sv, &Settings::GetEmsUpdateCycle, 7},  // a NUL is a character
      // Only the exact key matches, and the last row wins.
      {"13,6\n13,7\n 13,1\n13 ,2\n013,3\n+13,4\n1300,5\n\xEF\xBC\x91\xEF\xBC\x93,8\n",
       &Settings::GetEmsUpdateCycle, 7},
      // The first blank line ends the file.
      {"13,7\r\n\r\n13,8\r\n", &Settings::GetEmsUpdateCycle, 7},
  };
  for (const auto& [rows, get, value] : kNumbers) EXPECT_EQ(get(*Load(rows)), value) << rows;
  EXPECT_EQ(Load("43,0,;\n43,0,")->GetDelimiterForTavo(), L";");
  EXPECT_EQ(Load("59,3,a\0b\n"sv)->GetNameTray(1), L"a\0b"s);
  EXPECT_EQ(Load("59,3," + std::string(3'000'000, 'n'))->GetNameTray(1).size(), 3'000'000u);
}

TEST_F(SystemSettingTest, RowsAreSplitByTheQuoteRules) {
  const std::pair<std::string, const wchar_t*> kCases[] = {
      {R"(59,3,"A,B")", L"59|3|A,B|"},
      {R"(59,3,"a""b")", L"59|3|a\"b|"},
      // Dropped at the positions 0 to 2, wherever the field begins.
      {R"(ab"c,d"e)", L"abc,d\"e|"},
      // Kept in the middle of a field, and it still flips the state.
      {R"(abc"d,e"f,g)", L"abc\"d,e\"f|g|"},
      // Dropped beside a separator and at the end.
      {R"(abcd,e",f",g)", L"abcd|e,f|g|"},
      // Two quotes outside quotes are two flips: beside a separator both go, elsewhere both stay.
      {R"(abcd,"",e)", L"abcd||e|"},
      {R"(abcd""e,f)", L"abcd\"\"e|f|"},
      {R"(abcd,"e""",f)", L"abcd|e\"|f|"},
      {R"(abcd,"never,closed)", L"abcd|never,closed|"},
      {"123456,,a", L"123456||a|"},
  };
  std::string rows;
  for (const auto& [row, fields] : kCases) rows += row + "\n";
  const auto settings = Make(rows + "\n7");
  ASSERT_TRUE(settings->Open(path(L"system.csv").c_str(), Settings::modeRead));
  for (const auto& [row, fields] : kCases) {
    EXPECT_EQ(settings->ReadCSV(), 1);
    EXPECT_EQ(settings->Row(), fields) << row;
  }
  EXPECT_EQ(settings->GetSize(), 2) << "empty fields do not count";
  wchar_t buffer[] = L"left alone";
  EXPECT_EQ(settings->GetDataStr(buffer, 9, 3) + settings->GetDataStr(buffer, -1, 0), 0);
  EXPECT_STREQ(buffer, L"left alone");
  EXPECT_EQ(settings->GetDataStr(buffer, 4, 0), 4);
  EXPECT_STREQ(buffer, L"1234");
  EXPECT_EQ(settings->ReadCSV() + settings->GetSize(), 0) << "a blank line";
  ASSERT_TRUE(settings->Open(path(L"new").c_str(), Settings::modeWrite | Settings::modeCreate));
  settings->WriteCSV(L"a,1");
  settings->Close();
  EXPECT_EQ(ReadNative(native("new")), "a,1\r\n");
}

}  // namespace
}  // namespace vk::tq::testing
