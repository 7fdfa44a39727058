// Measures the library against what it stands on, and prints one table. docs/performance.md tells
// how to read it.
#include <benchmark/benchmark.h>

#include <string_view>

#include "harness.h"
#include "rows.h"

int main(int argc, char** argv) {
  using namespace vk::tq::bench;
  if (argc > 1 && std::string_view(argv[1]) == "--peak-memory") return RunMemoryChild(argc, argv);
  AddCryptoRows();
  AddMemoryRows();
  AddJobRows();
  AddXmlRows();
  AddFolderRows();
  AddLockRows();
  AddSettingsRows();
  AddListRows();
  AddFtpRows();
  AddLogRows();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  return RunRows() ? 0 : 1;
}
