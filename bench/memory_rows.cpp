// Peak memory beyond the text itself, measured by the kernel in a process of its own.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "harness.h"
#include "platform/path.h"
#include "rows.h"
#include "storage/crypto.h"
#include "support/test_support.h"
#include "workspace.h"

namespace vk::tq::bench {
namespace {

constexpr std::size_t kSize = std::size_t{256} << 20;
constexpr double kTwoChunks = 2 << 20;
constexpr double kMost = 4 << 20;

// The largest resident memory so far, in bytes.
double PeakMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return 1024 * std::stod(line.substr(6));
  }
  throw std::runtime_error("the kernel does not tell the peak");
}

// Makes the peak what is resident now.
void ResetPeak() { std::ofstream("/proc/self/clear_refs") << 5; }

void RunOnce(const std::string& work, const std::wstring& text, const std::wstring& folder,
             double& text_bytes) {
  CCrypto crypto;
  int result = 1;
  if (work == "writer") {
    result = crypto.CryptingStringWriter(text, folder + L"\\text");
  } else if (work == "reader") {
    std::wstring read;
    result = crypto.CryptingStringReader(folder + L"\\text", read);
    text_bytes = static_cast<double>(read.size() * sizeof(wchar_t));
  } else {
    result = crypto.CryptFileMake(folder + L"\\text", folder + L"\\file");
  }
  Require(result == 0, "the operation fails");
}

double MeasureInChild(const Workspace& workspace, const std::string& work) {
  const std::string command = "/proc/self/exe";
  int ends[2];
  Require(pipe(ends) == 0, "no pipe");
  const std::string folder = workspace.native("");
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    execl(command.c_str(), "tq_bench", "--peak-memory", work.c_str(), folder.c_str(), nullptr);
    _exit(127);
  }
  close(ends[1]);
  std::string text(64, '\0');
  const ssize_t got = read(ends[0], text.data(), text.size());
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  Require(got > 0 && status == 0, "the child fails");
  return std::stod(text);
}

}  // namespace

int RunMemoryChild(int argc, char** argv) {
  if (argc != 4) return 2;
  const std::string work = argv[2];
  const std::wstring folder = PathFromNative(argv[3]);
  double text_bytes = 0;
  // Once with little, so that what the libraries themselves load does not count.
  testing::WriteNative(std::string(argv[3]) + "/small/x", "");
  const std::wstring small = folder + L"\\small";
  CCrypto().CryptingStringWriter(L"x", small + L"\\text");
  RunOnce(work, L"x", small, text_bytes);
  const std::wstring text = work == "writer" ? SampleText(true, kSize) : std::wstring();
  text_bytes = 0;
  ResetPeak();
  const double before = PeakMemory();
  RunOnce(work, text, folder, text_bytes);
  std::printf("%.0f\n", PeakMemory() - before - text_bytes);
  return 0;
}

void AddMemoryRows() {
  for (const std::string work : {"writer", "reader", "file"}) {
    const std::string name = work == "writer"   ? "CryptingStringWriter"
                             : work == "reader" ? "CryptingStringReader"
                                                : "CryptFileMake";
    AddLimitRow({"memory", "peak memory of " + name + " at 256 MiB", "two chunk buffers", {}, 1},
                {Unit::kBytes, kMost}, [=] {
                  const Workspace workspace;
                  if (work != "writer") MeasureInChild(workspace, "writer");
                  return Figures{MeasureInChild(workspace, work), kTwoChunks};
                });
  }
}

}  // namespace vk::tq::bench
