#include "platform/named_mutex.h"

#include <fcntl.h>
#include <sys/sem.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <future>
#include <list>
#include <memory>
#include <thread>

#include "platform/error.h"
#include "platform/posix/mutex_set.h"
#include "support/lock_holder.h"

namespace vk::tq::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr uid_t kNobody = 65534;

// A handle for a scope; for everybody, or with default attributes.
class Mutex {
 public:
  explicit Mutex(const std::wstring& name, bool is_for_everybody = true) {
    SECURITY_ATTRIBUTES attributes;
    if (is_for_everybody) attributes.lpSecurityDescriptor = CreateNullDaclDescriptor();
    handle_.reset(CreateNamedMutex(&attributes, name));
    FreeDescriptor(attributes.lpSecurityDescriptor);
  }
  // No wait of a sound mutex lasts so long.
  WaitResult Wait(std::uint32_t time = 20000) { return WaitForNamedMutex(handle_.get(), time); }
  bool Release() { return ReleaseNamedMutex(handle_.get()); }

 private:
  std::unique_ptr<void, decltype(&CloseNamedMutex)> handle_{nullptr, CloseNamedMutex};
};

// The first key of a mutex, where the test can put something in its way.
std::int32_t KeyOf(const std::wstring& name) {
  return static_cast<std::int32_t>(1 + IdentityOfMutex(name).first_key);
}

int SetOf(const std::wstring& name) { return FindMutexSet(IdentityOfMutex(name)).id; }

// What another thread gets of a mutex at once.
WaitResult TakeOnThread(const std::wstring& name) {
  return std::async(std::launch::async, ProbeMutex, name, true).get();
}

class NamedMutexTest : public ::testing::Test {
 protected:
  ScopedMutexNamespace space_;
  const std::wstring name_ = L"Global\\TQ_TEST";
};

TEST_F(NamedMutexTest, AWaitLastsItsTime) {
  const LockHolder owner(name_);
  Mutex mutex(name_);
  EXPECT_EQ(mutex.Wait(0), WaitResult::kTimeout);

  // Signals interrupt the wait, and must neither end nor lengthen it.
  std::signal(SIGALRM, [](int) {});
  const itimerval every_5_ms{{0, 5000}, {0, 5000}};
  setitimer(ITIMER_REAL, &every_5_ms, nullptr);
  const auto begin = steady_clock::now();
  EXPECT_EQ(mutex.Wait(1100), WaitResult::kTimeout);
  const auto lasted = steady_clock::now() - begin;
  const itimerval never{};
  setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_GE(lasted, milliseconds(1100));
  EXPECT_LT(lasted, milliseconds(5000));
}

TEST_F(NamedMutexTest, OwnerTakesItAgainAndNobodyElseGivesItBack) {
  Mutex mutex(name_);
  {
    Mutex again(name_);
    ASSERT_EQ(mutex.Wait(), WaitResult::kAcquired);
    ASSERT_EQ(again.Wait(0), WaitResult::kAcquired);
    EXPECT_TRUE(mutex.Release());
  }
  EXPECT_EQ(TakeOnThread(name_), WaitResult::kTimeout) << "a closed handle gives nothing back";
  std::thread([&] {
    EXPECT_FALSE(mutex.Release());
    EXPECT_EQ(GetLastError(), kErrorNotOwner);
  }).join();
  EXPECT_TRUE(mutex.Release());
  EXPECT_EQ(TakeOnThread(name_), WaitResult::kAcquired);
  EXPECT_FALSE(mutex.Release());
}

// A child inherits the owner's memory, but not the mutex; and its end must not give it back.
TEST_F(NamedMutexTest, ForkDoesNotInheritOwnership) {
  Mutex mutex(name_);
  ASSERT_EQ(mutex.Wait(), WaitResult::kAcquired);
  ChildProcess child([&]() -> int {
    if (mutex.Wait(0) != WaitResult::kTimeout) return 1;
    if (mutex.Release() || GetLastError() != kErrorNotOwner) return 2;
    std::exit(0);  // runs the thread's destructors
  });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(TakeOnThread(name_), WaitResult::kTimeout);
  EXPECT_TRUE(mutex.Release());
}

TEST_F(NamedMutexTest, TwoNamesAreNeverOneMutex) {
  const std::wstring long_name(240, L'長');
  const std::wstring nul(L"job\0x", 5);
  const std::wstring names[] = {long_name,      long_name + L"あ", nul,       L"job",   L"JOB",
                                L"Global\\job", L"Local\\job",     L"\u3042", L"\u4042"};
  std::list<Mutex> held;
  for (const std::wstring& name : names) {
    EXPECT_EQ(TakeOnThread(name), WaitResult::kAcquired) << &name - names;
    ASSERT_EQ(held.emplace_back(name).Wait(), WaitResult::kAcquired);
  }
  for (Mutex& mutex : held) EXPECT_TRUE(mutex.Release());
}

// The id of a set as another program makes it; the namespace of the test does not remove it.
struct ForeignSet {
  ForeignSet(std::int32_t key, int size) : id(semget(key, size, IPC_CREAT | IPC_EXCL | 0666)) {}
  ForeignSet(const ForeignSet&) = delete;
  ForeignSet& operator=(const ForeignSet&) = delete;
  ~ForeignSet() { semctl(id, 0, IPC_RMID); }
  const int id;
};

// Of other programs, and of a name whose sets are looked for under the same keys.
TEST_F(NamedMutexTest, SetsOfOthersAreLeftAlone) {
  auto first = std::make_unique<ForeignSet>(KeyOf(name_), 1);
  const ForeignSet second(KeyOf(name_) + 1, 19);
  const Mutex other(L"Global\\other");
  std::array<unsigned short, 19> values{};
  semctl(SetOf(L"Global\\other"), 0, GETALL, values.data());
  semctl(second.id, 0, SETALL, values.data());
  Mutex mutex(name_);
  ASSERT_EQ(mutex.Wait(), WaitResult::kAcquired);
  EXPECT_EQ(TakeOnThread(name_), WaitResult::kTimeout);
  EXPECT_EQ(semctl(second.id, 0, GETVAL), 0);
  first.reset();
  EXPECT_EQ(TakeOnThread(name_), WaitResult::kTimeout) << "found behind a place that is free now";
  EXPECT_TRUE(mutex.Release());
}

// Its maker was killed before the set got an identity.
TEST_F(NamedMutexTest, AnUnfinishedSetIsCompleted) {
  const ForeignSet unfinished(KeyOf(name_), 19);
  EXPECT_EQ(SetOf(name_), -1);
  EXPECT_EQ(ProbeMutex(name_, true), WaitResult::kAcquired);
  EXPECT_EQ(SetOf(name_), unfinished.id);
}

TEST_F(NamedMutexTest, ForgottenSetsOfASessionGo) {
  const auto remain = [](std::chrono::seconds idle) {
    RetireForgottenSets(idle);
    return std::make_pair(SetOf(L"name") >= 0, SetOf(L"Global\\name") >= 0);
  };
  Mutex local(L"name");
  Mutex global(L"Global\\name");
  EXPECT_EQ(remain(std::chrono::hours(1)), std::make_pair(true, true));
  ASSERT_EQ(local.Wait(), WaitResult::kAcquired);
  constexpr std::chrono::seconds kAtOnce(-1);
  EXPECT_EQ(remain(kAtOnce), std::make_pair(true, true));
  ASSERT_TRUE(local.Release());
  EXPECT_EQ(remain(kAtOnce), std::make_pair(false, true));
  std::thread([] { Mutex(L"name").Wait(); }).join();
  EXPECT_EQ(remain(kAtOnce), std::make_pair(true, true));  // its next owner is to be told
  EXPECT_EQ(local.Wait(), WaitResult::kAbandoned);
  EXPECT_TRUE(local.Release());
}

// An administrator removes the set with ipcrm.
TEST_F(NamedMutexTest, RemovedSetIsMadeAnew) {
  Mutex idle(name_);
  const LockHolder owner(name_);
  const int set = SetOf(name_);
  std::thread waiter([&] {
    Mutex mutex(name_);
    EXPECT_EQ(mutex.Wait(), WaitResult::kAcquired);
    EXPECT_TRUE(mutex.Release());
  });
  while (semctl(set, 0, GETZCNT) == 0) std::this_thread::sleep_for(milliseconds(1));
  ASSERT_EQ(semctl(set, 0, IPC_RMID), 0);
  waiter.join();
  EXPECT_EQ(idle.Wait(), WaitResult::kAcquired);
  semctl(SetOf(name_), 0, IPC_RMID);
  EXPECT_FALSE(idle.Release());
  EXPECT_EQ(idle.Wait(), WaitResult::kAcquired);
  EXPECT_TRUE(idle.Release());
}

TEST_F(NamedMutexTest, DefaultAttributesLeaveNothingBehind) {
  Mutex mutex(name_, false);
  for (int round = 0; round < 2; ++round) {  // not taken yet, and taken
    ASSERT_GE(SetOf(name_), 0);
    Mutex(name_, false);
    EXPECT_EQ(SetOf(name_), -1);
    EXPECT_EQ(mutex.Wait(), WaitResult::kAcquired);  // an open handle serves nevertheless
    EXPECT_TRUE(mutex.Release());
  }
}

// Makes a set for everybody as a user does who is killed in front of handing it to root.
void MakeUnsettled(const std::wstring& name) {
  const MutexIdentity identity = IdentityOfMutex(name);
  std::array<unsigned short, 19> values{};
  std::copy(identity.words.begin(), identity.words.end(), values.begin() + 2);
  semctl(semget(KeyOf(name), 19, IPC_CREAT | 0666), 0, SETALL, values.data());
}

// Nor does it go when he logs off.
TEST_F(NamedMutexTest, WhatAUserMadeForEverybodyIsNotHis) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  const std::wstring killed = L"Global\\killed";
  const std::wstring mended = L"Global\\mended";
  ChildProcess maker([&] {
    if (setresuid(kNobody, kNobody, kNobody) != 0) return 98;
    MakeUnsettled(killed);
    MakeUnsettled(mended);
    ProbeMutex(mended, true);
    return ProbeMutex(name_, true) == WaitResult::kAcquired ? 0 : 1;
  });
  EXPECT_EQ(maker.Wait(), 0);
  EXPECT_EQ(ProbeMutex(killed, true), WaitResult::kAcquired);
  // A look at the set alone, so that nobody but the maker can have mended it.
  const auto owner = [](const std::wstring& name) {
    semid_ds status{};
    EXPECT_EQ(semctl(semget(KeyOf(name), 19, 0), 0, IPC_STAT, &status), 0);
    return status.sem_perm.uid;
  };
  for (const std::wstring& name : {name_, mended, killed}) EXPECT_EQ(owner(name), 0U);
}

// A process that writes its log-in user begins a session of the kernel's audit.
TEST_F(NamedMutexTest, SessionsHaveTheirOwnNames) {
  // The sum of 1 for one that another process holds on the machine, and of 2 for one of the session.
  const auto held = [] {
    return (ProbeMutex(L"Global\\name", true) == WaitResult::kTimeout ? 1 : 0) +
           (ProbeMutex(L"name", true) == WaitResult::kTimeout ? 2 : 0);
  };
  Mutex local(L"name");
  Mutex global(L"Global\\name");
  ASSERT_EQ(local.Wait(), WaitResult::kAcquired);
  ASSERT_EQ(global.Wait(), WaitResult::kAcquired);
  EXPECT_EQ(ChildProcess([&] { return setsid() > 0 ? held() : 9; }).Wait(), 3);
  ChildProcess session([&] {
    const FileDescriptor file(open("/proc/self/loginuid", O_WRONLY | O_CLOEXEC));
    return file && write(file.get(), "12345", 5) == 5 ? held() : 9;
  });
  const int seen = session.Wait();
  if (seen == 9) GTEST_SKIP() << "cannot begin a session";
  EXPECT_EQ(seen, 1);
}

}  // namespace
}  // namespace vk::tq::testing
