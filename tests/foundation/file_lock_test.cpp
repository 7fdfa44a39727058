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
using ::testing::IsEmpty;
using testing::LockHolder;
using testing::LogLine;
using testing::ProductTest;

const std::wstring kJobs = L"Global\\KITORA_QTL_JOB_MANAGE";
const std::wstring kWhiteList = L"Global\\KITORA_QTL_WHITELIST_DAT_FILE";
const std::wstring kJobsLabel = L"管理ファイル(情報、ステータス)";

// Whether another thread can have the mutex.
bool IsFree(const std::wstring& name) {
  bool is_free = false;
  std::thread([&] { is_free = ProbeMutex(name, true) == WaitResult::kAcquired; }).join();
  return is_free;
}

class FileLockTest : public ProductTest {};

TEST_F(FileLockTest, ProgramsTakeAndGiveBack) {
  HANDLE jobs = GetManageFileMutex(kJobs);
  HANDLE again = GetManageFileMutex(kJobs);
  HANDLE list = GetPrinterWhiteListMutex();
  EXPECT_EQ(ReleaseManageFileMutex(again), nullptr);
  EXPECT_FALSE(IsFree(kJobs) || IsFree(kWhiteList));
  EXPECT_EQ(ReleaseManageFileMutex(jobs), nullptr);
  EXPECT_EQ(ReleasePrinterWhiteListMutex(list), nullptr);
  EXPECT_TRUE(IsFree(kJobs) && IsFree(kWhiteList));
  EXPECT_EQ(ReleaseManageFileMutex(nullptr), nullptr);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FileLockTest, ATimeOutIsLoggedUnderTheLabelOfTheName) {
  const ScopedLockTimeout short_wait(10);
  const std::wstring timed_out = L"の排他処理に失敗しました。(タイムアウト) [77]";
  for (const auto& [name, label] :
       {std::pair{kJobs, kJobsLabel},
        {L"GLOBAL\\kitora_qtl_print_mltthread", L"ネミジョブ投入スレッド"}}) {
    const LockHolder holder(name);
    SetLastError(77);
    EXPECT_EQ(GetManageFileMutex(name), nullptr);
    EXPECT_THAT(log_.lines(),
                ElementsAre(LogLine{4, 100800531, L"GetManageFileMutex", label + timed_out}));
    log_.Clear();
  }
  const LockHolder holder(kWhiteList);
  SetLastError(77);
  EXPECT_EQ(GetPrinterWhiteListMutex(), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{5, 100800530, L"GetPrinterWhiteListMutex",
                                                L"プリンタ除外リストファイル" + timed_out}));
  EXPECT_EQ(GetManageFileMutex(L""), nullptr);
  EXPECT_EQ(log_.lines().back().message, L"ミューテックス名が指定されていません。");
}

TEST_F(FileLockTest, AMutexThatCannotBeOpenedIsLogged) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  // One of each name that is for its maker only.
  HANDLE jobs = CreateNamedMutex(nullptr, kJobs);
  HANDLE list = CreateNamedMutex(nullptr, kWhiteList);
  ChildProcess child([&] {
    if (setresuid(65534, 65534, 65534) != 0) return 1;
    if (GetManageFileMutex(kJobs) != nullptr || GetPrinterWhiteListMutex() != nullptr) return 2;
    const std::wstring no_mutex = L"の排他処理に失敗しました。(CreateMutex) [5]";
    const std::vector<LogLine> expected = {
        {4, 100800531, L"GetManageFileMutex", kJobsLabel + no_mutex},
        {5, 100800530, L"GetPrinterWhiteListMutex", L"プリンタ除外リストファイル" + no_mutex}};
    return log_.lines() == expected ? 0 : 3;
  });
  EXPECT_EQ(child.Wait(), 0);
  CloseNamedMutex(jobs);
  CloseNamedMutex(list);
}

constexpr FileLock kPlain = {
    L"Global\\KITORA_QTL_JOB_MANAGE", L"C::GetMutex", 1, L"開く", 2, L"待つ", false};
// What the file classes have from their base class.
class Operations : public LockOperations {
 public:
  using LockOperations::ExceptionLine;
  using LockOperations::RunLocked;
};

// The failure of a class tells of the owner's end; the lock itself is sound again.
TEST_F(FileLockTest, ProgramsTakeAnAbandonedMutexOverAndClassesFailOnce) {
  ChildProcess owner([] {
    return GetManageFileMutex(kJobs) != nullptr && GetPrinterWhiteListMutex() != nullptr ? 0 : 1;
  });
  ASSERT_EQ(owner.Wait(), 0);
  HANDLE list = GetPrinterWhiteListMutex();
  EXPECT_NE(list, nullptr);
  ReleasePrinterWhiteListMutex(list);
  EXPECT_TRUE(IsFree(kWhiteList));
  EXPECT_EQ(TakeFileLock(kPlain, nullptr), nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{5, 2, L"C::GetMutex", L"待つ"}));
  EXPECT_TRUE(IsFree(kJobs));
}

TEST_F(FileLockTest, TheLockIsGivenBackOnEveryWayOut) {
  const auto take = [](const SECURITY_ATTRIBUTES* attributes) {
    return TakeFileLock(kPlain, attributes);
  };
  const Operations::ExceptionLine line{4, 9, L"C::Work", L"例外"};
  EXPECT_EQ(Operations::RunLocked(take, -1, line, [](int& r) { r = IsFree(kJobs) ? 2 : 1; }), 1);
  EXPECT_TRUE(IsFree(kJobs));
  SetLastError(77);
  EXPECT_EQ(Operations::RunLocked(take, -1, line,
                                  [](int& r) {
                                    r = 5;
                                    throw std::runtime_error("x");
                                  }),
            5);
  EXPECT_TRUE(IsFree(kJobs));

  const ScopedLockTimeout short_wait(10);
  const LockHolder holder(kJobs);
  EXPECT_EQ(Operations::RunLocked(take, -1, line, [&](int& r) { r = 5; }), -1);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{4, 9, L"C::Work", L"例外", std::nullopt, 77},
                                        LogLine{5, 2, L"C::GetMutex", L"待つ"}));
}

}  // namespace
}  // namespace vk::tq
