// tqctl settings, tqctl system.
#include <filesystem>
#include <map>

#include "tools/tool_test.h"

namespace vk::tq::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class SettingsTool : public ToolTest {
 protected:
  void WriteClientIni(const std::string& lines) {
    WriteNative(product_native("config/Client.ini"), "[Setting]\n" + lines);
  }
};

// Every key that Read fails without, with directories that are there, are made or cannot be made.
constexpr const char* kRequired =
    "P1=127.0.0.1\nNemiInfoDir=C:\\There\nCertNemiInfoDir=C:\\Made\\\nNemiManageDir=C:\\Made\n"
    "EmgWorkDir=C:\\There\nEmgTransDir=C:\\There\nEmgServerDir=/EMG\nServiceDataDir=C:\\There\n"
    "PrinterInfoWorkDir=C:\\There\nPrinterInfoTransDir=C:\\There\nPrinterInfoServerDir=Info\n";

TEST_F(SettingsTool, CheckJoinsEachKeyWithWhatTheLibrarySays) {
  const ToolResult missing = Run("settings check");
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.out, HasSubstr("Client.ini does not exist."));
  std::filesystem::create_directories("volumes/c/There");
  const ToolResult account = Run("settings account tester", "geheim secret\n");
  WriteClientIni(kRequired + account.out +
                 "SharedPC=x\nP4=300\nServiceSocket=1234\nFtpSizeCheck=9\n"
                 "SharedPCCardSystemCode=12345\nLomuInfoDir=C:\\No\\Parent\n");
  // The value, the state, and the numbers of the lines.
  const std::pair<const char*, const char*> expected[] = {
      {"SharedPC", "1 default 120200010"},
      {"P1", "127.0.0.1 read"},
      {"P1Secondary", "127.0.0.1 read"},
      {"P2", "tester read"},
      {"P3", "(not shown) read"},
      {"P4", "20 default 120200110"},
      {"ServiceSocket", "1234 read"},
      {"NemiInfoDir", "C:\\There read"},
      {"CertNemiInfoDir", "C:\\Made made 120200610"},
      {"NemiManageDir", "C:\\Made read"},
      // These share the number of their lines.
      {"StandByIdleCount", "15 default 120200748"},
      {"FtpSizeCheck", "2 default 120200750"},
      {"SharedPCCardSystemCode", " failure 120200720"},
      {"PrinterInfoServerDir", "Info read"},
      {"PrintJobInfoDispUserName", "1 default 120200752"},
      {"ServerAutoSetting", "0 read"},
      // A failure that does not count, with the line of the cause in front.
      {"LomuInfoDir",
       "C:\\Documents and Settings\\All Users\\Application "
       "Data\\ORV-INC\\Velkorandia\\Tessaloquin\\LomuInf failure 120200600 120200230"},
  };
  const Json checked = RunJson("settings check --transfer", 1);
  EXPECT_EQ(TextOf(checked.at("exists")), "true");
  EXPECT_EQ(checked.at("settings").size(), 55u);
  std::map<std::string, std::string> rows;
  for (const Json& row : checked.at("settings")) {
    std::string& says = rows[TextOf(row.at("key"))] =
        TextOf(row.at("value")) + " " + TextOf(row.at("state"));
    for (const Json& line : row.at("lines")) says += " " + TextOf(line.at("number"));
  }
  for (const auto& [key, says] : expected) EXPECT_EQ(rows[key], says) << key;

  // The directory is there now, and nothing else is wrong.
  WriteClientIni(kRequired + account.out);
  const ToolResult people = Run("settings check");
  EXPECT_EQ(people.status, 0) << people.out;
  EXPECT_THAT(people.out, HasSubstr("directories made: 0. The suite can work"));
  EXPECT_THAT(people.out, Not(HasSubstr("geheim")));
}

TEST_F(SettingsTool, SetWritesTheKeysThatHaveWritersAndTellsWhatStands) {
  std::filesystem::create_directories(product_native("PrintProcessor"));
  const struct {
    std::string key;
    std::string value;
    int status = 0;
  } rows[] = {
      {"P1", "printer.example"},
      {"P1Secondary", "192.0.2.1"},
      {"ServerAutoSetting", "1"},
      {"ClientIPAddress", "192.0.2.2"},
      {"UseTray2", "4"},
      {"NameTray2", "給紙 2"},
      {"UseTray1", "3"},
      {"UseTray3", "9", 1},
      {"NupSetting", "1,2"},
      {"TonerSaveDisp", "0"},
      {"FontImageDisp", "7", 1},
      {"SpoolingJobSkipTimer", "9999"},
      {"WorkaroundRemnantJob", "12"},
      {"WorkaroundRemnantJob", "many", 2},
      {"P2", "x", 2},
      {"p1", "x", 2},
      {"P1", " blank ", 1},
  };
  for (const auto& row : rows) {
    const Json result = RunJson("settings set " + row.key + " '" + row.value + "'", row.status);
    if (row.status == 0) {
      EXPECT_EQ(TextOf(result.at("value")), row.value);
    }
  }
  EXPECT_THAT(ReadNative(product_native("config/Client.ini")), HasSubstr("192.0.2.1"));
  // A tray keeps what is not named.
  EXPECT_THAT(
      ReadNative(product_native("PrintProcessor/config.ini")),
      AllOf(HasSubstr("UseTray2=4"), HasSubstr("NameTray2=給紙 2"), HasSubstr("UseTray1=3")));
  std::filesystem::remove_all(product_native("PrintProcessor"));
  EXPECT_EQ(Run("settings set TonerSaveDisp 1").status, 1);
}

TEST_F(SettingsTool, AccountAsksWithoutEchoAndPrintsLinesOfClientIni) {
  const ToolResult piped = Run("settings account tester", "geheim secret\n");
  EXPECT_EQ(piped.status, 0);
  EXPECT_THAT(piped.out, ::testing::MatchesRegex("P2=[0-9A-F]{32}\nP3=[0-9A-F]{32}\n"));
  const ToolResult typed = RunOnTerminal("settings account tester", "geheim secret\n");
  EXPECT_EQ(typed.status, 0);
  EXPECT_THAT(typed.out, AllOf(HasSubstr("Password of tester"), Not(HasSubstr("geheim")),
                               HasSubstr(piped.out.substr(3, 32))));

  for (const char* password : {"\n", " blank\n", "blank \n"}) {
    EXPECT_EQ(Run("settings account tester", password).status, 2) << password;
  }
  EXPECT_EQ(Run("settings account tester", "").status, 1);
  EXPECT_EQ(Run("settings account ''", "x\n").status, 2);
  RemoveKeyFile();
  const ToolResult without_key = Run("settings account tester", "x\n");
  EXPECT_EQ(without_key.status, 0);
  EXPECT_THAT(without_key.error, HasSubstr("crypt keygen"));
  WriteKeyFile(std::string(34, 'x'));
  EXPECT_EQ(Run("settings account tester", "x\n").status, 1);
}

TEST_F(SettingsTool, SystemShowsEveryItemBesideItsDefault) {
  WriteNative(native("site.csv"), "13,10\r\n59,3,\"両面,白黒\"\r\n66,,\"1,2\"\r\n");
  std::map<std::string, std::string> values;
  for (const Json& row : RunJson("system show site.csv")) {
    values[TextOf(row.at("name"))] = TextOf(row.at("value")) + "|" + TextOf(row.at("default"));
  }
  EXPECT_EQ(values.size(), 44u);
  EXPECT_EQ(values["EmsUpdateCycle"], "10|5");
  EXPECT_EQ(values["UseTray1"], "3|0");
  EXPECT_EQ(values["NameTray1"], "両面,白黒|トレイ1");
  EXPECT_EQ(values["NameTray2"], "トレイ2|トレイ2");
  EXPECT_EQ(values["NupSetting"], "1,2|1,2,4,6,9,16");
  EXPECT_EQ(values["DelimiterForTavo"], "#SC#|#SC#");
  EXPECT_EQ(Run("system show none.csv").status, 1);
  EXPECT_EQ(Run("system show").status, 2);
}

}  // namespace
}  // namespace vk::tq::testing
