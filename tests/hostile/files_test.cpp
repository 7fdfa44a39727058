// Files and folders that somebody has prepared, for every operation that reads or writes one.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>

#include "jobs/manage_file_access.h"
#include "kills/stores.h"
#include "platform/path.h"
#include "storage/crypto.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
using Contents = std::map<std::string, std::string>;

Contents FilesBelow(const std::string& folder) {
  Contents contents;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) contents[entry.path()] = ReadNative(entry.path());
  }
  return contents;
}

class PlantedTest : public StoreTest {
 protected:
  // Every kind of thing in the place of one file of a store that holds its second version.
  void Try(const Store& store, const std::string& file, const Contents& whole) {
    const std::string victim = native("victim");
    const std::pair<const char*, std::function<void()>> kPlants[] = {
        {"link", [&] { fs::create_symlink(victim, file); }},
        {"dangling link", [&] { fs::create_symlink(native("nowhere"), file); }},
        {"pipe", [&] { mkfifo(file.c_str(), 0666); }},
        {"folder", [&] { fs::create_directory(file); }}};
    for (const auto& [name, plant] : kPlants) {
      SCOPED_TRACE(std::string(name) + " in place of " + file);
      fs::remove(file);
      plant();
      EXPECT_TRUE(!store.write(0, 3) || store.read(0) != 3);
      EXPECT_EQ(whole.at(victim), ReadNative(victim));
      EXPECT_FALSE(ExistsNative(native("nowhere")));
      // Back to what was there.
      fs::remove(file);
      for (const auto& entry : fs::directory_iterator(fs::path(file).parent_path())) {
        if (!whole.contains(entry.path())) fs::remove(entry.path());
      }
      for (const auto& [at, bytes] : whole) WriteNative(at, bytes);
      ASSERT_EQ(2, store.read(0) % 1000);
    }
  }
};

TEST_F(PlantedTest, NothingIsFollowedOrWaitedFor) {
  WriteNative(native("victim"), "precious");
  for (const Store& store : Stores()) {
    if (store.is_by_link || store.kills < 120) continue;
    ASSERT_TRUE(store.write(0, 1));
    const Contents before = FilesBelow(temp_.native());
    ASSERT_TRUE(store.write(0, 2));
    const Contents whole = FilesBelow(temp_.native());
    EXPECT_NE(before, whole) << store.name;
    for (const auto& [file, contents] : whole) {
      if (!before.contains(file) || before.at(file) != contents) Try(store, file, whole);
    }
  }
}

using HostileTest = StoreTest;

TEST_F(HostileTest, WhatIsNoReadableKeyFileIsLikeNone) {
  const std::string key = product_native("config/data.dat");
  const std::pair<const char*, std::function<void()>> kCases[] = {
      {"folder", [&] { fs::create_directory(key); }},
      {"pipe", [&] { mkfifo(key.c_str(), 0666); }},
      {"endless device", [&] { fs::create_symlink("/dev/zero", key); }},
      {"link to nothing", [&] { fs::create_symlink(native("nowhere"), key); }},
      {"no rights", [&] {
         WriteNative(key, "key of somebody");
         fs::permissions(key, fs::perms::none);
         if (geteuid() == 0 && setuid(kNobody) != 0) _exit(98);
       }}};
  fs::permissions(temp_.native(), fs::perms(0755));
  const auto encipher = [] {
    CByteArray bytes;
    CCrypto().EncryptByTripleDesToByteArray(L"text", bytes);
    return bytes;
  };
  fs::remove(key);
  const CByteArray without = encipher();
  for (const auto& [name, make] : kCases) {
    ChildProcess caller([&, &make = make] {
      make();
      return encipher() == without ? 0 : 1;
    });
    EXPECT_EQ(0, caller.Wait()) << name;
    fs::remove(key);
  }
}

TEST_F(HostileTest, TheKeyFileCountsAnewForEachOperation) {
  const Store& store = FindStore("UserData");
  ASSERT_TRUE(store.write(0, 1));
  WriteKeyFile("another key");
  EXPECT_EQ(kTorn, store.read(0)) << "read as a record without fields";
  WriteKeyFile();
  EXPECT_EQ(1, store.read(0));
}

TEST_F(HostileTest, NoNameLeadsElsewhere) {
  // The job, and the file below the volumes; none when nothing is to be made.
  const std::pair<std::wstring, std::string> kCases[] = {
      {L"C:\\Jobs\\..\\..\\out", "c/out.000"},
      {L"C:\\up\xDC2F\xDC2E\xDC2E\xDC2Fout", "c/up\uFFFD\uFFFD\uFFFD\uFFFDout.000"},
      {L"C:\\..", "c/..000"},
      {L"C:\\" + std::wstring(200, L'長'), ""}};
  for (const auto& [name, file] : kCases) {
    fs::remove_all(native("volumes"));
    fs::create_directories(native("volumes/c/Jobs"));
    CManageFileAccess job(name.c_str());
    EXPECT_EQ(file.empty() ? 0 : 1, job.WriteInformation());
    EXPECT_FALSE(ExistsNative(native("out.000")));
    const Contents made = FilesBelow(native("volumes"));
    EXPECT_EQ(file.empty() ? 0 : 1, made.size()) << ToUtf8(name);
    EXPECT_EQ(!file.empty(), made.contains(native("volumes/" + file))) << ToUtf8(name);
  }
}

TEST_F(HostileTest, ASetUidProgramTakesNoNoticeOfTheEnvironment) {
  if (geteuid() != 0) GTEST_SKIP() << "a set-uid program of another account takes root to make";
  const std::string program = native("probe");
  fs::copy_file(TQ_PROBE, program);
  ASSERT_EQ(0, chown(program.c_str(), kNobody, kNobody));
  ASSERT_EQ(0, chmod(program.c_str(), 04755));
  const std::string command =
      "env TQ_ANSI_CODEPAGE=932 TQ_LOG_LEVEL=0 TQ_COMMON_APPDATA=/evil TQ_APPDATA=/evil "
      "HOME=/evil TQ_VOLUMES=/evil TQ_REGISTRY=/evil TQ_LOG_FILE=/evil XDG_DATA_HOME=/evil " +
      program + " >" + native("output");
  const int status = std::system(command.c_str());
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "this file system has no set-uid programs";
  const std::string text = ReadNative(native("output"));
  EXPECT_EQ(0, status) << text;
  EXPECT_EQ(std::string::npos, text.find("evil")) << text;
  EXPECT_THAT(text, ::testing::MatchesRegex("/var/lib\n.*\n/var/lib/tessaloquin/volumes/c/x\n"
                                            "none\nnone\nnone\nnone\n"));
}

}  // namespace
}  // namespace vk::tq::testing
