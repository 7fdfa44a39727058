// Rows of the table: a piece of work of the library beside the plainest code that does the same.
//
// Google Benchmark registers, selects (--benchmark_filter), calls and stores (--benchmark_out) the
// rows, and keeps the compiler from dropping results. Its own timing runs one function at a time,
// so that a machine that is slower in one minute than in the next would show in the ratio. A row
// therefore times itself: each iteration runs ours and the floor one after the other, in turns
// first, and the ratio is the median of those of the iterations.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vk::tq::bench {

// What a row says about itself.
struct Row {
  std::string group;  // rows of one group stand together
  std::string work;
  std::string floor;
  std::optional<double> target;  // for ours / floor; a point of a curve has none
  int rounds = 101;
  std::optional<double> x = {};  // what grows: the place of the point on the curve
};

// The two sides of a row. What they need lives in the functions.
struct Contest {
  std::function<void()> ours;
  std::function<void()> floor;
  // Runs in front of each single run of a side, and is not timed.
  std::function<void()> before = {};
  // How many pieces of work one call does: the table shows the time of one.
  int operations = 1;
};

// Makes the sides when the row runs. What it throws is the row's failure.
void AddRow(Row row, std::function<Contest()> make);

// A row that does not compare times: `measure` gives the row's figure and that of its floor.
struct Figures {
  double ours;
  double floor;
};
enum class Unit { kSeconds, kBytes };
struct Limit {
  Unit unit;
  double most;  // of ours
};
void AddLimitRow(Row row, Limit limit, std::function<Figures()> measure);

// Times that a row measures itself, one pair for each round.
void AddMeasuredRow(Row row, std::function<Figures()> measure);

// Ends the row with an error. For results that are not what they must be.
void Require(bool is_right, std::string_view what);

// Runs the rows that the filter selects and prints the tables. False when a row failed.
bool RunRows();

}  // namespace vk::tq::bench
