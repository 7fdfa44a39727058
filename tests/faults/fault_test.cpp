// Lets the n-th call of every kind fail in every public operation, for n = 1, 2, 3 ... until the
// operation no longer makes so many, and looks after each run at what it has left.
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "faults/operation.h"
#include "foundation/file_lock.h"
#include "platform/dns.h"
#include "platform/posix/mutex_set.h"
#include "support/test_clock.h"
#include "transport/shared_printer_communication.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;

const Group* const kGroups[] = {
    &kOpen,   &kRead,     &kWrite,    &kClose,  &kRename,   &kRemove,  &kFolder, &kDirectory,
    &kRoom,   &kFlush,    &kStatus,   &kRights, &kAccounts, &kLock,    &kMemory, &kXml,
    &kSocket, &kTransfer, &kDatagram, &kPoll,   &kResolver, &kMachine, &kCipher, &kFtpLibrary,
};

constexpr std::wstring_view kLocks[] = {
    L"Global\\KITORA_QTL_JOB_MANAGE",
    L"KITORA_QTL_JOB_INFO_NEMI",
    L"KITORA_QTL_USER_DATA",
    L"KITORA_QTL_SHARED_USER_DATA",
    L"Global\\KITORA_QTL_WHITELIST_DAT_FILE",
    L"Global\\KITORA_QTL_PRINT_MLTTHREAD",
};

// Blocks are counted by thread: the other one must free nothing that this one has made, as
// std::thread does.
bool CanAnotherThreadTakeAllLocks() {
  bool are_free = false;
  const auto probe = [](void* result) -> void* {
    *static_cast<bool*>(result) = std::ranges::all_of(kLocks, [](std::wstring_view lock) {
      return ProbeMutex(lock.data(), lock.starts_with(L"Global")) == WaitResult::kAcquired;
    });
    return nullptr;
  };
  pthread_t thread{};
  return pthread_create(&thread, nullptr, probe, &are_free) == 0 &&
         pthread_join(thread, nullptr) == 0 && are_free;
}

auto OpenDescriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

class FaultTest : public Stage,
                  public ::testing::WithParamInterface<Operation>,
                  LogSink,
                  EventSink {
 protected:
  FaultTest() {
    setenv("TQ_LOG_FILE", native("work/log").c_str(), 1);
    InstallLogSink({std::shared_ptr<void>(), this});
    InstallEventSink({std::shared_ptr<void>(), this});
    clock_.pauses.reserve(100);
    for (const std::wstring_view lock : kLocks) identities_.push_back(IdentityOfMutex(lock.data()));
    for (const char* const name : {"user", "volumes/c", "jobs", "work", "tmp"}) {
      fs::create_directories(native(name));
    }
    folders_ = Names();
    ReadPromises();
  }

  // How many points there were.
  static void TearDownTestSuite() {
    for (const auto& [kind, counts] : points_) {
      std::printf("%-16s %7d points, %7d from which it lasts\n", kind, counts[0], counts[1]);
    }
  }

  void Write(const LogRecord& record) override {
    const Calm calm;
    lines_.push_back({record.level, record.number, std::wstring(record.function), L""});
    // Who writes a record is not to wait for a line of the log.
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
      std::error_code closed;
      const std::string file = fs::read_symlink(entry.path(), closed).string();
      EXPECT_FALSE(file.starts_with(native("jobs/"))) << file << " is open while a line is written";
    }
  }
  void Write(unsigned long, std::wstring_view message, bool) override {
    const Calm calm;
    event = message;
  }

  // Finds the row of the operation.
  void ReadPromises() {
    std::istringstream rows(ReadNative(TQ_TEST_DATA "/fault_promises.txt"));
    for (std::string row, name; std::getline(rows, row);) {
      std::istringstream words(row);
      words >> name;
      if (name != operation_.name) continue;
      words >> throws_ >> function_ >> level_;
      numbers_.insert(std::istream_iterator<int>(words), {});
    }
  }

  // Of what an operation leaves behind.
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(temp_.native())) {
      names.push_back(entry.path().string());
    }
    return names;
  }

  // Making folders takes longer than all the rest, so those that every operation needs stay.
  void Prepare() {
    for (const std::string& name : Names()) {
      if (std::ranges::count(folders_, name) == 0) fs::remove_all(name);
    }
    for (const std::string& folder : folders_) fs::create_directory(folder);
    WriteKeyFile();
    if (operation_.prepare != nullptr) operation_.prepare(*this);
    for (const MutexIdentity& lock : identities_) {
      if (const MutexSet set = FindMutexSet(lock); set.id >= 0) RetireMutexSet(set.id);
    }
    is_made_ = false;
    clock_.pauses.clear();
    lines_ = {};
    event = {};
  }

  struct Run {
    Report report;
    std::string exception;  // empty when there was none
    const char* failed = nullptr;
  };

  Run Perform(const Fault& fault, int n) {
    Run run;
    seam.failed = nullptr;
    seam.left = n;
    seam.fault = &fault;
    try {
      run.report = operation_.run(*this);
    } catch (const std::bad_alloc&) {
      run.exception = kBadAlloc;
    } catch (const std::exception& exception) {
      run.exception = exception.what();
    }
    seam.fault = nullptr;
    run.failed = seam.failed;
    return run;
  }

  Pieces View() { return operation_.view != nullptr ? operation_.view(*this) : Pieces(); }

  // Learns what the operation does without a fault. Caches are filled when it is over.
  void Rehearse() {
    Prepare();
    old_view_ = View();
    names_ = Names();
    for (int i = 0; i < 3; ++i) {
      Prepare();
      const Run run = Perform(kNoFault, 1);
      ASSERT_TRUE(run.report) << "fails without a fault: " << run.exception;
      report_ = run.report;
      blocks_ = seam.blocks;
    }
    if (server_ != nullptr) usleep(50000);  // it closes its own ends
    descriptors_ = OpenDescriptors();
    if (promise_.also != nullptr) names_.push_back(native("jobs/") + promise_.also);
    std::ranges::copy(Names(), std::back_inserter(names_));
    new_view_ = View();
  }

  void Check(const Fault& fault, const Run& run) {
    // A server in this process may still close a connection, and accept another one behind that.
    auto open = OpenDescriptors();
    for (int wait = 0; wait < 5000 && open != descriptors_; ++wait) {
      usleep(1000);
      open = OpenDescriptors();
    }
    EXPECT_EQ(open, descriptors_);
    EXPECT_TRUE(CanAnotherThreadTakeAllLocks());
    CheckReport(fault, run);
    for (const std::string& name : Names()) {
      // What cannot be removed, or cannot be named for want of any memory, stays.
      if (&fault.group == &kRemove || (&fault.group == &kMemory && fault.lasts)) break;
      EXPECT_TRUE(std::ranges::count(names_, name) > 0) << name << " is left behind";
    }
    if (!(fault.begins_half && promise_.is_torn)) CheckView(fault, run);
  }

  void CheckView(const Fault& fault, const Run& run) {
    // A file that takes a new name by two steps, and cannot lose either name, goes by both.
    const bool is_free = fault.lasts && &fault.group == &kRemove;
    const Pieces view = View();
    for (std::size_t i = 0; i < view.size(); ++i) {
      EXPECT_TRUE(is_free || view[i] == new_view_[i] || view[i] == old_view_[i] ||
                  IsAlsoAllowed(view[i]))
          << "piece " << i << " of the stored state is neither old nor new: " << view[i];
      if (run.report && i < promise_.sure_pieces) {
        EXPECT_EQ(view[i], new_view_[i]);
      }
    }
    // Who comes next ends what was broken off.
    if (view == new_view_) return;
    Perform(kNoFault, 1);
    EXPECT_EQ(View(), new_view_) << "after the next one's turn";
  }

  bool IsAlsoAllowed(const std::string& text) const {
    return promise_.also != nullptr && text == promise_.also;
  }

  void CheckReport(const Fault& fault, const Run& run) {
    if (!run.exception.empty()) {
      const bool is_allowed = run.exception == kBadAlloc && (!is_made_ || throws_ == kBadAlloc);
      EXPECT_TRUE(is_allowed || throws_ == "failures") << "throws " << run.exception;
    } else if (run.report) {
      EXPECT_TRUE(run.report == report_ || !report_ || IsAlsoAllowed(*run.report))
          << "reports a success with another value: " << *run.report;
    } else if (function_ != "-") {
      bool is_told = false;
      for (const LogLine& line : lines_) {
        if (line.level < level_ || !ToUtf8(line.function).starts_with(function_)) continue;
        is_told = true;
        told_.insert(line.number);
      }
      EXPECT_TRUE(is_told) << "fails without a line";
    }
    if (fault.goes_on) {
      EXPECT_EQ(run.report, report_) << run.exception;
    }
  }

  // What failed once works again, and nothing is lost. A cache may have grown, but not each time.
  void CheckRecovery(const Fault& fault, int n) {
    for (int again = 0; again < 12; ++again) {
      if (again > 0) {
        Prepare();
        Perform(fault, n);
      }
      Prepare();
      EXPECT_EQ(Perform(kNoFault, 1).report, report_) << "does not recover";
      lines_ = {};
      if (std::exchange(blocks_, seam.blocks) == seam.blocks) return;
    }
    ADD_FAILURE() << "blocks of memory are lost";
  }

  // Lets each call of the fault's group fail in turn, up to the first one that does harm.
  void Inject(const Fault& fault) {
    // What stays away from a point on is tried at ever fewer points: each call was first before.
    for (int n = 1; !HasFailure(); n += fault.lasts ? 1 + n / 8 : 1) {
      Prepare();
      const Run run = Perform(fault, n);
      if (run.failed == nullptr) return;
      const bool is_short = &fault.group == &kWrite && (fault.error == kHalf || fault.begins_half);
      const char* const kind = is_short ? "short write" : fault.group.kind;
      for (const char* const counted : {kind, "all"}) ++points_[counted][fault.lasts];
      Check(fault, run);
      CheckRecovery(fault, n);
      if (!HasFailure()) continue;
      ADD_FAILURE() << "The above: " << fault.group.kind << " " << n << ", " << run.failed
                    << ", error " << fault.error << (fault.lasts ? " from then on" : "");
    }
  }

  static inline const Fault kNoFault = {kNone, 0};
  static constexpr char kBadAlloc[] = "bad_alloc";

  static inline std::map<const char*, std::array<int, 2>, std::less<std::string_view>> points_;
  const Operation& operation_ = GetParam();
  const Promise& promise_ = operation_.promise;
  // From the operation's row.
  std::string throws_, function_;
  int level_ = 0;
  std::set<int> numbers_;
  std::vector<LogLine> lines_;
  std::vector<MutexIdentity> identities_;
  TestClock clock_;
  ScopedClock use_clock_{clock_};
  const ScopedEnvironment temporary_{"TMPDIR", native("tmp").c_str()};
  ScopedLockTimeout lock_timeout_{200};
  ScopedDnsWait dns_wait_{std::chrono::milliseconds(200)};
  ScopedExchangeWaits waits_{std::chrono::milliseconds(200), std::chrono::milliseconds(200)};
  std::vector<std::string> folders_, names_, old_view_, new_view_;
  Report report_;  // none before the rehearsal
  std::set<int> told_;
  long blocks_ = 0;
  std::ptrdiff_t descriptors_ = 0;
  std::shared_ptr<void> server_ = operation_.serve != nullptr ? operation_.serve(*this) : nullptr;
};

TEST_P(FaultTest, IsSurvived) {
  for (const bool is_plain : {false, true}) {
    if (is_plain && server_ != nullptr) break;
    SCOPED_TRACE(is_plain ? "on a plain file system" : "on an ordinary file system");
    seam.is_plain = is_plain;
    // What cannot do its work there has nothing to lose.
    Prepare();
    if (is_plain && !Perform(kNoFault, 1).report) break;
    ASSERT_NO_FATAL_FAILURE(Rehearse());
    for (const Group* const group : kGroups) {
      for (const int error : group->failing) Inject({*group, error});
      for (const int error : group->passing) Inject({*group, error, true});
      Inject({*group, group->failing[0], false, true});
      if (std::ranges::count(group->passing, kHalf) == 0) continue;
      Inject({*group, kHalf, true, true});
      Inject({*group, EIO, false, true, true});
    }
  }
  seam.is_plain = false;
  EXPECT_FALSE(function_.empty()) << "has no row in the table of promises";
  if (!numbers_.empty()) {
    EXPECT_EQ(told_, numbers_);
  }
}

// What a process does once may fail when it is done: here each run is the first of its process.
TEST_P(FaultTest, IsSurvivedAtFirst) {
  constexpr int kIsOver = 2;
  for (const Group* const group : kGroups) {
    for (int n = 1, end = 0; end != kIsOver; ++n) {
      ChildProcess process([&] {
        const Fault fault = {*group, group->failing[0]};
        Prepare();
        const Run run = Perform(fault, n);
        if (run.failed == nullptr) return kIsOver;
        CheckReport(fault, run);
        Prepare();
        EXPECT_TRUE(Perform(kNoFault, 1).report) << "does not recover";
        return HasFailure() ? 1 : 0;
      });
      end = process.Wait();
      ASSERT_TRUE(end == 0 || end == kIsOver) << group->kind << " " << n << " ends with " << end;
      points_["at first"][0] += end == 0;
    }
  }
}

std::vector<Operation> AllOperations() {
  std::vector<Operation> all;
  for (const auto list : {RecordOperations, SettingsOperations, TransportOperations}) {
    std::ranges::move(list(), std::back_inserter(all));
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Operations, FaultTest, ::testing::ValuesIn(AllOperations()),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace vk::tq::testing
