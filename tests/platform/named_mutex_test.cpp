#include "platform/named_mutex.h"

#include <fcntl.h>
#include <sys/sem.h>
#include <unistd.h>

#include <csignal>
#include <future>
#include <list>

#include "platform/error.h"
#include "platform/posix/mutex_set.h"
#include "support/lock_holder.h"

namespace vk::tq::testing {
namespace {

using namespace std::string_literals;

// A handle for a scope, for everybody.
class Mutex {
 public:
  explicit Mutex(const std::wstring& name) {
    const SECURITY_ATTRIBUTES attributes{.lpSecurityDescriptor = CreateNullDaclDescriptor()};
    handle_.reset(CreateNamedMutex(&attributes, name));
    FreeDescriptor(attributes.lpSecurityDescriptor);
  }
  // No wait of a sound mutex lasts so long.
  WaitResult Wait(std::uint32_t time = 20000) { return WaitForNamedMutex(handle_.get(), time); }
  bool Release() { return ReleaseNamedMutex(handle_.get()); }

 private:
  std::unique_ptr<void, decltype(&CloseNamedMutex)> handle_{nullptr, CloseNamedMutex};
};

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

TEST_F(NamedMutexTest, OwnerTakesItAgainAndNobodyElseGivesItBack) {
  Mutex mutex(name_);
  ASSERT_EQ(mutex.Wait(), WaitResult::kAcquired);
  ASSERT_EQ(Mutex(name_).Wait(0), WaitResult::kAcquired);
  EXPECT_TRUE(mutex.Release());
  EXPECT_EQ(TakeOnThread(name_), WaitResult::kTimeout) << "a closed handle gives nothing back";
  std::thread([&] {
    EXPECT_FALSE(mutex.Release());
    EXPECT_EQ(GetLastError(), kErrorNotOwner);
  }).join();
  // A child inherits the owner's memory, but not the mutex; and its end must not give it back.
  // A signal does not end its wait.
  ChildProcess child([&]() -> int {
    std::signal(SIGALRM, [](int) {});
    ualarm(5000, 5000);
    std::exit(mutex.Wait(100) == WaitResult::kTimeout && !mutex.Release() ? 0 : 1);
  });
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(TakeOnThread(name_), WaitResult::kTimeout);
  EXPECT_TRUE(mutex.Release());
  EXPECT_EQ(TakeOnThread(name_), WaitResult::kAcquired);
  EXPECT_FALSE(mutex.Release());
}

TEST_F(NamedMutexTest, TwoNamesAreNeverOneMutex) {
  const std::wstring length(240, L'長');
  std::list<Mutex> held;
  for (const auto& name : {length, length + L'長', L"job\0x"s, L"job"s, L"JOB"s, L"Global\\job"s}) {
    EXPECT_EQ(TakeOnThread(name), WaitResult::kAcquired) << held.size();
    ASSERT_EQ(held.emplace_back(name).Wait(), WaitResult::kAcquired);
  }
  for (Mutex& mutex : held) EXPECT_TRUE(mutex.Release());
}

// Of other programs or names, and one whose maker was killed before it got an identity. The test
// removes the first two, which the namespace does not know.
TEST_F(NamedMutexTest, SetsOfOthersAreLeftAloneAndUnfinishedOnesCompleted) {
  const auto make = [&](int place, int size) {
    const auto key = static_cast<int>(1 + IdentityOfMutex(name_).first_key) + place;
    return semget(key, size, IPC_CREAT | IPC_EXCL | 0666);
  };
  const int sets[] = {make(0, 1), make(1, 19), make(2, 19)};
  semctl(sets[1], 2, SETVAL, 5);
  Mutex mutex(name_);
  EXPECT_EQ(mutex.Wait(), WaitResult::kAcquired);
  EXPECT_EQ(SetOf(name_), sets[2]);
  EXPECT_EQ(semctl(sets[0], 0, GETVAL) + semctl(sets[1], 0, GETVAL), 0);
  semctl(sets[0], 0, IPC_RMID);
  EXPECT_EQ(TakeOnThread(name_), WaitResult::kTimeout) << "found behind a place that is free now";
  semctl(sets[1], 0, IPC_RMID);
  EXPECT_TRUE(mutex.Release());
}

TEST_F(NamedMutexTest, ForgottenSetsOfASessionGo) {
  const auto remain = [](int idle) {
    RetireForgottenSets(std::chrono::seconds(idle));
    return std::make_pair(SetOf(L"name") >= 0, SetOf(L"Global\\name") >= 0);
  };
  Mutex local(L"name");
  const Mutex global(L"Global\\name");
  EXPECT_EQ(remain(3600), std::make_pair(true, true));
  std::thread([] { Mutex(L"name").Wait(); }).join();
  EXPECT_EQ(remain(-1), std::make_pair(true, true)) << "its next owner is to be told";
  EXPECT_EQ(local.Wait(), WaitResult::kAbandoned);
  EXPECT_EQ(remain(-1), std::make_pair(true, true));
  EXPECT_TRUE(local.Release());
  EXPECT_EQ(remain(-1), std::make_pair(false, true));
  EXPECT_EQ(local.Wait(), WaitResult::kAcquired) << "made anew";
  EXPECT_EQ(TakeOnThread(L"name"), WaitResult::kTimeout);
  EXPECT_TRUE(local.Release());
}

// Else it would lock out everybody but its maker.
TEST_F(NamedMutexTest, DefaultAttributesLeaveNothingBehind) {
  EXPECT_EQ(ProbeMutex(name_, false), WaitResult::kAcquired);
  EXPECT_EQ(SetOf(name_), -1);
}

// And it does not go when he logs off.
TEST_F(NamedMutexTest, WhatAUserMadeForEverybodyIsNotHis) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a second user";
  ChildProcess maker([&] {
    const bool is_user = setresuid(65534, 65534, 65534) == 0;
    return is_user && ProbeMutex(name_, true) == WaitResult::kAcquired ? 0 : 1;
  });
  EXPECT_EQ(maker.Wait(), 0);
  semid_ds status{};
  EXPECT_EQ(semctl(SetOf(name_), 0, IPC_STAT, &status), 0);
  EXPECT_EQ(status.sem_perm.uid, 0U);
}

// A process that writes its log-in user begins a session of the kernel's audit.
TEST_F(NamedMutexTest, SessionsHaveTheirOwnNames) {
  Mutex local(L"name");
  Mutex global(L"Global\\name");
  ASSERT_EQ(local.Wait(), WaitResult::kAcquired);
  ASSERT_EQ(global.Wait(), WaitResult::kAcquired);
  ChildProcess session([] {
    if (ProbeMutex(L"name", true) != WaitResult::kTimeout) return 1;
    const FileDescriptor file(open("/proc/self/loginuid", O_WRONLY | O_CLOEXEC));
    if (!file || write(file.get(), "12345", 5) != 5) return 2;
    if (ProbeMutex(L"Global\\name", true) != WaitResult::kTimeout) return 3;
    return ProbeMutex(L"name", true) == WaitResult::kAcquired ? 0 : 4;
  });
  const int result = session.Wait();
  if (result == 2) GTEST_SKIP() << "cannot begin a session";
  EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace vk::tq::testing
