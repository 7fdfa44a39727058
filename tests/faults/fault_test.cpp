// Lets the n-th call of every kind fail in every public operation, for n = 1, 2, 3 ... until the
// operation no longer makes so many, and looks after each run at what it has left.
#include <netdb.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>

#include "faults/operation.h"
#include "foundation/file_lock.h"
#include "platform/dns.h"
#include "platform/posix/mutex_set.h"
#include "support/test_clock.h"
#include "transport/shared_printer_communication.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;

// The errors with which calls of a group may make an operation fail, and those that must not
// impress it. The first one also lasts.
struct Errors {
  const char* kind;
  Group group;
  std::vector<int> failing;
  std::vector<int> passing = {};
};
using enum Group;
const Errors kErrors[] = {
    {"open", kOpen, {EMFILE, EIO}},
    {"read", kRead, {EIO}, {EINTR}},
    {"write", kWrite, {ENOSPC, EIO}, {EINTR}},
    {"short write", kWrite, {}, {kHalf}},
    {"close", kClose, {EIO}},
    {"rename", kRename, {EACCES, EIO}},
    {"unlink", kRemove, {EACCES}},
    {"mkdir", kFolder, {ENOSPC, EACCES}},
    {"directory read", kDirectory, {EIO}},
    {"reserve and cut", kRoom, {ENOSPC, EIO}, {EINTR}},
    {"flush", kFlush, {EIO}},
    {"status", kStatus, {EIO, ENOMEM}},
    {"rights", kRights, {EPERM, ENOMEM}},
    {"rights", kAccounts, {EIO}, {EINTR}},
    {"lock", kLock, {ENOMEM, EACCES, ENOSPC}},
    {"memory", kMemory, {ENOMEM}},
    {"memory", kXml, {ENOMEM}},
    {"socket call", kSocket, {ENOBUFS, ECONNREFUSED}},
    {"socket call", kTransfer, {ECONNRESET}, {EINTR, kHalf}},
    {"socket call", kDatagram, {ENETUNREACH}, {EINTR}},
    {"socket call", kPoll, {ENOMEM}, {EINTR}},
    {"resolver", kResolver, {EAI_AGAIN, EAI_MEMORY}},
    {"machine", kMachine, {ENOMEM}},
    {"cipher", kCipher, {ENOMEM}},
    {"ftp library", kFtpLibrary, {ENOMEM}},
};

// ---- What an operation may leave behind ----

constexpr const wchar_t* kLocks[] = {
    L"Global\\KITORA_QTL_JOB_MANAGE",
    L"KITORA_QTL_JOB_INFO_NEMI",
    L"KITORA_QTL_USER_DATA",
    L"KITORA_QTL_SHARED_USER_DATA",
    L"Global\\KITORA_QTL_WHITELIST_DAT_FILE",
    L"Global\\KITORA_QTL_PRINT_MLTTHREAD",
};

// The locks that another thread cannot take at once, a bit for each. Blocks are counted by thread:
// the other one must free nothing that this one has made, as std::thread does.
unsigned HeldLocks() {
  unsigned held = 0;
  const auto probe = [](void* to) -> void* {
    for (unsigned i = 0; i < std::size(kLocks); ++i) {
      const bool is_global = std::wstring_view(kLocks[i]).starts_with(L"Global");
      if (ProbeMutex(kLocks[i], is_global) != WaitResult::kAcquired) {
        *static_cast<unsigned*>(to) |= 1U << i;
      }
    }
    return nullptr;
  };
  pthread_t thread{};
  if (pthread_create(&thread, nullptr, probe, &held) != 0) return ~0U;
  pthread_join(thread, nullptr);
  return held;
}

auto OpenDescriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

// Keeps the lines, and no events.
struct Sink : LogSink, EventSink {
  explicit Sink(std::vector<LogLine>& to) : lines(to) {}
  void Write(const LogRecord& record) override {
    const Calm calm;
    lines.push_back(
        {record.level, record.number, std::wstring(record.function), std::wstring(record.message)});
  }
  void Write(unsigned long, std::wstring_view, bool) override {}
  std::vector<LogLine>& lines;
};

// ---- The driver ----

class FaultTest : public Stage, public ::testing::WithParamInterface<Operation> {
 protected:
  FaultTest() {
    setenv("TQ_LOG_FILE", native("work/log").c_str(), 1);
    const auto sink = std::make_shared<Sink>(lines_);
    InstallLogSink(sink);
    InstallEventSink(sink);
    clock_.pauses.reserve(100);
    for (const wchar_t* lock : kLocks) identities_.push_back(IdentityOfMutex(lock));
  }

  // How many points there were.
  static void TearDownTestSuite() {
    for (const auto& [kind, counts] : points_) {
      std::printf("%-16s %7d points, %7d from which it lasts\n", kind, counts[0], counts[1]);
    }
  }

  struct Run {
    Report report;
    std::string exception;  // empty when there was none
    bool is_for_memory = false;
    const char* failed = nullptr;
  };

  void Prepare() {
    is_made_ = false;
    clock_.pauses.clear();
    Refresh();
    if (operation_.prepare != nullptr) operation_.prepare(*this);
    for (const MutexIdentity& lock : identities_) {
      if (const MutexSet set = FindMutexSet(lock); set.id >= 0) RetireMutexSet(set.id);
    }
    lines_ = {};
  }

  Run Perform(const Fault& fault, int n) {
    Run run;
    Arm(fault, n);
    try {
      run.report = operation_.run(*this);
    } catch (const std::bad_alloc&) {
      run.is_for_memory = true;
      run.exception = "std::bad_alloc";
    } catch (const std::exception& exception) {
      run.exception = exception.what();
    }
    run.failed = Disarm();
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
      blocks_ = LiveBlocks();
    }
    if (operation_.serve != nullptr) usleep(50000);  // the server closes its own ends
    descriptors_ = OpenDescriptors();
    const std::vector<std::string> names = Names();
    for (const std::string& name : promise_.also) names_.push_back(native("jobs/" + name));
    names_.insert(names_.end(), names.begin(), names.end());
    new_view_ = View();
  }

  void Check(const Fault& fault, const Run& run) {
    // A server in this process may still close a connection.
    auto open = OpenDescriptors();
    for (int wait = 0; wait < 5000 && open != descriptors_; ++wait) {
      usleep(1000);
      open = OpenDescriptors();
    }
    EXPECT_EQ(open, descriptors_);
    EXPECT_EQ(HeldLocks(), 0U) << "held locks, a bit for each";
    CheckReport(fault, run);
    for (const std::string& name : Names()) {
      // What cannot be removed, or cannot be named for want of any memory, stays.
      if (fault.group == kRemove || (fault.group == kMemory && fault.lasts)) break;
      EXPECT_TRUE(std::ranges::count(names_, name) > 0) << name << " is left behind";
    }
    if (!(fault.begins_half && promise_.is_torn_by_half)) CheckView(fault, run);
  }

  void CheckView(const Fault& fault, const Run& run) {
    // A file that takes a new name by two steps, and cannot lose either name, goes by both.
    const bool is_free = fault.lasts && fault.group == kRemove;
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
    return std::ranges::count(promise_.also, text) > 0;
  }

  void CheckReport(const Fault& fault, const Run& run) {
    if (!run.exception.empty()) {
      const bool is_allowed =
          promise_.throws == Throws::kFailures ||
          (run.is_for_memory && (!is_made_ || promise_.throws == Throws::kForMemory));
      EXPECT_TRUE(is_allowed) << "throws " << run.exception;
    } else if (run.report) {
      EXPECT_TRUE(run.report == report_ || !report_ || IsAlsoAllowed(*run.report))
          << "reports a success with another value: " << *run.report;
    } else if (promise_.line != nullptr) {
      const auto explains = [this](const LogLine& line) {
        return line.level >= promise_.level && line.function.starts_with(promise_.line);
      };
      EXPECT_TRUE(std::ranges::any_of(lines_, explains)) << "fails without a line";
      for (const LogLine& line : lines_) {
        if (explains(line)) told_.insert(line.number);
      }
    }
    if (fault.goes_on) {
      EXPECT_EQ(run.report, report_) << run.exception;
    }
  }

  // What failed once works again, and nothing is lost. A cache may have grown, but not each time.
  void CheckRecovery(const Fault& fault, int n) {
    long blocks = Recover();
    for (int again = 0; blocks != blocks_ && again < 12; ++again) {
      blocks_ = blocks;
      Prepare();
      Perform(fault, n);
      blocks = Recover();
    }
    EXPECT_EQ(blocks, blocks_) << "blocks of memory are lost";
    blocks_ = blocks;
  }

  long Recover() {
    Prepare();
    const Run run = Perform(kNoFault, 1);
    EXPECT_EQ(run.report, report_) << "does not recover";
    lines_ = {};
    return LiveBlocks();
  }

  static int PartCount() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
  }

  // Lets each call of the fault's group fail in turn.
  void Inject(const Fault& fault) {
    int failures = 0;
    // What stays away from a point on is tried at ever fewer points: each call was first before.
    for (int n = 1;; n += fault.lasts ? 1 + n / 8 : 1) {
      Prepare();
      const Run run = Perform(fault, n);
      if (run.failed == nullptr) return;
      for (const char* const kind : {fault.kind, "all kinds"}) ++points_[kind][fault.lasts];
      const int parts = PartCount();
      Check(fault, run);
      CheckRecovery(fault, n);
      if (PartCount() == parts) continue;
      ADD_FAILURE() << "The above: " << fault.kind << " " << n << ", " << run.failed << ", error "
                    << fault.error << (fault.lasts ? " from then on" : "");
      if (++failures > 3) return;
    }
  }

  static constexpr Fault kNoFault = {"none", kOpen, 0};

  static inline std::map<const char*, std::array<int, 2>, std::less<std::string_view>> points_;
  const Operation& operation_ = GetParam();
  const Promise& promise_ = operation_.promise;
  std::vector<LogLine> lines_;
  std::vector<MutexIdentity> identities_;
  TestClock clock_;
  ScopedClock use_clock_{clock_};
  ScopedLockTimeout lock_timeout_{200};
  ScopedDnsWait dns_wait_{std::chrono::milliseconds(200)};
  ScopedExchangeWaits waits_{std::chrono::milliseconds(200), std::chrono::milliseconds(200)};
  std::vector<std::string> old_view_, new_view_, names_;
  Report report_;  // none before the rehearsal
  std::set<int> told_;
  long blocks_ = 0;
  std::ptrdiff_t descriptors_ = 0;
};

TEST_P(FaultTest, IsSurvived) {
  const std::shared_ptr<void> server =
      operation_.serve != nullptr ? operation_.serve(*this) : nullptr;
  for (const bool is_plain : {false, true}) {
    if (is_plain && operation_.serve != nullptr) break;
    SCOPED_TRACE(is_plain ? "on a plain file system" : "on an ordinary file system");
    EnterPlainFileSystem(is_plain);
    // What cannot do its work there has nothing to lose.
    Prepare();
    if (is_plain && !Perform(kNoFault, 1).report) break;
    ASSERT_NO_FATAL_FAILURE(Rehearse());
    for (const auto& [kind, group, failing, passing] : kErrors) {
      for (const int error : failing) Inject({kind, group, error});
      for (const int error : passing) Inject({kind, group, error, true});
      if (std::ranges::count(passing, kHalf) > 0) {
        Inject({kind, group, kHalf, true, true});
        Inject({kind, group, EIO, false, true, true});
      }
      if (!failing.empty()) Inject({kind, group, failing[0], false, true});
    }
  }
  EnterPlainFileSystem(false);
  if (!promise_.numbers.empty()) {
    EXPECT_EQ(told_, promise_.numbers);
  }
}

// What a process does once may fail when it is done: here each run is the first of its process.
TEST_P(FaultTest, IsSurvivedAtFirst) {
  const std::shared_ptr<void> server =
      operation_.serve != nullptr ? operation_.serve(*this) : nullptr;
  constexpr int kIsOver = 2;
  for (const auto& [kind, group, failing, passing] : kErrors) {
    const Fault fault = {kind, group, failing.empty() ? passing[0] : failing[0]};
    for (int n = 1, end = 0; end != kIsOver; ++n) {
      ChildProcess process([&] {
        Prepare();
        const Run run = Perform(fault, n);
        if (run.failed == nullptr) return kIsOver;
        CheckReport(fault, run);
        Prepare();
        EXPECT_TRUE(Perform(kNoFault, 1).report) << "does not recover";
        return PartCount() == 0 ? 0 : 1;
      });
      end = process.Wait();
      ASSERT_TRUE(end == 0 || end == kIsOver) << fault.kind << " " << n << " ends with " << end;
      points_["at first"][0] += end == 0;
    }
  }
}

std::vector<Operation> AllOperations() {
  std::vector<Operation> all;
  for (const auto list : {StorageOperations, RecordOperations, SettingsOperations,
                          FoundationOperations, TransportOperations}) {
    std::ranges::move(list(), std::back_inserter(all));
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Operations, FaultTest, ::testing::ValuesIn(AllOperations()),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

Report Reports(bool is_done, const std::wstring& text) {
  const Calm calm;
  if (!is_done) return {};
  return ToUtf8(text);
}

std::wstring Stage::WorkPath(const std::wstring& name) const {
  const Calm calm;
  return path(name.empty() ? L"work" : L"work\\" + name);
}

std::vector<std::string> Stage::Names() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(temp_.native())) {
    names.push_back(entry.path().string());
  }
  return names;
}

void Stage::Refresh() {
  // Making folders takes longer than all the rest, so those that every operation needs stay.
  const std::string kept[] = {temp_.native(), product_native(),  product_native("config"),
                              native("user"), native("volumes"), native("jobs"),
                              native("work"), native("tmp")};
  const auto is_kept = [&](const std::string& path) {
    return std::ranges::any_of(
        kept, [&](const auto& one) { return (one + "/").starts_with(path + "/"); });
  };
  for (const std::string& folder : kept) {
    fs::create_directory(folder);
    for (const std::string& name : ListNative(folder)) {
      if (!is_kept(folder + "/" + name)) fs::remove_all(folder + "/" + name);
    }
  }
  WriteKeyFile();
}

}  // namespace vk::tq::testing
