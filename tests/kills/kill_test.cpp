// A process that is killed at any moment of a write leaves the old version or the new one, whole,
// and the next process goes on. Many processes at once lose no update, and read whole versions.
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
#include <list>
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
  // Lets a process write one version after another for a time, and kills it.
  void RunVictim(int last, nanoseconds time) {
    victim_->done = last;
    ChildProcess child([&] {
      bool is_written = true;
      for (int version = last + 1; is_written && version < last + 100'000; ++version) {
        victim_->begun = version;
        is_written = store_.write(0, version);
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

  const Store& store_ = GetParam();
  Shared<Victim> victim_;
};

TEST_P(KilledWriterTest, LeavesTheOldOrTheNew) {
  if (store_.is_by_link) {
    if (!HasOwnProcess()) return;
    if (!ForgetRenameWithoutReplacing()) GTEST_SKIP() << "no system call can be filtered here";
  }
  // Another one in each run, unless --gtest_random_seed gives it.
  const int seed = ::testing::UnitTest::GetInstance()->random_seed();
  SCOPED_TRACE(seed);
  std::mt19937 random(static_cast<unsigned>(seed));
  int last = 0;
  while (last < 20) ASSERT_TRUE(store_.write(0, ++last));
  const auto start = steady_clock::now();
  while (last < 26) ASSERT_TRUE(store_.write(0, ++last));
  const nanoseconds time = steady_clock::now() - start;
  const auto files = CountFiles();
  int inside = 0, kept = 0, abandoned = 0, round = 0;
  // A build with sanitizers is slow to fork: it ends earlier, and says how many it was.
  const auto end = steady_clock::now() + std::chrono::seconds(10);
  for (; round < store_.kills && (round < 20 || steady_clock::now() < end); ++round) {
    SCOPED_TRACE(round);
    RunVictim(last, time * static_cast<int>(random() % 1000) / 1000);
    int failures = 0;
    const int seen = OnceMore([&] { return store_.read(0); }, failures);
    ASSERT_GE(seen, victim_->done);
    ASSERT_LE(seen, victim_->begun);
    const bool is_inside = victim_->done < victim_->begun;
    inside += is_inside;
    kept += is_inside && seen == victim_->done;
    last = seen + 1;
    ASSERT_TRUE(OnceMore([&] { return store_.write(0, last); }, failures));
    ASSERT_EQ(last, store_.read(0));
    ASSERT_LE(failures, 1);
    ASSERT_EQ(files, CountFiles());
    abandoned += failures;
    log_.Clear();
  }
  std::printf("%s, seed %d: %d kills, %d inside a write, %d left the old version, %d the lock\n",
              store_.name.data(), seed, round, inside, kept, abandoned);
  EXPECT_GT(inside, 0);
}

INSTANTIATE_TEST_SUITE_P(Stores, KilledWriterTest, ::testing::ValuesIn(Stores()),
                         ::testing::PrintToStringParamName());

TEST_F(StoreTest, AKilledOwnerLeavesTheLockToTheNext) {
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
      if (GetManageFileMutex(store.lock)) held.Open();
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
  }
}

// A store, and how many processes and places there are.
using Crowd = std::tuple<const char*, int, int>;

class CrowdTest : public StoreTest, public ::testing::WithParamInterface<Crowd> {
 protected:
  static constexpr int kTurns = 100;

  // One process; 0, or the step that went wrong. What it reads is never older than before.
  int Work(int seed, int places) const {
    std::mt19937 random(static_cast<unsigned>(seed));
    std::vector<int> newest(static_cast<std::size_t>(places), 1);
    for (int turn = 0; turn < kTurns; ++turn) {
      const int place = static_cast<int>(random() % newest.size());
      int& known = newest[static_cast<std::size_t>(place)];
      // A read without the lock may meet a job whose name changes between finding and opening it:
      // it begins anew then.
      int seen = store_.read(place);
      for (int i = 0; i < 10'000 && seen == kNotRead; ++i) seen = store_.read(place);
      if (seen < known) return 1;
      const HANDLE lock = GetManageFileMutex(store_.lock);
      if (lock == nullptr) return 2;
      const int current = store_.read(place);
      if (current < seen) return 3;
      known = current + 1;
      if (!store_.write(place, known)) return 4;
      if (store_.read(place) != known) return 5;
      ReleaseManageFileMutex(lock);
    }
    return 0;
  }

  const Store& store_ = FindStore(std::get<0>(GetParam()));
};

TEST_P(CrowdTest, LosesNoUpdate) {
  const int count = std::get<1>(GetParam()), places = std::get<2>(GetParam());
  for (int place = 0; place < places; ++place) ASSERT_TRUE(store_.write(place, 1));
  const auto files = CountFiles();
  std::list<ChildProcess> processes;
  for (int i = 1; i <= count; ++i) processes.emplace_back([&, i] { return Work(i, places); });
  for (ChildProcess& process : processes) EXPECT_EQ(0, process.Wait());
  int updates = 0;
  for (int place = 0; place < places; ++place) updates += store_.read(place) - 1;
  EXPECT_EQ(count * kTurns, updates);
  EXPECT_EQ(files, CountFiles());
}

using ::testing::Combine;
using ::testing::Values;
INSTANTIATE_TEST_SUITE_P(Jobs, CrowdTest, Combine(Values("Job"), Values(2, 8), Values(1, 100)));
INSTANTIATE_TEST_SUITE_P(Others, CrowdTest,
                         Combine(Values("LongJob", "PrintInfo", "UserData", "SharedUserData",
                                        "PrinterList", "ConfigIni"),
                                 Values(8), Values(1)));

}  // namespace
}  // namespace vk::tq::testing
