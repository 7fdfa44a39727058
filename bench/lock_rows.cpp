// Named mutexes.
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <new>

#include "floor.h"
#include "harness.h"
#include "platform/named_mutex.h"
#include "rows.h"
#include "support/test_support.h"
#include "workspace.h"

namespace vk::tq::bench {
namespace {

constexpr const wchar_t* kName = L"Global\\KITORA_QTL_JOB_MANAGE";

// The attributes that the library opens its locks with.
struct ForEverybody : SECURITY_ATTRIBUTES {
  ForEverybody() { lpSecurityDescriptor = CreateNullDaclDescriptor(); }
  ForEverybody(const ForEverybody&) = delete;
  ForEverybody& operator=(const ForEverybody&) = delete;
  ~ForEverybody() { FreeDescriptor(lpSecurityDescriptor); }
};

Contest UncontendedContest() {
  struct Fixture : Workspace {
    plain::Semaphore mutex;
    ForEverybody attributes;
  };
  auto f = std::make_shared<Fixture>();
  return {[f] {
            HANDLE mutex = CreateNamedMutex(&f->attributes, kName);
            Require(WaitForNamedMutex(mutex, 60000) == WaitResult::kAcquired, "no lock");
            ReleaseNamedMutex(mutex);
            CloseNamedMutex(mutex);
          },
          [f] {
            f->mutex.Lock();
            f->mutex.Unlock();
          }};
}

// ---- Four processes ----

constexpr int kProcesses = 4;
constexpr int kTakes = 10'000;
// How long each holds the mutex, in nanoseconds: about as long as ReadAll does. The others are
// asleep by then, so that a hand-over is one to a process that waits.
constexpr std::int64_t kHold = 30'000;

std::int64_t Now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

// What the processes share.
struct Shared {
  std::atomic<int> asking{0};
  std::atomic<int> takes{0};
  std::atomic<std::int64_t> released{0};
  std::atomic<std::int64_t> hand_overs{0};  // nanoseconds in all
  std::atomic<std::int64_t> longest_wait{0};
};

// One mutex, as one process has it open.
class Mutex {
 public:
  virtual ~Mutex() = default;
  virtual void Take() = 0;
  virtual void Release() = 0;
};
using Open = std::function<std::unique_ptr<Mutex>()>;

// Takes the mutex until it has been taken often enough by all. Whoever had it lets somebody else
// have it before asking again, so that every take is a hand-over from another process.
void TakeInTurn(Shared& shared, Mutex& mutex) {
  ++shared.asking;
  for (;;) {
    const std::int64_t asked = Now();
    mutex.Take();
    const std::int64_t taken = Now();
    const int number = ++shared.takes;
    if (number > 1 && number <= kTakes) {
      shared.hand_overs += taken - shared.released;
      shared.longest_wait = std::max(shared.longest_wait.load(), taken - asked);
    }
    while (Now() - taken < kHold) {
    }
    shared.released = Now();
    mutex.Release();
    if (number >= kTakes) return;
    while (shared.takes == number) sched_yield();
  }
}

// The mean time of a hand-over, and the longest wait.
struct Times {
  double hand_over;
  double longest_wait;
};

Times TakeByFour(const Open& open_mutex) {
  void* const memory =
      mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Require(memory != MAP_FAILED, "no shared memory");
  auto* const shared = new (memory) Shared;
  const std::unique_ptr<Mutex> mutex = open_mutex();
  mutex->Take();
  {
    std::vector<std::unique_ptr<testing::ChildProcess>> children;
    for (int i = 0; i < kProcesses; ++i) {
      children.push_back(std::make_unique<testing::ChildProcess>([&] {
        TakeInTurn(*shared, *open_mutex());
        return 0;
      }));
    }
    // They begin when all of them wait.
    while (shared->asking < kProcesses) usleep(1000);
    usleep(10'000);
    shared->released = Now();
    mutex->Release();
    for (const auto& child : children) Require(child->Wait() == 0, "a process failed");
  }
  const Times times{static_cast<double>(shared->hand_overs) / 1e9 / (kTakes - 1),
                    static_cast<double>(shared->longest_wait) / 1e9};
  munmap(memory, sizeof(Shared));
  return times;
}

class OurMutex : public Mutex {
 public:
  ~OurMutex() override { CloseNamedMutex(mutex_); }
  void Take() override {
    Require(WaitForNamedMutex(mutex_, 60000) == WaitResult::kAcquired, "no lock");
  }
  void Release() override { ReleaseNamedMutex(mutex_); }

 private:
  ForEverybody attributes_;
  HANDLE mutex_ = CreateNamedMutex(&attributes_, kName);
};

class Flock : public Mutex {
 public:
  explicit Flock(const std::string& path) : file_(path, O_RDWR | O_CREAT) {}
  void Take() override { Require(flock(file_.get(), LOCK_EX) == 0, "no lock"); }
  void Release() override { flock(file_.get(), LOCK_UN); }

 private:
  plain::File file_;
};

struct Comparison {
  Times ours;
  Times floor;
};

Comparison CompareFour() {
  const Workspace workspace;
  return {TakeByFour([] { return std::make_unique<OurMutex>(); }),
          TakeByFour([&] { return std::make_unique<Flock>(workspace.native("lock")); })};
}

}  // namespace

void AddLockRows() {
  AddRow(
      {"lock", "one take and release of a named mutex", "open, lock, unlock of a semaphore", 1.5},
      UncontendedContest);
  constexpr const char* kFour = "four processes take one mutex in turn, 10,000 times: ";
  AddMeasuredRow({"lock", std::string(kFour) + "hand-over", "flock, blocking", 1.5, 7}, [] {
    const Comparison times = CompareFour();
    return Figures{times.ours.hand_over, times.floor.hand_over};
  });
  AddLimitRow({"lock", std::string(kFour) + "largest wait", "flock, blocking", {}, 3},
              {Unit::kSeconds, 1.0}, [] {
                const Comparison times = CompareFour();
                return Figures{times.ours.longest_wait, times.floor.longest_wait};
              });
}

}  // namespace vk::tq::bench
