// tqctl crypt, nemi and lock.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tools/tool_test.h"

namespace vk::tq::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

using CryptToolTest = ToolTest;

TEST_F(CryptToolTest, AKeyFileIsMadeOnceForItsOwnerAlone) {
  const std::string key_file = product_native("config/data.dat");
  std::filesystem::remove_all(product_native());
  EXPECT_EQ(RunJson("crypt keygen").at("key_file"), key_file);
  const std::string key = ReadNative(key_file);
  EXPECT_THAT(key, MatchesRegex("[-+A-Za-z0-9]{32}"));
  struct stat status = {};
  ASSERT_EQ(stat(key_file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);

  Fails("crypt keygen", "already");
  EXPECT_EQ(ReadNative(key_file), key);
  EXPECT_THAT(ListNative(product_native("config")), ElementsAre("data.dat"));
  RemoveKeyFile();
  RunJson("crypt keygen");
  EXPECT_NE(ReadNative(key_file), key);
}

TEST_F(CryptToolTest, ACheckJudgesTheKeyFile) {
  ASSERT_EQ(Run("crypt text text", "ひみつ").status, 0);
  EXPECT_EQ(RunJson("crypt check text").at("deciphers"), true);
  for (const auto& [key, is_good, verdict] : {std::tuple{std::string(33, 'k'), true, "is good."},
                                              {"short", true, "short"},
                                              {"", false, "empty"},
                                              {std::string(34, 'k'), false, "longer than 33"},
                                              {std::string("\0k", 2), false, "zero byte"}}) {
    WriteKeyFile(key);
    const Json check = RunJson("crypt check", is_good ? 0 : 1);
    EXPECT_THAT(TextOf(check.at("verdict")), HasSubstr(verdict));
    EXPECT_EQ(check.at("good"), is_good);
  }
  WriteKeyFile("another");
  EXPECT_EQ(RunJson("crypt check text", 1).at("deciphers"), false);
  EXPECT_THAT(Run("crypt untext text").error, HasSubstr("hardly the text"));
  RemoveKeyFile();
  EXPECT_EQ(RunJson("crypt check", 1).at("exists"), false);
  EXPECT_THAT(Run("crypt text zeros", "x").error, HasSubstr("a key of zeros"));
}

TEST_F(CryptToolTest, TextsAndFilesGoThereAndBack) {
  const std::string text = "ひみつ\n\033[1m\"\\";
  ASSERT_EQ(Run("crypt text t", text).status, 0);
  EXPECT_EQ(Run("crypt untext t").out, text);
  EXPECT_EQ(RunJson("crypt untext t").at("text"), text);
  EXPECT_THAT(RunOnTerminal("crypt untext t").out, HasSubstr("\\x1b[1m"));
  EXPECT_EQ(Run("crypt text none", "\xFF").status, 1);
  EXPECT_FALSE(ExistsNative("none"));

  WriteNative(native("plain"), std::string("data\0\xFF", 6));
  EXPECT_EQ(RunJson("crypt encrypt plain c").at("bytes"), 16);
  RunJson("crypt decrypt c back");
  EXPECT_EQ(ReadNative("back"), std::string("data\0\xFF", 6) + std::string(10, '\0'));

  Fails("crypt encrypt plain back", "exists");
  RunJson("crypt encrypt plain back --force");
  EXPECT_EQ(ReadNative("back"), ReadNative("c"));
  Fails("crypt encrypt c ./c --force", "same file");
}

TEST_F(CryptToolTest, APrintInformationFileIsSetShownMovedAndDeleted) {
  const std::string set = "nemi set J.tmp --field ";
  EXPECT_EQ(RunJson(set + "NUpName=2in1 --field Copies=1").at("new"), true);
  EXPECT_EQ(RunJson(set + "Copies=2").at("new"), false);
  WriteKeyFile("another");
  RunJson(set + "Copies=3", 1);
  WriteKeyFile();
  RunJson("nemi move J.tmp 'no folder'", 1);
  std::filesystem::create_directory("to");
  RunJson("nemi move J.tmp to");
  const Json shown = RunJson("nemi show to/J.xml");
  EXPECT_EQ(shown.at("NUpName"), "2in1") << "the library does not read it";
  EXPECT_EQ(TextOf(shown.at("Copies")), "2");
  EXPECT_EQ(shown.size(), 47U);
  RunJson("nemi delete to/J.xml");
  RunJson("nemi delete to/J.xml", 1);
}

TEST_F(CryptToolTest, ALockIsHeldUntilEnterOrASignal) {
  const std::string name = "'tqctl test " + std::to_string(getpid()) + "'";
  const auto state = [&] { return RunJson("lock probe " + name).at(0).at("state"); };
  for (const int signal : {0, SIGTERM}) {
    Terminal holder("lock hold " + name);
    EXPECT_THAT(holder.ReadLine(), HasSubstr("Holding"));
    EXPECT_EQ(state(), "held");
    signal == 0 ? holder.Type("\n") : holder.Send(signal);
    EXPECT_EQ(holder.Wait(), -signal);
    EXPECT_EQ(state(), "free") << "after signal " << signal;
  }
  Terminal holder("lock hold " + name + " --seconds 60");
  holder.ReadLine();
  holder.Send(SIGKILL);
  holder.Wait();
  EXPECT_EQ(state(), "abandoned");
  EXPECT_EQ(state(), "free");
}

}  // namespace
}  // namespace vk::tq::testing
