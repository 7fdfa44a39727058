// tqctl job: each command is run as its users run it.
#include <filesystem>

#include "tools/tool_test.h"

namespace vk::tq::testing {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class JobToolTest : public ToolTest {
 protected:
  JobToolTest() { std::filesystem::create_directory("jobs"); }

  Json Show(const std::string& name) const { return RunJson("job show jobs/" + name); }
};

TEST_F(JobToolTest, AJobIsMadeChangedShownAndDeleted) {
  const std::string fields = "--field userid=山田 --field comment=a=b --field spoolsize=-7";
  EXPECT_EQ(RunJson("job new jobs/J1.xyz --status 5 " + fields).at("file"), "jobs/J1.005");
  RunJson("job set jobs/J1 --field 'printername=2F 複合機' --field userid=");
  const Json job = Show("J1.005");
  for (const auto& [name, value] : {std::pair{"status", "5"},
                                    {"userid", ""},
                                    {"comment", "a=b"},
                                    {"spoolsize", "-7"},
                                    {"printername", "2F 複合機"}}) {
    EXPECT_EQ(TextOf(job.at(name)), value);
  }
  EXPECT_EQ(RunJson("job delete jobs/J1").at("deleted"), "jobs/J1");
  EXPECT_THAT(ListNative("jobs"), ElementsAre());
}

// The library writes all keys of the status file from the record, and reads none of them back.
TEST_F(JobToolTest, AChangeOfStatusKeepsTheStatusFilesKeys) {
  RunJson(
      "job new jobs/J --status 99 --field ErrorMessage=用紙 --field RetryCount=3 "
      "--field AuthPrintFlag=0 --field LocalTimeoutUnsentLogPrint=8");
  RunJson("job set jobs/J --field comment=c");
  EXPECT_THAT(ListNative("jobs"), ElementsAre("J.099", "J.dat"));
  RunJson("job set jobs/J --status 96");
  EXPECT_THAT(ReadNative("jobs/J.dat"),
              AllOf(HasSubstr("ManageStatus=96"), HasSubstr("ErrorMessage=用紙"),
                    HasSubstr("RetryCount=3"), HasSubstr("LocalTimeoutUnsent=8")));

  // A status that lies in the status file stays there: another field alone does not move it.
  std::filesystem::rename("jobs/J.096", "jobs/J.099");
  RunJson("job set jobs/J --field comment=d");
  EXPECT_THAT(ListNative("jobs"), ElementsAre("J.099", "J.dat"));
  EXPECT_EQ(Show("J").at("status"), 96);

  // What can be read of a message is its beginning.
  RunJson("job set jobs/J --field ErrorMessage=" + std::string(300, 'x'));
  Fails("job set jobs/J --status 97", "ErrorMessage");
  RunJson("job set jobs/J --status 97 --field ErrorMessage=short");
}

TEST_F(JobToolTest, WhatCannotBeDecipheredIsNotLost) {
  RunJson("job new jobs/J --field userid=u");
  WriteKeyFile("another key");
  RunJson("job set jobs/J --field comment=c", 1);
  RunJson("job set jobs/J --status 7");
  const ToolResult list = Run("job list jobs");
  EXPECT_EQ(list.status, 1);
  EXPECT_THAT(list.error, HasSubstr("\"J\" cannot be deciphered"));
  EXPECT_EQ(Run("job show jobs/J").status, 1);
  WriteKeyFile();
  EXPECT_EQ(Show("J").at("userid"), "u");
}

TEST_F(JobToolTest, FailuresAndWrongUsage) {
  RunJson("job new jobs/J");
  for (const auto& [line, status, message] :
       {std::tuple{"job new jobs/J", 1, "exists"},
        {"job show jobs/None", 1, "There is no job"},
        {"job set jobs/None --status 1", 1, "There is no job"},
        {"job new 'no folder/J'", 1, "cannot be written"},
        {"job list 'no folder'", 1, "cannot be searched"},
        {"job list ''", 2, "FOLDER is empty"},
        {"job set jobs/J", 2, "nothing to set"},
        {"job set jobs/J --field none=1", 2, "tavocopyerr"},
        {"job set jobs/J --field spoolsize=1x", 2, "spoolsize is a number"},
        {"job show \xFF", 2, "encoding"}}) {
    Fails(line, message, status);
    const ToolResult shown = Run(line);
    EXPECT_EQ(shown.status, status);
    EXPECT_EQ(shown.out, "");
    EXPECT_THAT(shown.error, AllOf(HasSubstr("tqctl: "), HasSubstr(message)));
  }
  // What the library wrote to its log is part of the message, in place of -v.
  EXPECT_THAT(Run("job new 'no folder/J'").error, HasSubstr("書き込みに失敗"));
  EXPECT_THAT(Run("job new 'no folder/J' -v").error,
              AllOf(HasSubstr("5 120600"), Not(HasSubstr("The library says"))));
}

// Wide characters take two columns, combining ones none; control characters are shown, not sent.
TEST_F(JobToolTest, TheListIsAligned) {
  RunJson("job new jobs/A --field userid=山田 --field printername=p");
  RunJson("job new jobs/見積 --field userid=か\u3099 --field 'printername=\tq'");
  Run("nemi set A.xml --field DocumentName=請求書");
  std::filesystem::create_directory("jobs/Folder.123");
  EXPECT_THAT(RunOnTerminal("job list jobs").out, HasSubstr("\033[1mJOB"));
  const ScopedEnvironment no_colour("NO_COLOR", "1");
  EXPECT_THAT(RunOnTerminal("job list jobs").out, Not(HasSubstr("\033[")));
  const ScopedEnvironment no_locale("LC_ALL", "C");
  EXPECT_THAT(Run("job list jobs/ --info .").out,
              AllOf(StartsWith("JOB   STATUS  USER  DOCUMENT  PRINTER  AGE\n"
                               "A     000     山田  請求書    p        "),
                    HasSubstr("\n見積  000     か\u3099              \\tq      ")));
}

TEST_F(JobToolTest, AWatchFollowsWhatOtherProcessesDo) {
  RunJson("job new jobs/Old");
  Terminal watch("job list jobs --watch --json | cat");  // each line is there at once
  const auto next = [&] {
    const Json change = Json::parse(watch.ReadLine());
    return TextOf(change.at("change")) + " " + TextOf(change.at("job")) + " " +
           TextOf(change.value("status", Json("-")));
  };
  EXPECT_EQ(next(), "new Old 0");
  RunJson("job new jobs/J --status 99");
  EXPECT_EQ(next(), "new J 99");
  RunJson("job set jobs/Old --status 5");
  EXPECT_EQ(next(), "status Old 5");
  WriteNative("jobs/J.dat", "\x07");
  EXPECT_EQ(next(), "written J 7");
  RunJson("job delete jobs/J");
  EXPECT_EQ(next(), "gone J -");
  watch.Type("\x03");
  EXPECT_EQ(watch.Wait(), -SIGINT);
}

}  // namespace
}  // namespace vk::tq::testing
