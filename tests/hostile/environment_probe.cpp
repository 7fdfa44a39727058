// Tells where the library would look; its exit code is 0 with the rights of another account.
#include <unistd.h>

#include <cstdio>

#include "platform/log_output.h"
#include "platform/path.h"
#include "platform/posix/native.h"

int main() {
  using namespace vk::tq;
  for (const int folder : {kFolderCommonAppData, kFolderAppData}) {
    std::printf("%s\n", PathToNative(SpecialFolder(folder).value_or(L"none")).c_str());
  }
  std::printf("%s\n", PathToNative(L"C:\\x").c_str());
  for (const char* name : {"TQ_REGISTRY", "TQ_ANSI_CODEPAGE", "TQ_LOG_FILE", "TQ_LOG_LEVEL"}) {
    std::printf("%s\n", EnvironmentOverride(name).value_or("none").c_str());
  }
  std::fflush(stdout);
  // Without the leak sanitizer's look at a process that nobody may trace.
  _exit(geteuid() != getuid() ? 0 : 77);
}
