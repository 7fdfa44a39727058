// tqctl job: each command is run as its users run it.
#include <chrono>
#include <filesystem>

#include "tools/tool_test.h"

namespace vk::tq::testing {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class JobToolTest : public ToolTest {
 protected:
  JobToolTest() { std::filesystem::create_directory(folder_); }

  std::string Base(const std::string& name) const { return folder_ + "/" + name; }
  Json Show(const std::string& name) const { return RunJson({"job", "show", Base(name)}); }

  const std::string folder_ = native("jobs");
};

TEST_F(JobToolTest, AJobIsMadeChangedShownAndDeleted) {
  EXPECT_EQ(RunJson({"job", "new", Base("J1.xyz"), "--status", "5", "--field", "userid=山田",
                     "--field", "comment=a=b", "--field", "spoolsize=-7"})["file"]
                .text,
            Base("J1.005"));
  RunJson({"job", "set", Base("J1"), "--field", "printername=2F 複合機", "--field", "userid="});
  Json job = Show("J1.005");
  EXPECT_EQ(job["status"].text, "5");
  EXPECT_EQ(job["userid"].text, "");
  EXPECT_EQ(job["comment"].text, "a=b");
  EXPECT_EQ(job["spoolsize"].text, "-7");
  EXPECT_EQ(job["printername"].text, "2F 複合機");
  EXPECT_FALSE(job.Has("ErrorMessage")) << "there is no status file yet";

  EXPECT_EQ(RunJson({"job", "delete", Base("J1")})["deleted"].text, Base("J1"));
  EXPECT_THAT(ListNative(folder_), ElementsAre());
}

// The library writes all keys of the status file from the record, and reads none of them back.
TEST_F(JobToolTest, AChangeOfStatusKeepsTheStatusFilesKeys) {
  RunJson({"job", "new", Base("J"), "--status", "99", "--field", "ErrorMessage=用紙", "--field",
           "RetryCount=3", "--field", "AuthPrintFlag=0", "--field",
           "LocalTimeoutUnsentLogPrint=8"});
  RunJson({"job", "set", Base("J"), "--field", "comment=c"});
  EXPECT_THAT(ListNative(folder_), ElementsAre("J.099", "J.dat"));
  RunJson({"job", "set", Base("J"), "--status", "96"});
  EXPECT_THAT(ReadNative(Base("J.dat")),
              AllOf(HasSubstr("ManageStatus=96"), HasSubstr("ErrorMessage=用紙"),
                    HasSubstr("RetryCount=3"), HasSubstr("LocalTimeoutUnsent=8")));

  // A status that lies in the status file stays there: another field alone does not move it.
  std::filesystem::rename(Base("J.096"), Base("J.099"));
  RunJson({"job", "set", Base("J"), "--field", "comment=d"});
  EXPECT_THAT(ListNative(folder_), ElementsAre("J.099", "J.dat"));
  EXPECT_EQ(Show("J")["status"].text, "96");

  // What can be read of a message is its beginning.
  RunJson({"job", "set", Base("J"), "--field", "ErrorMessage=" + std::string(300, 'x')});
  EXPECT_THAT(RunJson({"job", "set", Base("J"), "--status", "97"}, 1)["error"]["message"].text,
              HasSubstr("ErrorMessage"));
  RunJson({"job", "set", Base("J"), "--status", "97", "--field", "ErrorMessage=short"});
}

TEST_F(JobToolTest, WhatCannotBeDecipheredIsNotLost) {
  RunJson({"job", "new", Base("J"), "--field", "userid=u"});
  RunJson({"job", "new", Base("Empty")});
  RunJson({"job", "set", Base("Empty"), "--field", "comment=c"});
  WriteKeyFile("another key");
  RunJson({"job", "set", Base("J"), "--field", "comment=c"}, 1);
  RunJson({"job", "set", Base("J"), "--status", "7"});
  const ToolResult list = Run({"job", "list", folder_});
  EXPECT_EQ(list.status, 1);
  EXPECT_THAT(list.error, HasSubstr("\"J\" cannot be deciphered"));
  WriteKeyFile(std::string(34, 'k'));
  EXPECT_THAT(RunJson({"job", "new", Base("K")}, 1)["error"]["message"].text,
              HasSubstr("longer than 33 bytes"));
  WriteKeyFile();
  EXPECT_EQ(Show("J")["userid"].text, "u");
}

TEST_F(JobToolTest, FailuresAndWrongUsage) {
  RunJson({"job", "new", Base("J")});
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string message;
  } cases[] = {
      {{"job", "new", Base("J")}, 1, "exists"},
      {{"job", "show", Base("None")}, 1, "There is no job"},
      {{"job", "delete", Base("None")}, 1, "There is no job"},
      {{"job", "set", Base("None"), "--status", "1"}, 1, "There is no job"},
      {{"job", "new", native("no folder/J")}, 1, "cannot be written"},
      {{"job", "list", native("no folder")}, 1, "cannot be searched"},
      {{"job", "set", Base("J")}, 2, "nothing to set"},
      {{"job", "set", Base("J"), "--status", "1000"}, 2, "range"},
      {{"job", "set", Base("J"), "--field", "none=1"}, 2, "tavocopyerr"},
      {{"job", "set", Base("J"), "--field", "=1"}, 2, "name=value"},
      {{"job", "set", Base("J"), "--field", "spoolsize=1x"}, 2, "spoolsize is a number"},
      {{"job", "show", Base("J"), "more"}, 2, "more"},
      {{"job", "show"}, 2, "BASE"},
      {{"job", "show", "\xFF"}, 2, "encoding"},
  };
  for (const auto& one : cases) {
    EXPECT_THAT(RunJson(one.arguments, one.status)["error"]["message"].text,
                HasSubstr(one.message));
    const ToolResult shown = Run(one.arguments);
    EXPECT_EQ(shown.status, one.status);
    EXPECT_EQ(shown.out, "");
    EXPECT_THAT(shown.error, AllOf(HasSubstr("tqctl: "), HasSubstr(one.message)));
  }
  // What the library wrote to its log is part of the message, in place of -v.
  EXPECT_THAT(Run({"job", "new", native("no folder/J")}).error, HasSubstr("書き込みに失敗"));
  EXPECT_THAT(Run({"job", "new", native("no folder/J"), "-v"}).error,
              AllOf(HasSubstr("5 120600"), Not(HasSubstr("The library says"))));
}

// Wide characters take two columns, combining ones none; control characters are shown, not sent.
TEST_F(JobToolTest, TheListIsAligned) {
  RunJson({"job", "new", Base("A"), "--field", "userid=山田", "--field", "printername=p"});
  RunJson({"job", "new", Base("見積"), "--field", "userid=か\u3099", "--field", "printername=\tq"});
  Run({"nemi", "set", native("A.xml"), "--field", "DocumentName=請求書"});
  std::filesystem::create_directory(Base("Folder.123"));
  for (const char* file : {"A.000", "見積.000"}) {  // their age must not change meanwhile
    const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(Base(file), now - std::chrono::minutes(150));
  }
  const ToolResult list = Run({"job", "list", folder_ + "/", "--info", native("")});
  EXPECT_THAT(list.out, HasSubstr("JOB   STATUS  USER  DOCUMENT  PRINTER  AGE\n"
                                  "A     000     山田  請求書    p        "));
  EXPECT_THAT(list.out, HasSubstr("\n見積  000     か\u3099              \\tq      "));
  EXPECT_THAT(RunOnTerminal({"job", "list", folder_}).out, HasSubstr("\033[1mJOB"));
  {
    const ScopedEnvironment no_colour("NO_COLOR", "1");
    EXPECT_THAT(RunOnTerminal({"job", "list", folder_}).out, Not(HasSubstr("\033[")));
  }
  const ScopedEnvironment no_locale("LC_ALL", "C");
  EXPECT_EQ(Run({"job", "list", folder_ + "/", "--info", native("")}).out, list.out);
}

TEST_F(JobToolTest, AWatchFollowsWhatOtherProcessesDo) {
  RunJson({"job", "new", Base("Old")});
  RunningTool watch({"job", "list", folder_, "--watch", "--json"});
  const auto next = [&] {
    const Json change = ParseJson(watch.ReadLine());
    const std::string status = change.Has("status") ? change["status"].text : "-";
    return change["change"].text + " " + change["job"].text + " " + status;
  };
  EXPECT_EQ(next(), "new Old 0");
  RunJson({"job", "new", Base("J"), "--status", "99"});
  EXPECT_EQ(next(), "new J 99");
  RunJson({"job", "set", Base("Old"), "--status", "5"});
  EXPECT_EQ(next(), "status Old 5");
  WriteNative(Base("J.dat"), "\x07");
  EXPECT_EQ(next(), "written J 7");
  RunJson({"job", "delete", Base("J")});
  EXPECT_EQ(next(), "gone J -");
  watch.Send(SIGINT);
  EXPECT_EQ(watch.Wait(), -SIGINT);
}

}  // namespace
}  // namespace vk::tq::testing
