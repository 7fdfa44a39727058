#include "foundation/file_lock.h"

#include <unistd.h>

#include <stdexcept>
#include <string>
#include <thread>

#include "platform/error.h"
#include "support/lock_holder.h"

namespace vk::tq {
namespace {

using testing::ChildProcess;
using ::testing::ElementsAre;
using testing::LockHolder;
using testing::LogLine;
using testing::ProductTest;

constexpr FileLock kJobs = {
    L"Global\\KITORA_QTL_JOB_MANAGE", L"C::GetMutex", 1, L"開く", 2, L"待つ", false};
constexpr wchar_t kWhiteList[] = L"Global\\KITORA_QTL_WHITELIST_DAT_FILE";

// The lines of the locks for programs.
LogLine JobsLine(const wchar_t* why,
                 const std::wstring& label = L"管理ファイル(情報、ステータス)") {
  return {4, 100800531, L"GetManageFileMutex", label + L"の排他処理に失敗しました。" + why};
}
LogLine WhiteListLine(const wchar_t* why) {
  return {5, 100800530, L"GetPrinterWhiteListMutex",
          std::wstring(L"プリンタ除外リストファイルの排他処理に失敗しました。") + why};
}

// That they are taken, given back and taken over is shown where processes meet and are killed.
class FileLockTest : public ProductTest {};

TEST_F(FileLockTest, ATimeOutIsLoggedUnderTheLabelOfTheName) {
  const ScopedLockTimeout short_wait(10);
  const wchar_t* const thread = L"GLOBAL\\kitora_qtl_print_mltthread";
  const LockHolder holders[] = {LockHolder(kJobs.name), LockHolder(thread), LockHolder(kWhiteList)};
  SetLastError(77);
  EXPECT_EQ(GetManageFileMutex(kJobs.name), nullptr);
  EXPECT_EQ(GetManageFileMutex(thread), nullptr);
  EXPECT_EQ(GetPrinterWhiteListMutex(), nullptr);
  EXPECT_EQ(GetManageFileMutex(L""), nullptr);
  const wchar_t* const why = L"(タイムアウト) [77]";
  EXPECT_THAT(log_.lines(), ElementsAre(JobsLine(why), JobsLine(why, L"ネミジョブ投入スレッド"),
                                        WhiteListLine(why),
                                        LogLine{4, 100800531, L"GetManageFileMutex",
                                                L"ミューテックス名が指定されていません。"}));
}

TEST_F(FileLockTest, AMutexThatCannotBeOpenedIsLogged) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  // One of each name that is for its maker only.
  HANDLE jobs = CreateNamedMutex(nullptr, kJobs.name);
  HANDLE list = CreateNamedMutex(nullptr, kWhiteList);
  ChildProcess child([&] {
    if (setresuid(65534, 65534, 65534) != 0) return 1;
    if (GetManageFileMutex(kJobs.name) != nullptr || GetPrinterWhiteListMutex() != nullptr)
      return 2;
    const wchar_t* const why = L"(CreateMutex) [5]";
    return log_.lines() == std::vector{JobsLine(why), WhiteListLine(why)} ? 0 : 3;
  });
  EXPECT_EQ(child.Wait(), 0);
  CloseNamedMutex(jobs);
  CloseNamedMutex(list);
}

// What the file classes have from their base class.
class Operations : public LockOperations {
 public:
  using LockOperations::ExceptionLine;
  using LockOperations::RunLocked;
};

// Whether another thread can have the mutex.
bool IsFree() {
  bool is_free = false;
  std::thread([&] { is_free = ProbeMutex(kJobs.name, true) == WaitResult::kAcquired; }).join();
  return is_free;
}

TEST_F(FileLockTest, TheLockIsGivenBackOnEveryWayOut) {
  const auto take = [](const SECURITY_ATTRIBUTES* attributes) {
    return TakeFileLock(kJobs, attributes);
  };
  const Operations::ExceptionLine line{4, 9, L"C::Work", L"例外"};
  EXPECT_EQ(Operations::RunLocked(take, -1, line, [](int& r) { r = IsFree() ? 2 : 1; }), 1);
  EXPECT_TRUE(IsFree());
  SetLastError(77);
  EXPECT_EQ(Operations::RunLocked(take, -1, line,
                                  [](int& r) {
                                    r = 5;
                                    throw std::runtime_error("x");
                                  }),
            5);
  EXPECT_TRUE(IsFree());

  const ScopedLockTimeout short_wait(10);
  const LockHolder holder(kJobs.name);
  EXPECT_EQ(Operations::RunLocked(take, -1, line, [](int& r) { r = 5; }), -1);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4, 9, L"C::Work", L"例外", std::nullopt, 77},
                                        LogLine{5, 2, L"C::GetMutex", L"待つ"}));
}

}  // namespace
}  // namespace vk::tq
