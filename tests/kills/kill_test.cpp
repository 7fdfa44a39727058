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
#include "users/user_data_file_access.h"

namespace vk::tq::testing {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

constexpr int kMeasuredWrites = 6, kMostWrites = 300;

struct Victim {
  std::atomic<steady_clock::time_point> start, end;  // the epoch until it runs
  std::atomic<int> begun, done;
};

constexpr steady_clock::time_point kNever{};

// Another one in each run, unless --gtest_random_seed gives it.
unsigned Seed() { return static_cast<unsigned>(::testing::UnitTest::GetInstance()->random_seed()); }

// Lets a victim run for a time from its own start on, and kills it.
void KillAfter(ChildProcess& child, const Victim& victim, nanoseconds time) {
  // The victims' operations last microseconds: a sleep would be too coarse.
  while (victim.start.load() == kNever || steady_clock::now() < victim.start.load() + time) {
    sched_yield();
  }
  child.Kill();
  EXPECT_EQ(-SIGKILL, child.Wait());
}

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

  // A victim that is to write versions behind `last`, up to `count` of them, and then stays.
  std::unique_ptr<ChildProcess> StartVictim(int last, int count) {
    victim_->start = kNever;
    victim_->begun = victim_->done = last;
    return std::make_unique<ChildProcess>([this, last, count] {
      for (int version = last + 1; version <= last + count; ++version) {
        victim_->begun = version;
        if (version == last + 1) victim_->start = steady_clock::now();
        if (!Write(version)) break;
        victim_->done = version;
      }
      victim_->end = steady_clock::now();
      if (count == kMostWrites) pause();
      return victim_->done == last + count ? 0 : 1;
    });
  }

  // How long a victim's writes take, the costs of a new process included; the shortest of nine.
  nanoseconds Measure(int& last) {
    nanoseconds shortest = std::chrono::hours(1);
    for (int i = 0; i < 9; ++i, last += kMeasuredWrites) {
      EXPECT_EQ(0, StartVictim(last, kMeasuredWrites)->Wait());
      shortest = std::min<nanoseconds>(shortest, victim_->end.load() - victim_->start.load());
    }
    return shortest;
  }

  Shared<Victim> victim_;
};

TEST_P(KilledWriterTest, LeavesTheOldOrTheNew) {
  if (GetParam().is_by_link) {
    if (!HasOwnProcess()) return;
    if (!ForgetRenameWithoutReplacing()) GTEST_SKIP() << "no system call can be filtered here";
  }
  SCOPED_TRACE(Seed());
  std::mt19937 random(Seed());
  int last = 1;
  ASSERT_TRUE(Write(last));
  const nanoseconds time = Measure(last);
  const std::vector<std::string> names = Names();
  int inside = 0, kept = 0, abandoned = 0;
  // A build with sanitizers is slow to fork: it ends earlier, and says how many it was.
  const auto end = steady_clock::now() + std::chrono::seconds(10);
  int round = 0;
  for (; round < GetParam().kills && (round < 20 || steady_clock::now() < end); ++round) {
    const auto victim = StartVictim(last, kMostWrites);
    KillAfter(*victim, *victim_, time * static_cast<int>(random() % 1000) / 1000);

    int failures = 0;
    const int seen = OnceMore([&] { return Read(); }, failures);
    ASSERT_GE(seen, victim_->done) << "round " << round;
    ASSERT_LE(seen, victim_->begun) << "round " << round;
    const bool is_inside = victim_->done < victim_->begun;
    inside += is_inside;
    kept += is_inside && seen == victim_->done;
    last = victim_->begun + 1;
    ASSERT_TRUE(OnceMore([&] { return Write(last); }, failures)) << "round " << round;
    ASSERT_EQ(last, Read()) << "round " << round;
    ASSERT_LE(failures, 1) << "round " << round;
    ASSERT_EQ(names.size(), Names().size()) << "round " << round;
    abandoned += failures;
    log_.Clear();
  }
  std::printf(
      "%s, seed %u: %d kills within %.2f ms, %d inside a write, %d left the old version, "
      "%d left the lock abandoned\n",
      GetParam().name, Seed(), round, static_cast<double>(time.count()) / 1e6, inside, kept,
      abandoned);
  EXPECT_GT(inside, 0);
}

INSTANTIATE_TEST_SUITE_P(Stores, KilledWriterTest,
                         ::testing::ValuesIn(Stores().begin(), Stores().end()),
                         [](const auto& test) { return std::string(test.param.name); });

// ---- Locks ----

struct Lock {
  const char* name;
  const wchar_t* mutex;
  // The store whose operations take the lock, and the line of the one that finds it abandoned.
  // Without a store a program takes the lock over, without a word.
  const char* store = nullptr;
  int line = 0;
};

constexpr Lock kLocks[] = {
    {"Jobs", L"Global\\KITORA_QTL_JOB_MANAGE", "Job", 120600210},
    {"PrintInfo", L"KITORA_QTL_JOB_INFO_NEMI", "PrintInfo", 100908},
    {"UserData", L"KITORA_QTL_USER_DATA", "UserData", 130304},
    {"SharedUserData", L"KITORA_QTL_SHARED_USER_DATA", "SharedUserData", 130304},
    {"PrinterList", L"Global\\KITORA_QTL_WHITELIST_DAT_FILE"},
    {"PrintThread", L"Global\\KITORA_QTL_PRINT_MLTTHREAD"},
};

// Those of a session have their attributes by default, as the library makes one of them.
HANDLE Take(const std::wstring& mutex) {
  return mutex.starts_with(L"Global\\") ? GetManageFileMutex(mutex)
                                        : CUserDataFileAccess::GetMutex(nullptr, mutex.c_str());
}

using KilledOwnerTest = StoreTest;

TEST_F(KilledOwnerTest, LeavesTheLockToTheNext) {
  for (const Lock& lock : kLocks) {
    SCOPED_TRACE(lock.name);
    const auto take_next = [&] {
      if (lock.store != nullptr) return FindStore(lock.store).read(0) > 0;
      const HANDLE mutex = GetManageFileMutex(lock.mutex);
      ReleaseManageFileMutex(mutex);
      return mutex != nullptr;
    };
    ASSERT_TRUE(lock.store == nullptr || FindStore(lock.store).write(0, 1));
    Gate held;
    ChildProcess owner([&] {
      if (Take(lock.mutex) != nullptr) held.Open();
      return pause();
    });
    ASSERT_TRUE(held.Wait());
    owner.Kill();
    owner.Wait();
    log_.Clear();
    int failures = 0;
    EXPECT_TRUE(OnceMore(take_next, failures));
    EXPECT_TRUE(take_next());
    EXPECT_EQ(std::ranges::count(log_.lines(5), lock.line, &LogLine::number),
              lock.store != nullptr ? 1 : 0);
  }
}

}  // namespace
}  // namespace vk::tq::testing
