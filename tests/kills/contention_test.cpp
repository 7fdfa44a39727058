// Many processes at once lose no update, and read whole versions that are never older than before.
#include <random>
#include <vector>

#include "foundation/file_lock.h"
#include "kills/stores.h"

namespace vk::tq::testing {
namespace {

struct Crowd {
  const char* store;
  int processes;
  int places;
  int turns;
};
void PrintTo(const Crowd& crowd, std::ostream* out) { *out << crowd.store; }

class CrowdTest : public StoreTest, public ::testing::WithParamInterface<Crowd> {
 protected:
  // A read without the lock may meet a job whose name changes between finding and opening it: it
  // begins anew then.
  int ReadAtOnce(int place) const {
    for (int attempt = 0; attempt < 10'000; ++attempt) {
      const int seen = store_.read(place);
      if (seen != kNotRead) return seen;
    }
    return kNotRead;
  }

  // One process; 0, or the step that went wrong.
  int Work(unsigned seed) const {
    std::mt19937 random(seed);
    std::vector<int> newest(static_cast<std::size_t>(GetParam().places), 1);
    for (int turn = 0; turn < GetParam().turns; ++turn) {
      const int place = static_cast<int>(random() % newest.size());
      int& known = newest[static_cast<std::size_t>(place)];
      const int seen = store_.has_own_order ? ReadAtOnce(place) : known;
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

  const Store& store_ = FindStore(GetParam().store);
};

TEST_P(CrowdTest, LosesNoUpdate) {
  for (int place = 0; place < GetParam().places; ++place) ASSERT_TRUE(store_.write(place, 1));
  std::vector<std::unique_ptr<ChildProcess>> processes;
  for (int i = 0; i < GetParam().processes; ++i) {
    processes.push_back(
        std::make_unique<ChildProcess>([&, i] { return Work(static_cast<unsigned>(i) + 1); }));
  }
  for (const auto& process : processes) EXPECT_EQ(0, process->Wait());
  int updates = 0;
  for (int place = 0; place < GetParam().places; ++place) updates += store_.read(place) - 1;
  EXPECT_EQ(GetParam().processes * GetParam().turns, updates);
}

constexpr Crowd kCrowds[] = {{"Job", 2, 1, 200},
                             {"Job", 4, 1, 200},
                             {"Job", 8, 1, 100},
                             {"Job", 2, 100, 200},
                             {"Job", 4, 100, 100},
                             {"Job", 8, 100, 100},
                             {"JobStatus", 4, 1, 200},
                             {"StatusFile", 4, 1, 100},
                             {"PrintInfo", 8, 100, 100},
                             {"UserData", 8, 1, 100},
                             {"SharedUserData", 4, 1, 100},
                             {"PrinterList", 8, 1, 100},
                             {"ClientIni", 8, 1, 100},
                             {"ConfigIni", 8, 1, 100}};

INSTANTIATE_TEST_SUITE_P(Stores, CrowdTest, ::testing::ValuesIn(kCrowds), [](const auto& test) {
  return std::string(test.param.store) + "_" + std::to_string(test.param.processes) + "_on_" +
         std::to_string(test.param.places);
});

}  // namespace
}  // namespace vk::tq::testing
