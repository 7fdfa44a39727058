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
                 "SharedPC=x\nP4=300\nSharedPCCardSystemCode=12345\nLomuInfoDir=C:\\No\\Parent\n");
  const Json checked = RunJson("settings check --transfer", 1);
  EXPECT_EQ(checked.at("settings").size(), 55u);
  std::map<std::string, std::string> rows;
  for (const Json& row : checked.at("settings")) {
    std::string& says = rows[row.at("key")] =
        TextOf(row.at("value")) + " " + TextOf(row.at("state"));
    for (const Json& line : row.at("lines")) says += " " + TextOf(line.at("number"));
  }
  // The value, the state, and the numbers of the lines.
  for (const auto& [key, says] : {
           std::pair{"SharedPC", "1 default 120200010"},
           {"P2", "tester read"},
           {"P3", "(not shown) read"},
           {"P4", "20 default 120200110"},
           {"CertNemiInfoDir", "C:\\Made made 120200610"},
           // These share the number of their lines.
           {"StandByIdleCount", "15 default 120200748"},
           {"FtpSizeCheck", "2 default 120200748"},
           {"SharedPCCardSystemCode", " failure 120200720"},
           // A failure that does not count, with the line of the cause in front.
           {"LomuInfoDir",
            "C:\\Documents and Settings\\All Users\\Application "
            "Data\\ORV-INC\\Velkorandia\\Tessaloquin\\LomuInf failure 120200600 120200230"},
       }) {
    EXPECT_EQ(rows[key], says) << key;
  }

  // The directory is there now, and nothing else is wrong.
  WriteClientIni(kRequired + account.out);
  const ToolResult people = Run("settings check");
  EXPECT_EQ(people.status, 0) << people.out;
  EXPECT_THAT(people.out, AllOf(HasSubstr("directories made: 0. The suite can work"),
                                Not(HasSubstr("geheim"))));
}

TEST_F(SettingsTool, SetWritesTheKeysThatHaveWritersAndTellsWhatStands) {
  std::filesystem::create_directories(product_native("PrintProcessor"));
  for (const auto& [key, value, status] : {std::tuple{"P1", "printer.example", 0},
                                           {"ClientIPAddress", "192.0.2.2", 0},
                                           {"NameTray2", "給紙 2", 0},
                                           {"UseTray1", "3", 0},
                                           {"UseTray3", "9", 1},
                                           {"NupSetting", "1,2", 0},
                                           {"TonerSaveDisp", "0", 0},
                                           {"FontImageDisp", "7", 1},
                                           {"WorkaroundRemnantJob", "many", 2},
                                           {"P2", "x", 2},
                                           {"P1", " blank ", 1}}) {
    const Json result = RunJson(std::string("settings set ") + key + " '" + value + "'", status);
    if (status == 0) {
      EXPECT_EQ(TextOf(result.at("value")), value);
    }
  }
  EXPECT_THAT(ReadNative(product_native("config/Client.ini")),
              HasSubstr("ClientIPAddress=192.0.2.2"));
  // A tray keeps what is not named.
  EXPECT_THAT(ReadNative(product_native("PrintProcessor/config.ini")),
              AllOf(HasSubstr("NameTray2=給紙 2"), HasSubstr("UseTray1=3")));
  std::filesystem::remove_all(product_native("PrintProcessor"));
  EXPECT_EQ(Run("settings set TonerSaveDisp 1").status, 1);
}

TEST_F(SettingsTool, AccountAsksWithoutEchoAndPrintsLinesOfClientIni) {
  const std::string line = "settings account tester";
  const ToolResult piped = Run(line, "geheim secret\n");
  EXPECT_EQ(piped.status, 0);
  EXPECT_THAT(piped.out, ::testing::MatchesRegex("P2=[0-9A-F]{32}\nP3=[0-9A-F]{32}\n"));
  const ToolResult typed = RunOnTerminal(line, "geheim secret\n");
  EXPECT_EQ(typed.status, 0);
  EXPECT_THAT(typed.out, AllOf(HasSubstr("Password of tester"), Not(HasSubstr("geheim")),
                               HasSubstr(piped.out.substr(3, 32))));
  for (const char* password : {"\n", " blank\n", "blank \n"}) {
    EXPECT_EQ(Run(line, password).status, 2) << password;
  }
  EXPECT_EQ(Run(line, "").status, 1);
  RemoveKeyFile();
  EXPECT_THAT(Run(line, "x\n").error, HasSubstr("crypt keygen"));
  WriteKeyFile(std::string(34, 'x'));
  EXPECT_EQ(Run(line, "x\n").status, 1);
}

TEST_F(SettingsTool, SystemShowsEveryItemBesideItsDefault) {
  WriteNative(native("site.csv"), "13,10\r\n59,3,\"両面,白黒\"\r\n");
  std::map<std::string, std::string> values;
  for (const Json& row : RunJson("system show site.csv")) {
    values[row.at("name")] = TextOf(row.at("value")) + "|" + TextOf(row.at("default"));
  }
  EXPECT_EQ(values.size(), 44u);
  EXPECT_EQ(values["EmsUpdateCycle"], "10|5");
  EXPECT_EQ(values["NameTray1"], "両面,白黒|トレイ1");
  EXPECT_EQ(values["NameTray2"], "トレイ2|トレイ2");
  EXPECT_EQ(Run("system show none.csv").status, 1);
}

}  // namespace
}  // namespace vk::tq::testing
