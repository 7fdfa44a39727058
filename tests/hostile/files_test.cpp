// Files and folders that somebody has prepared, for every operation that reads or writes one.
#include <grp.h>
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

// Whether this process has become one of an account with no rights.
bool BecomeNobody() {
  return geteuid() != 0 ||
         (setgroups(0, nullptr) == 0 && setresgid(kNobody, kNobody, kNobody) == 0 &&
          setresuid(kNobody, kNobody, kNobody) == 0);
}

class PlantedTest : public StoreTest, public ::testing::WithParamInterface<Store> {
 protected:
  PlantedTest() { WriteNative(victim_, "precious"); }

  // Every file of the stores with its contents.
  Contents Take() const {
    Contents contents;
    for (const auto& entry : fs::recursive_directory_iterator(temp_.native())) {
      const std::string native = entry.path().string();
      if (entry.is_regular_file() && native != victim_) contents[native] = ReadNative(native);
    }
    return contents;
  }

  const std::string victim_ = native("victim");
};

TEST_P(PlantedTest, NothingIsFollowedOrWaitedFor) {
  const std::pair<const char*, std::function<void(const std::string&)>> kPlants[] = {
      {"link", [&](const std::string& at) { fs::create_symlink(victim_, at); }},
      {"dangling link", [&](const std::string& at) { fs::create_symlink(native("nowhere"), at); }},
      {"link to itself", [](const std::string& at) { fs::create_symlink(at, at); }},
      {"pipe", [](const std::string& at) { mkfifo(at.c_str(), 0666); }},
      {"folder", [](const std::string& at) { fs::create_directory(at); }}};
  ASSERT_TRUE(GetParam().write(0, 1));
  const Contents before = Take();
  ASSERT_TRUE(GetParam().write(0, 2));
  const Contents whole = Take();
  int files = 0;
  for (const auto& [file, contents] : whole) {
    if (before.contains(file) && before.at(file) == contents) continue;
    ++files;
    for (const auto& [name, put] : kPlants) {
      SCOPED_TRACE(std::string(name) + " in place of " + file);
      fs::remove(file);
      put(file);
      const bool is_written = GetParam().write(0, 3);
      // A rename moves whatever has the name, and looks at nothing behind it.
      const bool is_rename = std::string_view(GetParam().name) == "JobStatus";
      EXPECT_TRUE(is_rename || !is_written || GetParam().read(0) != 3);
      EXPECT_EQ("precious", ReadNative(victim_));
      EXPECT_FALSE(ExistsNative(native("nowhere")));
      // Back to what was there.
      fs::remove(file);
      for (const auto& entry : fs::directory_iterator(fs::path(file).parent_path())) {
        if (!whole.contains(entry.path())) fs::remove(entry.path());
      }
      for (const auto& [at, bytes] : whole) WriteNative(at, bytes);
      ASSERT_EQ(2, GetParam().read(0) % 1000);
    }
  }
  EXPECT_LT(0, files);
}

std::vector<Store> StoresInPlace() {
  std::vector<Store> stores(Stores().begin(), Stores().end());
  std::erase_if(stores, [](const Store& store) { return store.is_by_link || store.kills < 120; });
  return stores;
}

INSTANTIATE_TEST_SUITE_P(Stores, PlantedTest, ::testing::ValuesIn(StoresInPlace()),
                         [](const auto& test) { return std::string(test.param.name); });

using HostileTest = StoreTest;

TEST_F(HostileTest, TheKeyFileCountsAnewForEachOperation) {
  const Store& job = FindStore("Job");
  const std::string key = product_native("config/data.dat");
  ASSERT_TRUE(job.write(0, 1));
  const std::string first = ReadNative(key);
  WriteKeyFile("another");
  EXPECT_EQ(kTorn, job.read(0)) << "no XML, and no error";
  WriteNative(key, first);
  EXPECT_EQ(1, job.read(0));
}

TEST_F(HostileTest, WhatIsNoReadableKeyFileIsLikeNone) {
  const std::string key = product_native("config/data.dat");
  const std::string file = native("elsewhere");
  WriteNative(file, "key of somebody");
  const std::pair<const char*, std::function<void()>> kCases[] = {
      {"folder", [&] { fs::create_directory(key); }},
      {"pipe", [&] { mkfifo(key.c_str(), 0666); }},
      {"endless device", [&] { fs::create_symlink("/dev/zero", key); }},
      {"link to nothing", [&] { fs::create_symlink(native("nowhere"), key); }},
      {"link of another user",
       [&] {
         if (geteuid() != 0) return;  // nobody else's link can be made
         fs::create_symlink(file, key);
         lchown(key.c_str(), kNobody, kNobody);
       }},
      {"no rights",
       [&] {
         fs::copy_file(file, key);
         fs::permissions(key, fs::perms::none);
         BecomeNobody();
       }},
  };
  fs::permissions(temp_.native(), fs::perms(0755));
  fs::remove(key);
  const auto encipher = [] {
    CByteArray bytes;
    CCrypto().EncryptByTripleDesToByteArray(L"text", bytes);
    return bytes;
  };
  const CByteArray without = encipher();
  for (const auto& key_file : kCases) {
    ChildProcess caller([&] {
      key_file.second();
      return encipher() == without ? 0 : 1;
    });
    EXPECT_EQ(0, caller.Wait()) << key_file.first;
    fs::remove(key);
  }
}

TEST_F(HostileTest, NoNameLeadsElsewhere) {
  // The job, and the file below the volumes; none when nothing is to be made.
  const std::pair<std::wstring, std::string> kCases[] = {
      {L"C:\\Jobs\\..\\..\\out", "c/out.000"},
      {L"C:/Jobs/../../out.005", "c/out.000"},
      {std::wstring(L"C:\\up\xDC2F\xDC2E\xDC2E\xDC2Fout"), "c/up\uFFFD\uFFFD\uFFFD\uFFFDout.000"},
      {std::wstring(L"C:\\nul\xDC00x"), "c/nul\uFFFDx.000"},
      {L"C:\\..", "c/..000"},
      {L"C:\\.", ""},
      {L"C:\\Jobs\\", ""},
      {L"C:\\" + std::wstring(200, L'長'), ""},
      {L"C:\\Jobs\\" + std::wstring(100'000, L'x'), ""}};
  for (const auto& [name, file] : kCases) {
    fs::remove_all(native("volumes"));
    fs::create_directories(native("volumes/c/Jobs"));
    CManageFileAccess job(name.c_str());
    EXPECT_EQ(file.empty() ? 0 : 1, job.WriteInformation());
    std::string made;
    for (const auto& entry : fs::recursive_directory_iterator(native("volumes"))) {
      if (!entry.is_directory()) made += fs::relative(entry.path(), native("volumes")).string();
    }
    EXPECT_EQ(file, made) << ToUtf8(name).substr(0, 80);
    EXPECT_FALSE(ExistsNative(native("out.000")));
  }
}

TEST_F(HostileTest, ASetUidProgramTakesNoNoticeOfTheEnvironment) {
  if (geteuid() != 0) GTEST_SKIP() << "a set-uid program of another account takes root to make";
  const std::string program = native("probe");
  fs::copy_file(TQ_PROBE, program);
  ASSERT_EQ(0, chown(program.c_str(), kNobody, kNobody));
  ASSERT_EQ(0, chmod(program.c_str(), 04755));
  std::string variables = "TQ_ANSI_CODEPAGE=932 TQ_LOG_LEVEL=0";
  for (const char* name : {"TQ_COMMON_APPDATA", "TQ_APPDATA", "TQ_VOLUMES", "TQ_REGISTRY",
                           "TQ_LOG_FILE", "XDG_DATA_HOME", "HOME"}) {
    variables += " " + std::string(name) + "=/evil";
  }
  const std::string output = native("output");
  const int status = std::system(("env " + variables + " " + program + " >" + output).c_str());
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "this file system has no set-uid programs";
  const std::string text = ReadNative(output);
  ASSERT_EQ(0, status) << text;
  EXPECT_EQ(std::string::npos, text.find("evil")) << text;
  EXPECT_THAT(text, ::testing::StartsWith("/var/lib\n"));
  EXPECT_THAT(text,
              ::testing::EndsWith("/var/lib/tessaloquin/volumes/c/x\nnone\nnone\nnone\nnone\n"));
}

}  // namespace
}  // namespace vk::tq::testing
