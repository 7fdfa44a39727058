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
    RunJson("user set " + option + "--field PrintUserNo=");
    const Json data = RunJson("user show " + option);
    EXPECT_EQ(data.at("UserID"), "山田");
    EXPECT_EQ(data.at("PrintUserNo"), "");
    RunJson("user set " + option + "--field NoSuch=1", 2);
    EXPECT_TRUE(ExistsNative(file)) << file;
    EXPECT_EQ(RunJson("user delete " + option).at("deleted"), true);
    EXPECT_FALSE(ExistsNative(file)) << file;
    RunJson("user delete " + option, 1);
  }
  RunJson("user show --service --shared", 2);
  // A shared PC's data has four fields.
  RunJson("user set --shared --field LastRegistUserTickCount=1", 2);
}

TEST_F(UsersTool, AListIsPackedAskedAndUnpacked) {
  EXPECT_THAT(Run("users lookup yamada").error, HasSubstr("There is no list"));
  const std::string list = "[ChangeUsers]\nyamada=yamada.t\nsuzuki=\n[LogOnlyUsers]\n佐藤=log\n";
  WriteNative(native("list.ini"), list);
  RunJson("users pack list.ini");
  RunJson("users pack list.ini", 1);
  RunJson("users pack list.ini -o " + product_native("config/EnableUsers.dat"));
  for (const auto& [who, name, account] : {std::tuple{"YAMADA", "ChangeUsers", "yamada.t"},
                                           {"suzuki --login me", "ChangeUsers", "me"},
                                           {"佐藤", "LogOnlyUsers", "log"},
                                           {"nobody", "none", ""}}) {
    const Json answer = RunJson(std::string("users lookup ") + who);
    EXPECT_EQ(answer.at("list"), name) << who;
    EXPECT_EQ(answer.at("account"), account) << who;
  }

  // What comes back ends where the list ended, in every encoding and length.
  for (const std::string& text : {list, "\xFF\xFE" + std::string("a\0=\0b\0", 6), std::string(),
                                  std::string(16, 'x'), std::string(0x100000, 'y')}) {
    WriteNative(native("a.ini"), text);
    RunJson("users pack a.ini --force");
    RunJson("users unpack a.dat --output b.ini --force");
    EXPECT_EQ(ReadNative("b.ini"), text) << text.size();
  }
  WriteKeyFile(std::string(34, 'x'));
  EXPECT_THAT(Run("users lookup yamada").error, HasSubstr("crypt check"));
  RunJson("users pack list.ini --force", 1);
}

TEST_F(UsersTool, PrintersAreAddedListedTestedAndRemoved) {
  EXPECT_TRUE(RunJson("printers list").empty());
  RunJson("printers add 0 'レシート*'");
  RunJson("printers add 3 Label");
  RunJson("printers add 4 x", 2);
  RunJson("printers add 1 ''", 2);
  RunJson("printers list --dir none", 1);
  const Json list = RunJson("printers list");
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].at("name"), "レシート*");
  EXPECT_EQ(list[1].at("attribute"), "driver");
  EXPECT_EQ(RunJson("printers test 'レシート 1F'").at("listed"), true);
  EXPECT_EQ(RunJson("printers test Label").at("listed"), false);
  EXPECT_EQ(RunJson("printers test 2F --driver 'A Label 3'").at("listed"), true);
  RunJson("printers remove 1 Label", 1);
  RunJson("printers remove 3 Label");
  const Json left = RunJson("printers list");
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0], list[0]);
  WriteKeyFile(std::string(34, 'x'));
  RunJson("printers add 1 x", 1);
}

}  // namespace
}  // namespace vk::tq::testing
