// tqctl lock: the locks that order the programs of the suite.
#include <chrono>
#include <optional>

#include "foundation/file_lock.h"
#include "tqctl/command.h"
#include "tqctl/held_lock.h"
#include "tqctl/terminal.h"

namespace tqctl {
namespace {

using vk::tq::WaitResult;

// The locks of the library itself.
struct KnownLock {
  const wchar_t* name;
  const wchar_t* guards;
  bool is_for_everybody = true;
};
constexpr KnownLock kKnownLocks[] = {
    {L"Global\\KITORA_QTL_JOB_MANAGE", L"all files of all jobs"},
    {L"KITORA_QTL_JOB_INFO_NEMI", L"all print information files"},
    {L"KITORA_QTL_USER_DATA", L"the user's data"},
    {L"KITORA_QTL_SHARED_USER_DATA", L"the user's data for shared printers", false},
    {L"Global\\KITORA_QTL_WHITELIST_DAT_FILE", L"the list of excluded printers"},
};

// ---- lock probe ----

struct ProbeOptions {
  std::wstring name;
};

void DeclareProbe(CLI::App& command, ProbeOptions& options) {
  AddText(command, "NAME", options.name, "The lock's name; without it, all of the library's locks");
}

Cell StateOf(const KnownLock& lock) {
  switch (vk::tq::ProbeMutex(lock.name, lock.is_for_everybody)) {
    case WaitResult::kAcquired:
      return Cell(L"free").In(Tone::kGood);
    case WaitResult::kAbandoned:
      return Cell(L"abandoned").In(Tone::kWarning);
    case WaitResult::kTimeout:
      return Cell(L"held").In(Tone::kWarning);
    case WaitResult::kFailed:
      break;
  }
  return Cell(L"closed").In(Tone::kBad);
}

void ProbeLocks(Context& context, const ProbeOptions& options) {
  std::vector<KnownLock> locks;
  for (const KnownLock& known : kKnownLocks) {
    if (options.name.empty() || options.name == known.name) locks.push_back(known);
  }
  if (locks.empty()) locks.push_back({options.name.c_str(), L"what programs say"});
  Table table = {{L"lock", L"state", L"guards"}, {}};
  for (const KnownLock& lock : locks) {
    table.rows.push_back({lock.name, StateOf(lock), lock.guards});
  }
  context.out.Show(table);
}

// ---- lock hold ----

struct HoldOptions {
  std::wstring name;
  int seconds = 0;
  CLI::Option* seconds_option = nullptr;
};

void DeclareHold(CLI::App& command, HoldOptions& options) {
  AddText(command, "NAME", options.name, "The lock's name")->required();
  options.seconds_option =
      command.add_option("--seconds", options.seconds, "How long; else until Enter is pressed")
          ->check(CLI::Range(0, 86400))
          ->type_name("N");
}

void HoldLock(Context& context, const HoldOptions& options) {
  const bool has_end = options.seconds_option->count() > 0;
  std::optional<HeldLock> lock(options.name);
  // A lock that is not given back counts as abandoned, which makes somebody's next operation fail.
  const SignalDelay signals;
  context.out.Done(L"Holding the lock \"" + options.name + L"\" " +
                       (has_end ? L"for " + std::to_wstring(options.seconds) + L" s."
                                : L"until you press Enter."),
                   {{L"lock", options.name}, {L"held", true}});
  context.out.Flush();
  if (has_end) {
    signals.Wait(std::chrono::seconds(options.seconds));
  } else {
    signals.WaitForInput();
  }
  lock.reset();
}

}  // namespace

void AddLock(CLI::App& app, Context& context) {
  CLI::App& noun = AddNoun(app, "lock", "The locks that order the programs of the suite");
  AddCommand(noun, context, "probe", "Show whether locks are held, without waiting", DeclareProbe,
             ProbeLocks);
  AddCommand(noun, context, "hold", "Hold a lock, to see how programs wait", DeclareHold, HoldLock);
}

}  // namespace tqctl
