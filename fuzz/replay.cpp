// Runs a fuzz target once over each file of a folder: the test of its corpus, with any compiler.
#include <algorithm>
#include <iterator>
#include <vector>

#include "fuzz/support.h"

int main(int count, char** arguments) {
  namespace fs = std::filesystem;
  std::vector<fs::path> files;
  for (const char* folder : std::vector<const char*>(arguments + 1, arguments + count)) {
    std::ranges::copy(fs::directory_iterator(folder), std::back_inserter(files));
  }
  std::ranges::sort(files);
  for (const fs::path& file : files) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    std::fprintf(stderr, "%s\n", file.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  return files.empty() ? 1 : 0;
}
