// tqctl user, tqctl users, tqctl printers.
#include "tools/tool_test.h"

namespace vk::tq::testing {
namespace {

using ::testing::HasSubstr;
using UsersTool = ToolTest;

TEST_F(UsersTool, UserDataIsSetFieldByFieldInEachOfItsPlaces) {
  const std::pair<std::string, std::string> places[] = {
      {"", "user/ORV-INC/Velkorandia/Tessaloquin/data/DATA.XML"},
      {"--service ", product_native("data/DATA.XML")},
      {"--shared ", product_native("data/Shared.XML")},
  };
  for (const auto& [option, file] : places) {
    RunJson("user show " + option, 1);
    RunJson("user set " + option + "--field UserID=山田 --field PrintUserNo=1=2");
    EXPECT_TRUE(ExistsNative(file)) << file;
    RunJson("user set " + option + "--field PrintUserNo=");
    const Json data = RunJson("user show " + option);
    EXPECT_EQ(TextOf(data.at("UserID")), "山田");
    EXPECT_EQ(TextOf(data.at("PrintUserNo")), "");
    for (const char* wrong : {"--field NoSuch=1", "--field UserID", ""}) {
      RunJson("user set " + option + wrong, 2);
    }
    EXPECT_EQ(TextOf(RunJson("user delete " + option).at("deleted")), "true");
    EXPECT_EQ(TextOf(RunJson("user delete " + option).at("deleted")), "false");
    EXPECT_FALSE(ExistsNative(file)) << file;
  }
  RunJson("user show --service --shared", 2);
  // A shared PC's data has four fields and grows stale.
  RunJson("user set --shared --field LastRegistUserTickCount=1", 2);
  RunJson("user set --shared --field UserID=x");
  WriteNative(product_native("config/Client.ini"), "[Setting]\nSharedTimeout=-1\n");
  RunJson("user show --shared", 1);
}

TEST_F(UsersTool, AListIsPackedAskedAndUnpacked) {
  EXPECT_THAT(Run("users lookup yamada").error, HasSubstr("There is no list"));
  const std::string list = "[ChangeUsers]\nyamada=yamada.t\nsuzuki=\n[LogOnlyUsers]\n佐藤=log\n";
  WriteNative(native("list.ini"), list);
  RunJson("users pack list.ini");
  RunJson("users pack list.ini", 1);
  RunJson("users pack list.ini -o " + product_native("config/EnableUsers.dat"));

  const std::pair<std::string, std::string> rows[] = {
      {"YAMADA", "ChangeUsers yamada.t"},
      {"suzuki", "ChangeUsers "},
      {"suzuki --login me", "ChangeUsers me"},
      {"佐藤", "LogOnlyUsers log"},
      {"nobody", "none "},
  };
  for (const auto& [who, found] : rows) {
    const Json answer = RunJson("users lookup " + who);
    EXPECT_EQ(TextOf(answer.at("list")) + " " + TextOf(answer.at("account")), found) << who;
  }

  // What comes back ends where the list ended, in every encoding and length.
  const std::string utf16(
      "\xFF\xFE"
      "a\0=\0b\0",
      8);
  for (const std::string& text :
       {list, utf16, std::string(), std::string(16, 'x'), std::string(0x100000, 'y')}) {
    WriteNative(native("a.ini"), text);
    RunJson("users pack a.ini --force");
    RunJson("users unpack a.dat --output b.ini --force");
    EXPECT_EQ(ReadNative("b.ini"), text) << text.size();
  }
  RunJson("users unpack none.dat", 1);
  WriteKeyFile(std::string(34, 'x'));
  EXPECT_THAT(Run("users lookup yamada").error, HasSubstr("crypt check"));
  RunJson("users pack list.ini --force", 1);
}

TEST_F(UsersTool, PrintersAreAddedListedAndTested) {
  EXPECT_TRUE(RunJson("printers list").empty());
  RunJson("printers add 0 'レシート*'");
  RunJson("printers add 3 Label");
  RunJson("printers add 4 x", 2);
  RunJson("printers add 1 ''", 2);
  RunJson("printers add 0 x --dir none", 1);
  RunJson("printers list --dir none", 1);
  const Json list = RunJson("printers list");
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(TextOf(list[0].at("name")), "レシート*");
  EXPECT_EQ(TextOf(list[1].at("attribute")), "driver");

  EXPECT_EQ(TextOf(RunJson("printers test 'レシート 1F'").at("listed")), "true");
  EXPECT_EQ(TextOf(RunJson("printers test 2F").at("listed")), "false");
  EXPECT_EQ(TextOf(RunJson("printers test Label").at("listed")), "false");
  EXPECT_EQ(TextOf(RunJson("printers test 2F --driver 'A Label 3'").at("listed")), "true");
  WriteKeyFile(std::string(34, 'x'));
  RunJson("printers add 1 x", 1);
}

}  // namespace
}  // namespace vk::tq::testing
