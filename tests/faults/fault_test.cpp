// Lets the n-th call of every kind fail in every public operation, for n = 1, 2, 3 ... until the
// operation no longer makes so many, and looks after each run at what it has left.
#include <dirent.h>
#include <netdb.h>
#include <sys/socket.h>
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

constexpr Fault kFaults[] = {
    {"open", Group::kOpen, EMFILE},
    {"open", Group::kOpen, EIO},
    {"open", Group::kOpen, EMFILE, Outcome::kMayFail, Reach::kFromThenOn},
    {"read", Group::kRead, EIO},
    {"read", Group::kRead, EINTR, Outcome::kGoesOn},
    {"write", Group::kWrite, EIO},
    {"write", Group::kWrite, ENOSPC},
    {"write", Group::kWrite, EINTR, Outcome::kGoesOn},
    {"short write", Group::kWrite, kHalf, Outcome::kGoesOn},
    {"close", Group::kClose, EIO},
    {"rename", Group::kRename, EACCES},
    {"rename", Group::kRename, EIO},
    {"unlink", Group::kRemove, EACCES},
    {"mkdir", Group::kFolder, ENOSPC},
    {"mkdir", Group::kFolder, EACCES},
    {"directory read", Group::kDirectory, EIO},
    {"reserve and cut", Group::kRoom, ENOSPC},
    {"reserve and cut", Group::kRoom, EINTR, Outcome::kGoesOn},
    {"reserve and cut", Group::kLength, EIO},
    {"reserve and cut", Group::kLength, EINTR, Outcome::kGoesOn},
    {"flush", Group::kFlush, EIO},
    {"status", Group::kStatus, EIO},
    {"status", Group::kStatus, ENOMEM},
    {"rights", Group::kRights, EPERM},
    {"rights", Group::kRights, ENOMEM},
    {"rights", Group::kAccounts, EIO},
    {"rights", Group::kAccounts, EINTR, Outcome::kGoesOn},
    {"lock", Group::kLock, EACCES},
    {"lock", Group::kLock, ENOMEM},
    {"lock", Group::kLock, ENOSPC},
    {"memory", Group::kMemory, ENOMEM},
    {"memory", Group::kMemory, ENOMEM, Outcome::kMayFail, Reach::kFromThenOn},
    {"memory", Group::kXml, ENOMEM},
    {"memory", Group::kXmlMemory, ENOMEM},
    {"socket call", Group::kSocket, ENOBUFS},
    {"socket call", Group::kSocket, ECONNREFUSED},
    {"socket call", Group::kTransfer, ECONNRESET},
    {"socket call", Group::kTransfer, EINTR, Outcome::kGoesOn},
    {"socket call", Group::kTransfer, kHalf, Outcome::kGoesOn},
    {"socket call", Group::kDatagram, ENETUNREACH},
    {"socket call", Group::kDatagram, EINTR, Outcome::kGoesOn},
    {"socket call", Group::kPoll, ENOMEM},
    {"socket call", Group::kPoll, EINTR, Outcome::kGoesOn},
    {"resolver", Group::kResolver, EAI_AGAIN},
    {"resolver", Group::kResolver, EAI_MEMORY},
    {"machine", Group::kMachine, EINTR},
    {"machine", Group::kText, ENOMEM},
    {"cipher", Group::kCipher, ENOMEM},
    {"ftp library", Group::kFtpLibrary, ENOMEM},
};

// ---- Another process, which takes every lock ----

constexpr const wchar_t* kLocks[] = {
    L"Global\\KITORA_QTL_JOB_MANAGE",
    L"KITORA_QTL_JOB_INFO_NEMI",
    L"KITORA_QTL_USER_DATA",
    L"KITORA_QTL_SHARED_USER_DATA",
    L"Global\\KITORA_QTL_WHITELIST_DAT_FILE",
    L"Global\\KITORA_QTL_PRINT_MLTTHREAD",
};

class Prober {
 public:
  Prober() {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_) != 0) std::abort();
    child_ = std::make_unique<ChildProcess>([this] { return Serve(); });
  }
  Prober(const Prober&) = delete;
  Prober& operator=(const Prober&) = delete;
  ~Prober() {
    for (const int end : ends_) close(end);
  }

  // The locks that another process cannot take at once, a bit for each.
  int Held() {
    unsigned char held = 0;
    if (write(ends_[0], &held, 1) != 1 || read(ends_[0], &held, 1) != 1) return 0x100;
    return held;
  }

 private:
  int Serve() {
    close(ends_[0]);  // so that this process ends with the other
    unsigned char held = 0;
    while (read(ends_[1], &held, 1) == 1) {
      held = 0;
      for (unsigned i = 0; i < std::size(kLocks); ++i) {
        if (!Take(kLocks[i])) held |= static_cast<unsigned char>(1U << i);
      }
      if (write(ends_[1], &held, 1) != 1) break;
    }
    return 0;
  }

  static bool Take(const wchar_t* name) {
    HANDLE mutex = CreateNamedMutex(nullptr, name);
    if (mutex == nullptr) return false;
    const bool is_free = WaitForNamedMutex(mutex, 0) == WaitResult::kAcquired;
    ReleaseNamedMutex(mutex);
    CloseNamedMutex(mutex);
    return is_free;
  }

  int ends_[2];
  std::unique_ptr<ChildProcess> child_;
};

// ---- How many points there were ----

std::map<std::string, int>& Points() {
  static std::map<std::string, int> points;
  return points;
}

class Summary : public ::testing::Environment {
 public:
  void TearDown() override {
    int all = 0;
    for (const auto& [kind, count] : Points()) {
      std::printf("%-16s %7d points\n", kind.c_str(), count);
      all += count;
    }
    std::printf("%-16s %7d points\n", "all kinds", all);
  }
};
[[maybe_unused]] const auto* const kSummary = ::testing::AddGlobalTestEnvironment(new Summary);

int OpenDescriptors() {
  DIR* const folder = opendir("/proc/self/fd");
  int count = 0;
  while (readdir(folder) != nullptr) ++count;
  closedir(folder);
  return count;
}

// ---- The driver ----

class FaultTest : public Stage, public ::testing::WithParamInterface<Operation> {
 protected:
  FaultTest() {
    setenv("TQ_LOG_FILE", native("work/log").c_str(), 1);
    struct Sink : LogSink {
      explicit Sink(std::vector<LogLine>& to) : lines(to) {}
      void Write(const LogRecord& record) override {
        const Calm calm;
        lines.push_back({record.level, record.number, std::wstring(record.function),
                         std::wstring(record.message)});
      }
      std::vector<LogLine>& lines;
    };
    InstallLogSink(std::make_shared<Sink>(lines_));
    struct NoEvents : EventSink {
      void Write(unsigned long, std::wstring_view, bool) override {}
    };
    InstallEventSink(std::make_shared<NoEvents>());
    for (const wchar_t* lock : kLocks) identities_.push_back(IdentityOfMutex(lock));
  }

  struct Run {
    Report report;
    std::string exception;  // empty when there was none
    bool is_for_memory = false;
    const char* failed = nullptr;
  };

  void Prepare() {
    is_made_ = false;
    Refresh();
    operation_.prepare(*this);
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

  std::vector<std::string> View() {
    return operation_.view != nullptr ? operation_.view(*this) : std::vector<std::string>();
  }

  // Learns what the operation does without a fault. Caches are filled when it is over.
  void Rehearse() {
    Prepare();
    old_view_ = View();
    names_ = Names();
    for (int i = 0; i < 3; ++i) {
      Prepare();
      const Run run = Perform(kNoFault, 1);
      ASSERT_TRUE(run.report) << "fails without a fault: " << run.exception;
      report_ = *run.report;
      blocks_ = LiveBlocks();
    }
    if (operation_.serve != nullptr) usleep(50000);  // the server closes its own ends
    descriptors_ = OpenDescriptors();
    const std::vector<std::string> names = Names();
    for (const std::string& name : operation_.also) names_.push_back(native("jobs/" + name));
    names_.insert(names_.end(), names.begin(), names.end());
    new_view_ = View();
  }

  void Check(const Fault& fault, const Run& run) {
    // A server in this process may still take a connection, and closes it when it comes to it: one
    // look that finds no more than before is enough.
    int open = OpenDescriptors();
    for (int wait = 0; wait < 5000 && open != descriptors_; ++wait) {
      usleep(1000);
      open = OpenDescriptors();
    }
    EXPECT_EQ(open, descriptors_);
    EXPECT_EQ(prober_.Held(), 0) << "held locks, a bit for each";
    CheckReport(fault, run);
    for (const std::string& name : Names()) {
      // What cannot be removed, or cannot be named for want of any memory, stays.
      if (fault.group == Group::kRemove || IsWithoutMemory(fault)) break;
      EXPECT_TRUE(std::ranges::count(names_, name) > 0) << name << " is left behind";
    }
    const std::vector<std::string> view = View();
    for (std::size_t i = 0; i < view.size(); ++i) {
      EXPECT_TRUE(view[i] == new_view_[i] || view[i] == old_view_[i] || IsAlsoAllowed(view[i]))
          << "piece " << i << " of the stored state is neither old nor new: " << view[i];
      if (run.report && i < operation_.sure_pieces) {
        EXPECT_EQ(view[i], new_view_[i]);
      }
    }
  }

  static bool IsWithoutMemory(const Fault& fault) {
    return fault.group == Group::kMemory && fault.reach == Reach::kFromThenOn;
  }

  bool IsAlsoAllowed(const std::string& text) const {
    return std::ranges::count(operation_.also, text) > 0;
  }

  void CheckReport(const Fault& fault, const Run& run) {
    if (!run.exception.empty()) {
      const bool is_allowed =
          operation_.throws == Throws::kFailures ||
          (run.is_for_memory && (!is_made_ || operation_.throws == Throws::kForMemory));
      EXPECT_TRUE(is_allowed) << "throws " << run.exception;
    } else if (run.report) {
      EXPECT_TRUE(run.report == report_ || IsAlsoAllowed(*run.report))
          << "reports a success with another value: " << *run.report;
    } else if (operation_.line != nullptr) {
      const auto explains = [this](const LogLine& line) {
        return line.level >= operation_.level && line.function.starts_with(operation_.line);
      };
      EXPECT_TRUE(std::ranges::any_of(lines_, explains)) << "fails without a line";
    }
    if (fault.outcome == Outcome::kGoesOn) {
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
    for (int n = 1;; n += fault.reach == Reach::kFromThenOn ? 1 + n / 8 : 1) {
      Prepare();
      const Run run = Perform(fault, n);
      if (run.failed == nullptr) return;
      ++Points()[fault.kind];
      const int parts = PartCount();
      Check(fault, run);
      CheckRecovery(fault, n);
      if (PartCount() == parts) continue;
      ADD_FAILURE() << "The above: " << fault.kind << " " << n << ", " << run.failed << ", error "
                    << fault.error << (fault.reach == Reach::kFromThenOn ? " from then on" : "");
      if (++failures > 3) return;
    }
  }

  static constexpr Fault kNoFault = {"none", Group::kOpen, 0};

  const Operation& operation_ = GetParam();
  std::vector<LogLine> lines_;
  Prober prober_;
  std::vector<MutexIdentity> identities_;
  TestClock clock_;
  ScopedClock use_clock_{clock_};
  ScopedLockTimeout lock_timeout_{200};
  ScopedDnsWait dns_wait_{std::chrono::milliseconds(200)};
  ScopedExchangeWaits waits_{std::chrono::milliseconds(200), std::chrono::milliseconds(200)};
  std::vector<std::string> old_view_, new_view_, names_;
  std::string report_;
  long blocks_ = 0;
  int descriptors_ = 0;
};

TEST_P(FaultTest, IsSurvived) {
  const std::shared_ptr<void> server =
      operation_.serve != nullptr ? operation_.serve(*this) : nullptr;
  for (const bool is_plain : {false, true}) {
    if (is_plain && operation_.serve != nullptr) break;
    SCOPED_TRACE(is_plain ? "on a plain file system" : "on an ordinary file system");
    Enter({is_plain});
    // What cannot do its work there has nothing to lose.
    Prepare();
    if (is_plain && !Perform(kNoFault, 1).report) break;
    ASSERT_NO_FATAL_FAILURE(Rehearse());
    for (const Fault& fault : kFaults) Inject(fault);
  }
  Enter({});
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

Report Reports(bool is_done, std::wstring_view text) {
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
  const std::string kept[] = {product_native("config"), native("user"), native("volumes"),
                              native("jobs"),           native("work"), native("tmp")};
  const std::function<void(const std::string&)> clear = [&](const std::string& folder) {
    for (const std::string& name : ListNative(folder)) {
      const std::string path = folder + "/" + name;
      const bool is_kept = std::ranges::any_of(
          kept, [&](const std::string& one) { return (one + "/").starts_with(path + "/"); });
      is_kept ? clear(path) : static_cast<void>(fs::remove_all(path));
    }
  };
  clear(temp_.native());
  for (const std::string& folder : kept) fs::create_directory(folder);
  WriteKeyFile();
}

}  // namespace vk::tq::testing
