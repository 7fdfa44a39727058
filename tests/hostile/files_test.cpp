// Files and folders that somebody has prepared, for every operation that reads or writes one.
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <map>

#include "jobs/manage_file_access.h"
#include "jobs/nemi_print_info_file_access.h"
#include "kills/stores.h"
#include "platform/path.h"
#include "storage/crypto.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;
using Contents = std::map<std::string, std::string>;

// A folder that ought to be read and written at once: a test that waits longer has met a pipe.
class PromptScope {
 public:
  PromptScope() { alarm(20); }
  PromptScope(const PromptScope&) = delete;
  PromptScope& operator=(const PromptScope&) = delete;
  ~PromptScope() { alarm(0); }
};

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

  // The files that writing a version changes.
  std::vector<std::string> FilesOf(int version) {
    const Contents before = Take();
    EXPECT_TRUE(GetParam().write(0, version));
    std::vector<std::string> changed;
    for (const auto& [native, bytes] : Take()) {
      const auto old = before.find(native);
      if (old == before.end() || old->second != bytes) changed.push_back(native);
    }
    return changed;
  }

  const std::string victim_ = native("victim");
};

TEST_P(PlantedTest, NothingIsFollowedOrWaitedFor) {
  const struct {
    const char* name;
    std::function<void(const std::string&)> put;
  } kPlants[] = {
      {"link", [&](const std::string& at) { fs::create_symlink(victim_, at); }},
      {"dangling link", [&](const std::string& at) { fs::create_symlink(native("nowhere"), at); }},
      {"link to itself", [&](const std::string& at) { fs::create_symlink(at, at); }},
      {"pipe", [](const std::string& at) { ASSERT_EQ(0, mkfifo(at.c_str(), 0666)); }},
      {"folder", [](const std::string& at) { fs::create_directory(at); }},
  };
  ASSERT_TRUE(GetParam().write(0, 1));
  const std::vector<std::string> files = FilesOf(2);
  ASSERT_FALSE(files.empty());
  const Contents whole = Take();
  for (const auto& plant : kPlants) {
    for (const std::string& file : files) {
      SCOPED_TRACE(std::string(plant.name) + " in place of " + file);
      fs::remove(file);
      plant.put(file);
      {
        const PromptScope prompt;
        const bool is_written = GetParam().write(0, 3);
        // A rename moves whatever has the name, and looks at nothing behind it.
        const bool is_rename = std::string_view(GetParam().name) == "JobStatus";
        EXPECT_TRUE(is_rename || !is_written || GetParam().read(0) != 3);
      }
      EXPECT_EQ("precious", ReadNative(victim_));
      EXPECT_FALSE(ExistsNative(native("nowhere")));
      // Back to what was there.
      for (const std::string& name : ListNative(fs::path(file).parent_path())) {
        const std::string at = (fs::path(file).parent_path() / name).string();
        if (!whole.contains(at)) fs::remove(at);
      }
      fs::remove(file);
      for (const auto& [at, bytes] : whole) WriteNative(at, bytes);
      ASSERT_EQ(2, GetParam().read(0) % 1000);
    }
  }
}

// Whom the files do not belong to, or whom they are closed to, changes nothing, and is told so.
TEST_P(PlantedTest, RightsAreLeftAsTheyAre) {
  ASSERT_TRUE(GetParam().write(0, 1));
  const std::vector<std::string> files = FilesOf(2);
  fs::permissions(temp_.native(), fs::perms(0755));
  for (const int mode : {0444, 0000}) {
    for (const std::string& file : files) {
      ASSERT_EQ(0, chmod(file.c_str(), static_cast<mode_t>(mode)));
      fs::permissions(fs::path(file).parent_path(), fs::perms(0555));
    }
    ChildProcess stranger([&] {
      if (geteuid() == 0 &&
          (setgroups(0, nullptr) != 0 || setresgid(kNobody, kNobody, kNobody) != 0 ||
           setresuid(kNobody, kNobody, kNobody) != 0)) {
        return 98;
      }
      const bool is_written = GetParam().write(0, 3);
      return is_written && GetParam().read(0) == 3 ? 1 : 0;
    });
    EXPECT_EQ(0, stranger.Wait()) << mode;
    for (const std::string& file : files) {
      struct stat info {};
      ASSERT_EQ(0, stat(file.c_str(), &info)) << file;
      EXPECT_EQ(static_cast<mode_t>(mode), info.st_mode & 0777U) << file;
      fs::permissions(fs::path(file).parent_path(), fs::perms(0755));
      ASSERT_EQ(0, chmod(file.c_str(), 0644));
    }
    EXPECT_EQ(2, GetParam().read(0)) << mode;
  }
}

std::vector<Store> StoresInPlace() {
  std::vector<Store> stores(Stores().begin(), Stores().end());
  std::erase_if(stores, [](const Store& store) { return store.is_by_link || store.kills < 120; });
  return stores;
}

INSTANTIATE_TEST_SUITE_P(Stores, PlantedTest, ::testing::ValuesIn(StoresInPlace()),
                         [](const auto& test) { return std::string(test.param.name); });

// ---- The key file ----

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

  // A link of the caller's is the file that it leads to.
  fs::rename(key, native("elsewhere"));
  fs::create_symlink(native("elsewhere"), key);
  EXPECT_EQ(1, job.read(0));
}

// What cannot be read as a key file is like none at all: the key is zeros.
TEST_F(HostileTest, WhatIsNoReadableKeyFileIsLikeNone) {
  const std::string key = product_native("config/data.dat");
  const struct {
    const char* name;
    std::function<void()> put;
  } kCases[] = {
      {"folder", [&] { fs::create_directory(key); }},
      {"pipe", [&] { ASSERT_EQ(0, mkfifo(key.c_str(), 0666)); }},
      {"endless device", [&] { fs::create_symlink("/dev/zero", key); }},
      {"link to nothing", [&] { fs::create_symlink(native("nowhere"), key); }},
      {"link to itself", [&] { fs::create_symlink(key, key); }},
      {"link of another user",
       [&] {
         WriteNative(native("elsewhere"), "key of somebody");
         fs::create_symlink(native("elsewhere"), key);
         if (geteuid() != 0)
           fs::remove(key);
         else
           ASSERT_EQ(0, lchown(key.c_str(), kNobody, kNobody));
       }},
      {"no rights",
       [&] {
         WriteNative(key, "key");
         ASSERT_EQ(0, chmod(key.c_str(), 0));
       }},
  };
  fs::remove(key);
  const auto encipher = [] {
    const PromptScope prompt;
    CByteArray bytes;
    CCrypto().EncryptByTripleDesToByteArray(L"text", bytes);
    return bytes;
  };
  const CByteArray without = encipher();
  fs::permissions(temp_.native(), fs::perms(0755));
  for (const auto& test : kCases) {
    fs::remove(key);
    test.put();
    ChildProcess stranger([&] {
      const bool is_rights = std::string_view(test.name) == "no rights";
      if (is_rights && geteuid() == 0 && setresuid(kNobody, kNobody, kNobody) != 0) return 98;
      return encipher() == without ? 0 : 1;
    });
    EXPECT_EQ(0, stranger.Wait()) << test.name;
  }
}

// ---- Names ----

TEST_F(HostileTest, NoNameLeadsElsewhere) {
  const std::string long_name(300, 'n');
  const struct {
    std::wstring job;
    const char* file;  // below the volumes; null when nothing is to be made
  } kCases[] = {
      {L"C:\\..\\..\\..\\out", "c/out.000"},
      {L"C:\\Jobs\\..\\..\\out", "c/out.000"},
      {L"C:/Jobs/../../out.005", "c/out.000"},
      {std::wstring(L"C:\\up\xDC2F\xDC2E\xDC2E\xDC2Fout"), "c/up\uFFFD\uFFFD\uFFFD\uFFFDout.000"},
      {std::wstring(L"C:\\nul\xDC00x"), "c/nul\uFFFDx.000"},
      {L"C:\\..", "c/..000"},
      {L"C:\\.", nullptr},
      {L"C:\\Jobs\\", nullptr},
      {L"C:\\" + FromUtf8(long_name), nullptr},
      {L"C:\\" + std::wstring(200, L'長'), nullptr},
      {L"C:\\Jobs\\" + std::wstring(100'000, L'x'), nullptr},
  };
  for (const auto& test : kCases) {
    fs::remove_all(native("volumes"));
    fs::create_directories(native("volumes/c/Jobs"));
    CManageFileAccess job(test.job.c_str());
    EXPECT_EQ(test.file != nullptr, job.WriteInformation() == 1) << ToUtf8(test.job).substr(0, 80);
    std::vector<std::string> made;
    for (const auto& entry : fs::recursive_directory_iterator(native("volumes"))) {
      if (!entry.is_directory()) made.push_back(fs::relative(entry.path(), native("volumes")));
    }
    EXPECT_EQ(
        test.file == nullptr ? std::vector<std::string>() : std::vector<std::string>{test.file},
        made)
        << ToUtf8(test.job).substr(0, 80);
    EXPECT_FALSE(ExistsNative(native("out.000")));
  }
}

// ---- Environment variables ----

TEST_F(HostileTest, ASetUidProgramTakesNoNoticeOfTheEnvironment) {
  if (geteuid() != 0) GTEST_SKIP() << "a set-uid program of another account takes root to make";
  const std::string program = native("probe");
  fs::copy_file(TQ_PROBE, program);
  ASSERT_EQ(0, chown(program.c_str(), kNobody, kNobody));
  ASSERT_EQ(0, chmod(program.c_str(), 04755));
  for (const char* name : {"TQ_COMMON_APPDATA", "TQ_APPDATA", "TQ_VOLUMES", "TQ_REGISTRY",
                           "TQ_LOG_FILE", "XDG_DATA_HOME", "HOME"}) {
    setenv(name, "/evil", 1);
  }
  setenv("TQ_ANSI_CODEPAGE", "932", 1);
  setenv("TQ_LOG_LEVEL", "0", 1);
  std::FILE* const output = popen(("exec " + program).c_str(), "r");
  ASSERT_NE(nullptr, output);
  std::string text;
  for (int c = std::fgetc(output); c != EOF; c = std::fgetc(output)) text += static_cast<char>(c);
  const int code = WEXITSTATUS(pclose(output));
  unsetenv("XDG_DATA_HOME");
  setenv("HOME", "/root", 1);
  if (code == 77) GTEST_SKIP() << "this file system has no set-uid programs";
  ASSERT_EQ(0, code) << text;
  EXPECT_EQ(std::string::npos, text.find("evil")) << text;
  EXPECT_THAT(text, ::testing::StartsWith("/var/lib\n"));
  EXPECT_THAT(text,
              ::testing::EndsWith("/var/lib/tessaloquin/volumes/c/x\nnone\nnone\nnone\nnone\n"));
}

}  // namespace
}  // namespace vk::tq::testing
