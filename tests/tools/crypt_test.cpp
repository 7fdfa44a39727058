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

class CryptToolTest : public ToolTest {};

TEST_F(CryptToolTest, AKeyFileIsMadeOnceForItsOwnerAlone) {
  const std::string key_file = product_native("config/data.dat");
  std::filesystem::remove_all(product_native());
  EXPECT_EQ(TextOf(RunJson("crypt keygen").at("key_file")), key_file);
  const std::string key = ReadNative(key_file);
  EXPECT_THAT(key, MatchesRegex("[-+A-Za-z0-9]+"));
  EXPECT_EQ(key.size(), 32U);
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
  EXPECT_EQ(TextOf(RunJson("crypt check text").at("deciphers")), "true");
  const struct {
    std::string key;
    int status;
    std::string verdict;
  } cases[] = {
      {std::string(33, 'k'), 0, "is good."},
      {"short", 0, "short"},
      {"", 1, "empty"},
      {std::string(34, 'k'), 1, "longer than 33"},
      {std::string("\0k", 2), 1, "zero byte"},
  };
  for (const auto& one : cases) {
    WriteKeyFile(one.key);
    const Json check = RunJson("crypt check", one.status);
    EXPECT_THAT(TextOf(check.at("verdict")), HasSubstr(one.verdict));
    EXPECT_EQ(TextOf(check.at("length")), std::to_string(one.key.size()));
    EXPECT_EQ(TextOf(check.at("good")), one.status == 0 ? "true" : "false");
  }
  WriteKeyFile("another");
  EXPECT_EQ(TextOf(RunJson("crypt check text", 1).at("deciphers")), "false");
  RemoveKeyFile();
  EXPECT_EQ(TextOf(RunJson("crypt check", 1).at("exists")), "false");
  EXPECT_THAT(Run("crypt text zeros", "x").error, HasSubstr("a key of zeros"));
}

TEST_F(CryptToolTest, TextsAndFilesGoThereAndBack) {
  const std::string text = "ひみつ\n\033[1m\"\\";
  ASSERT_EQ(Run("crypt text t", text).status, 0);
  EXPECT_EQ(Run("crypt untext t").out, text);
  EXPECT_EQ(TextOf(RunJson("crypt untext t").at("text")), text);
  EXPECT_THAT(RunOnTerminal("crypt untext t").out, HasSubstr("\\x1b[1m"));
  EXPECT_EQ(Run("crypt text none", "\xFF").status, 1);
  EXPECT_EQ(Run("crypt text none", std::string("a\0b", 3)).status, 1);
  EXPECT_FALSE(ExistsNative("none"));

  WriteNative(native("plain"), std::string("data\0\xFF", 6));
  EXPECT_EQ(TextOf(RunJson("crypt encrypt plain c").at("bytes")), "16");
  RunJson("crypt decrypt c back");
  EXPECT_EQ(ReadNative("back"), std::string("data\0\xFF", 6) + std::string(10, '\0'));

  Fails("crypt encrypt plain back", "exists");
  EXPECT_EQ(Run("crypt encrypt plain back --force").status, 0);
  EXPECT_EQ(ReadNative("back"), ReadNative("c"));
  Fails("crypt encrypt c ./c --force", "same file");
  Fails("crypt untext missing", "No such file");
}

TEST_F(CryptToolTest, APrintInformationFileIsSetShownMovedAndDeleted) {
  const std::string set = "nemi set J.tmp --field ";
  EXPECT_EQ(TextOf(RunJson(set + "NUpName=2in1 --field Copies=1").at("new")), "true");
  EXPECT_EQ(TextOf(RunJson(set + "Copies=2").at("new")), "false");
  const Json shown = RunJson("nemi show J.tmp");
  EXPECT_EQ(TextOf(shown.at("NUpName")), "2in1") << "the library does not read it";
  EXPECT_EQ(TextOf(shown.at("Copies")), "2");
  EXPECT_EQ(shown.size(), 47U);

  WriteKeyFile("another");
  RunJson(set + "Copies=3", 1);
  WriteKeyFile();
  RunJson("nemi move J.tmp 'no folder'", 1);
  std::filesystem::create_directory("to");
  RunJson("nemi move J.tmp to");
  EXPECT_EQ(TextOf(RunJson("nemi show to/J.xml").at("Copies")), "2");
  RunJson("nemi delete to/J.xml");
  RunJson("nemi delete to/J.xml", 1);
  RunJson(set + "FilePath=x", 2);
}

TEST_F(CryptToolTest, ALockIsHeldUntilEnterOrASignal) {
  const std::string name = "'tqctl test " + std::to_string(getpid()) + "'";
  const auto state = [&] { return TextOf(RunJson("lock probe " + name).at(0).at("state")); };
  EXPECT_EQ(state(), "free");
  for (const int signal : {0, SIGINT, SIGTERM}) {
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
  EXPECT_EQ(RunJson("lock probe").size(), 5U);
}

}  // namespace
}  // namespace vk::tq::testing
