#include "foundation/file_lock.h"

#include "platform/error.h"
#include "support/lock_holder.h"

namespace vk::tq::testing {
namespace {

constexpr wchar_t kJobs[] = L"Global\\KITORA_QTL_JOB_MANAGE";
constexpr wchar_t kWhiteList[] = L"Global\\KITORA_QTL_WHITELIST_DAT_FILE";

// That they are taken, given back and taken over is shown where processes meet and are killed.
using FileLockTest = ProductTest;

TEST_F(FileLockTest, ATimeOutIsLoggedUnderTheLabelOfTheName) {
  const ScopedLockTimeout short_wait(10);
  const wchar_t* const thread = L"GLOBAL\\kitora_qtl_print_mltthread";
  const LockHolder holders[] = {LockHolder(kJobs), LockHolder(thread), LockHolder(kWhiteList)};
  SetLastError(77);
  EXPECT_EQ(GetManageFileMutex(kJobs), nullptr);
  EXPECT_EQ(GetManageFileMutex(thread), nullptr);
  EXPECT_EQ(GetPrinterWhiteListMutex(), nullptr);
  EXPECT_EQ(GetManageFileMutex(L""), nullptr);
  const std::string jobs = "4 100800531 GetManageFileMutex ";
  const std::string failed = "の排他処理に失敗しました。(タイムアウト) [77]";
  EXPECT_THAT(log_.texts(),
              ::testing::ElementsAre(
                  jobs + "管理ファイル(情報、ステータス)" + failed,
                  jobs + "ネミジョブ投入スレッド" + failed,
                  "5 100800530 GetPrinterWhiteListMutex プリンタ除外リストファイル" + failed,
                  jobs + "ミューテックス名が指定されていません。"));
}

}  // namespace
}  // namespace vk::tq::testing
