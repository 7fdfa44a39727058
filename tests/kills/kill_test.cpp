// A process that is killed at any moment of a write leaves the old version or the new one, whole,
// and the next process goes on.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <random>

#include "foundation/file_lock.h"
#include "kills/stores.h"

namespace vk::tq::testing {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

struct Victim {
  std::atomic<int> begun, done;
};

// An operation of a file class fails once after a process that ended with the lock, never twice.
template <class Operation>
auto OnceMore(const Operation& operation, int& failures) {
  auto result = operation();
  if (result > 0) return result;
  ++failures;
  return operation();
}

// From now on this process knows no rename that replaces nothing, as on some network file systems.
bool ForgetRenameWithoutReplacing() {
  sock_filter code[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 1),
                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog program{static_cast<unsigned short>(std::size(code)), code};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

class KilledWriterTest : public StoreTest, public ::testing::WithParamInterface<Store> {
 protected:
  int Read() const { return GetParam().read(0); }
  bool Write(int version) const { return GetParam().write(0, version); }

  // Lets a process write one version after another for a time, and kills it.
  void RunVictim(int last, nanoseconds time) {
    victim_->done = last;
    ChildProcess child([&] {
      bool is_written = true;
      for (int version = last + 1; is_written && version < last + 100'000; ++version) {
        victim_->begun = version;
        is_written = Write(version);
        victim_->done = version;
      }
      return is_written ? pause() : 1;
    });
    // The first write of a new process takes longer than the others; they last microseconds, and a
    // sleep would be too coarse.
    while (victim_->done == last) sched_yield();
    const auto end = steady_clock::now() + time;
    while (steady_clock::now() < end) sched_yield();
    child.Kill();
    EXPECT_EQ(-SIGKILL, child.Wait());
  }

  Shared<Victim> victim_;
};

TEST_P(KilledWriterTest, LeavesTheOldOrTheNew) {
  if (GetParam().is_by_link) {
    if (!HasOwnProcess()) return;
    if (!ForgetRenameWithoutReplacing()) GTEST_SKIP() << "no system call can be filtered here";
  }
  // Another one in each run, unless --gtest_random_seed gives it.
  const int seed = ::testing::UnitTest::GetInstance()->random_seed();
  SCOPED_TRACE(seed);
  std::mt19937 random(static_cast<unsigned>(seed));
  int last = 0;
  while (last < 20) ASSERT_TRUE(Write(++last));
  const auto start = steady_clock::now();
  while (last < 26) ASSERT_TRUE(Write(++last));
  const nanoseconds time = steady_clock::now() - start;
  const auto files = CountFiles();
  int inside = 0, kept = 0, abandoned = 0, round = 0;
  // A build with sanitizers is slow to fork: it ends earlier, and says how many it was.
  const auto end = steady_clock::now() + std::chrono::seconds(10);
  for (; round < GetParam().kills && (round < 20 || steady_clock::now() < end); ++round) {
    SCOPED_TRACE(round);
    RunVictim(last, time * static_cast<int>(random() % 1000) / 1000);
    int failures = 0;
    const int seen = OnceMore([&] { return Read(); }, failures);
    ASSERT_GE(seen, victim_->done);
    ASSERT_LE(seen, victim_->begun);
    const bool is_inside = victim_->done < victim_->begun;
    inside += is_inside;
    kept += is_inside && seen == victim_->done;
    last = seen + 1;
    ASSERT_TRUE(OnceMore([&] { return Write(last); }, failures));
    ASSERT_EQ(last, Read());
    ASSERT_LE(failures, 1);
    ASSERT_EQ(files, CountFiles());
    abandoned += failures;
    log_.Clear();
  }
  std::printf("%s, seed %d: %d kills, %d inside a write, %d left the old version, %d the lock\n",
              GetParam().name.data(), seed, round, inside, kept, abandoned);
  EXPECT_GT(inside, 0);
}

INSTANTIATE_TEST_SUITE_P(Stores, KilledWriterTest,
                         ::testing::ValuesIn(Stores().begin(), Stores().end()),
                         [](const auto& test) { return std::string(test.param.name); });

using KilledOwnerTest = StoreTest;

TEST_F(KilledOwnerTest, LeavesTheLockToTheNext) {
  const CString thread_lock = L"Global\\KITORA_QTL_PRINT_MLTTHREAD";
  // The line of the operation that finds the lock abandoned; without one a program takes it over.
  for (const auto& [name, line] : {std::pair{"Job", 120600210},
                                   {"PrintInfo", 100908},
                                   {"UserData", 130304},
                                   {"SharedUserData", 130304},
                                   {"PrinterList", 0}}) {
    SCOPED_TRACE(name);
    const Store& store = FindStore(name);
    ASSERT_TRUE(store.write(0, 1));
    Gate held;
    ChildProcess owner([&] {
      if (GetManageFileMutex(store.lock) && GetManageFileMutex(thread_lock)) held.Open();
      return pause();
    });
    ASSERT_TRUE(held.Wait());
    owner.Kill();
    owner.Wait();
    log_.Clear();
    int failures = 0;
    EXPECT_EQ(1, OnceMore([&] { return store.read(0); }, failures));
    EXPECT_EQ(1, store.read(0));
    EXPECT_EQ(std::ranges::count(log_.lines(5), line, &LogLine::number), line != 0);
    const HANDLE thread = GetManageFileMutex(thread_lock);
    EXPECT_NE(nullptr, thread);
    ReleaseManageFileMutex(thread);
  }
}

}  // namespace
}  // namespace vk::tq::testing
