// What the library keeps on disk, as one table: how to write a version of it, and how to tell which
// version is there. The tests with killed processes, with many and with planted files run over it.
#pragma once

#include <span>
#include <string_view>

#include "support/test_support.h"

namespace vk::tq::testing {

// What a reading gives when the operation failed, and when what it read is no version as a whole.
inline constexpr int kNotRead = -1;
inline constexpr int kTorn = -2;

// Versions count from 1. All of a version's fields tell its number, and its length differs from
// that of the last one.
struct Store {
  std::string_view name;
  // The mutex that a program holds from reading to writing what it made of it.
  const wchar_t* lock;
  // The place is one of many records of a kind; stores with a single one take no notice of it.
  bool (*write)(int place, int version);
  int (*read)(int place);
  // How many writers of it are killed.
  int kills = 120;
  // Whether the file system is made to know no rename that replaces nothing.
  bool is_by_link = false;
};

std::span<const Store> Stores();
const Store& FindStore(std::string_view name);
void PrintTo(const Store& store, std::ostream* out);

// The folders and files that the stores stand on, one of them on a second file system where the
// machine has one.
class StoreTest : public ProductTest {
 protected:
  StoreTest();

  // How many files and folders there are in these.
  std::ptrdiff_t CountFiles() const;

  ScopedEnvironment elsewhere_{"TMPDIR", "/dev/shm"};
  TempFolder second_;
};

}  // namespace vk::tq::testing
