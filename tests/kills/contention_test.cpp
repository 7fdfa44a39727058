// Many processes at once lose no update, and read whole versions that are never older than before.
#include <random>
#include <tuple>
#include <vector>

#include "foundation/file_lock.h"
#include "kills/stores.h"

namespace vk::tq::testing {
namespace {

constexpr int kTurns = 100;

// By the store, the number of processes and the number of places.
class CrowdTest : public StoreTest,
                  public ::testing::WithParamInterface<std::tuple<const char*, int, int>> {
 protected:
  // A read without the lock may meet a job whose name changes between finding and opening it: it
  // begins anew then.
  int ReadAtOnce(int place) const {
    int seen = kNotRead;
    for (int i = 0; i < 10'000 && seen == kNotRead; ++i) seen = store_.read(place);
    return seen;
  }

  // One process; 0, or the step that went wrong.
  int Work(unsigned seed) const {
    std::mt19937 random(seed);
    std::vector<int> newest(static_cast<std::size_t>(places_), 1);
    for (int turn = 0; turn < kTurns; ++turn) {
      const int place = static_cast<int>(random() % newest.size());
      int& known = newest[static_cast<std::size_t>(place)];
      const int seen = ReadAtOnce(place);
      if (seen < known) return 1;
      const HANDLE lock = GetManageFileMutex(store_.lock);
      if (lock == nullptr) return 2;
      const int current = store_.read(place);
      if (current < seen) return 3;
      known = current + 1;
      if (!store_.write(place, known)) return 4;
      if (store_.read(place) != known) return 5;
      ReleaseManageFileMutex(lock);
    }
    return 0;
  }

  const Store& store_ = FindStore(std::get<0>(GetParam()));
  const int places_ = std::get<2>(GetParam());
};

TEST_P(CrowdTest, LosesNoUpdate) {
  for (int place = 0; place < places_; ++place) ASSERT_TRUE(store_.write(place, 1));
  const auto files = CountFiles();
  std::vector<std::unique_ptr<ChildProcess>> processes;
  for (int i = 0; i < std::get<1>(GetParam()); ++i) {
    const auto seed = static_cast<unsigned>(i) + 1;
    processes.push_back(std::make_unique<ChildProcess>([this, seed] { return Work(seed); }));
  }
  for (const auto& process : processes) EXPECT_EQ(0, process->Wait());
  int updates = 0;
  for (int place = 0; place < places_; ++place) updates += store_.read(place) - 1;
  EXPECT_EQ(std::get<1>(GetParam()) * kTurns, updates);
  EXPECT_EQ(files, CountFiles());
}

using ::testing::Combine;
using ::testing::Values;
INSTANTIATE_TEST_SUITE_P(Jobs, CrowdTest, Combine(Values("Job"), Values(2, 4, 8), Values(1, 100)));
INSTANTIATE_TEST_SUITE_P(Others, CrowdTest,
                         Combine(Values("LongJob", "PrintInfo", "UserData", "SharedUserData",
                                        "PrinterList", "ClientIni", "ConfigIni"),
                                 Values(8), Values(1)));

}  // namespace
}  // namespace vk::tq::testing
