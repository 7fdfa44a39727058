#include "harness.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>
#include <vector>

namespace vk::tq::bench {
namespace {

using Clock = std::chrono::steady_clock;

// How long a side runs in one round at least, so that the clock and a single interruption do not
// count.
constexpr double kShortestBlock = 0.001;

struct Entry {
  Row row;
  std::optional<Limit> limit;
};

// By the name under which the row is registered.
std::map<std::string, Entry>& Entries() {
  static std::map<std::string, Entry> entries;
  return entries;
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

double Seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

// The seconds that so many calls take.
double Time(const Contest& contest, const std::function<void()>& side, int calls) {
  if (!contest.before) {
    const auto start = Clock::now();
    for (int i = 0; i < calls; ++i) side();
    return Seconds(Clock::now() - start);
  }
  Clock::duration sum{};
  for (int i = 0; i < calls; ++i) {
    contest.before();
    const auto start = Clock::now();
    side();
    sum += Clock::now() - start;
  }
  return Seconds(sum);
}

// How many calls fill a block; also the warm-up.
int CallsOfBlock(const Contest& contest, const std::function<void()>& side) {
  Time(contest, side, 1);
  for (int calls = 1;; calls *= 2) {
    if (Time(contest, side, calls) >= kShortestBlock) return calls;
  }
}

class Rounds {
 public:
  void Add(const Figures& round) {
    ours_.push_back(round.ours);
    floor_.push_back(round.floor);
    ratio_.push_back(round.ours / round.floor);
  }

  void Report(benchmark::State& state) const {
    state.counters["ours"] = Median(ours_);
    state.counters["floor"] = Median(floor_);
    state.counters["ratio"] = Median(ratio_);
    state.counters["ratio_min"] = *std::ranges::min_element(ratio_);
    state.counters["ratio_max"] = *std::ranges::max_element(ratio_);
  }

 private:
  std::vector<double> ours_;
  std::vector<double> floor_;
  std::vector<double> ratio_;
};

void RunContest(benchmark::State& state, const Contest& contest) {
  const int our_calls = CallsOfBlock(contest, contest.ours);
  const int floor_calls = CallsOfBlock(contest, contest.floor);
  Rounds rounds;
  bool ours_first = true;
  for ([[maybe_unused]] auto _ : state) {
    Figures round{};
    for (const bool is_ours : {ours_first, !ours_first}) {
      const int calls = is_ours ? our_calls : floor_calls;
      const double time = Time(contest, is_ours ? contest.ours : contest.floor, calls);
      (is_ours ? round.ours : round.floor) = time / calls / contest.operations;
    }
    ours_first = !ours_first;
    rounds.Add(round);
    state.SetIterationTime(round.ours);
  }
  rounds.Report(state);
}

void RunMeasured(benchmark::State& state, const std::function<Figures()>& measure) {
  Rounds rounds;
  for ([[maybe_unused]] auto _ : state) {
    rounds.Add(measure());
    state.SetIterationTime(1);
  }
  rounds.Report(state);
}

std::string NameOf(const Row& row) {
  std::string name = row.group + "/" + row.work + "/" + row.floor;
  if (row.x) name.append("/").append(std::to_string(static_cast<long long>(*row.x)));
  std::ranges::replace(name, ' ', '_');
  return name;
}

template <class Run>
void Register(const Row& row, std::optional<Limit> limit, Run run) {
  const std::string name = NameOf(row);
  Entries().insert({name, {row, limit}});
  benchmark::RegisterBenchmark(name.c_str(),
                               [run](benchmark::State& state) {
                                 try {
                                   run(state);
                                 } catch (const std::exception& error) {
                                   state.SkipWithError(error.what());
                                 }
                               })
      ->Iterations(row.rounds)
      ->UseManualTime();
}

// ---- Output ----

std::string Number(double value, const char* unit) {
  std::array<char, 32> text{};
  const int digits = value >= 100 ? 0 : value >= 10 ? 1 : 2;
  std::snprintf(text.data(), text.size(), "%.*f %s", digits, value, unit);
  return text.data();
}

std::string Shown(double value, Unit unit) {
  if (unit == Unit::kBytes) return Number(value / (1 << 20), "MiB");
  if (value >= 1) return Number(value, "s");
  if (value >= 1e-3) return Number(value * 1e3, "ms");
  if (value >= 1e-6) return Number(value * 1e6, "µs");
  return Number(value * 1e9, "ns");
}

std::string Ratio(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.2f", value);
  return text.data();
}

// A line of a table.
std::string Line(std::initializer_list<std::string_view> cells) {
  std::string line = "|";
  for (const std::string_view cell : cells) line.append(" ").append(cell).append(" |");
  return line;
}

// Prints the tables in Markdown, so that they can be kept as they are.
class TableReporter : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) Take(run);
  }

  void Finalize() override {
    std::printf("\n| work | floor | ours | floor | ratio | target | met |\n");
    std::printf("|---|---|---|---|---|---|---|\n");
    for (const std::string& line : rows_) std::printf("%s\n", line.c_str());
    std::printf("\n%d of %d rows meet their targets.\n", met_, static_cast<int>(rows_.size()));
    for (const auto& [title, lines] : curves_) {
      std::printf("\n%s\n\n| n | ours | floor | ratio |\n|---|---|---|---|\n", title.c_str());
      for (const std::string& line : lines) std::printf("%s\n", line.c_str());
    }
  }

  bool has_failed() const { return has_failed_; }

 private:
  void Take(const Run& run) {
    const Entry& entry = Entries().at(run.run_name.function_name);
    if (run.error_occurred) {
      has_failed_ = true;
      std::fprintf(stderr, "%s: %s\n", run.run_name.function_name.c_str(),
                   run.error_message.c_str());
      return;
    }
    const auto counter = [&](const char* name) { return run.counters.at(name).value; };
    const Unit unit = entry.limit ? entry.limit->unit : Unit::kSeconds;
    const std::string figures = Shown(counter("ours"), unit) + " | " +
                                Shown(counter("floor"), unit) + " | " + Ratio(counter("ratio"));
    std::fprintf(stderr, "%s: %s (%.2f to %.2f)\n", run.run_name.function_name.c_str(),
                 figures.c_str(), counter("ratio_min"), counter("ratio_max"));
    const Row& row = entry.row;
    if (row.x) {
      std::array<char, 32> x{};
      std::snprintf(x.data(), x.size(), "%.0f", *row.x);
      CurveLines(row.work + ", against " + row.floor).push_back(Line({x.data(), figures}));
      return;
    }
    const bool is_met = entry.limit ? counter("ours") <= entry.limit->most
                                    : counter("ratio") <= row.target.value_or(0);
    const std::string target =
        entry.limit ? Shown(entry.limit->most, unit) : Ratio(row.target.value_or(0));
    if (is_met) ++met_;
    rows_.push_back(Line({row.work, row.floor, figures, target, is_met ? "yes" : "**no**"}));
  }

  std::vector<std::string>& CurveLines(const std::string& title) {
    for (auto& [known, lines] : curves_) {
      if (known == title) return lines;
    }
    return curves_.emplace_back(title, std::vector<std::string>()).second;
  }

  std::vector<std::string> rows_;
  std::vector<std::pair<std::string, std::vector<std::string>>> curves_;
  int met_ = 0;
  bool has_failed_ = false;
};

}  // namespace

void AddRow(Row row, std::function<Contest()> make) {
  Register(row, {}, [make](benchmark::State& state) { RunContest(state, make()); });
}

void AddLimitRow(Row row, Limit limit, std::function<Figures()> measure) {
  Register(row, limit, [measure](benchmark::State& state) { RunMeasured(state, measure); });
}

void AddMeasuredRow(Row row, std::function<Figures()> measure) {
  Register(row, {}, [measure](benchmark::State& state) { RunMeasured(state, measure); });
}

void Require(bool is_right, std::string_view what) {
  if (!is_right) throw std::runtime_error(std::string(what));
}

bool RunRows() {
  TableReporter reporter;
  return benchmark::RunSpecifiedBenchmarks(&reporter) > 0 && !reporter.has_failed();
}

}  // namespace vk::tq::bench
