#include <sys/utsname.h>

#include <atomic>
#include <string_view>

#include "platform/system_info.h"

namespace vk::tq {

Machine::~Machine() = default;

namespace {

Machine this_machine;
std::atomic<Machine*> current_machine = &this_machine;

struct Architecture {
  std::string_view prefix;  // of the kernel's name for it
  std::uint16_t number;
};

constexpr Architecture kArchitectures[] = {
    {"x86_64", kArchitectureX64}, {"aarch64", 12}, {"arm", 5}, {"i", 0}};

}  // namespace

bool Machine::Version(SystemVersion& version) { return GetSystemVersion(version); }

std::uint16_t Machine::ProcessorArchitecture() {
  utsname names{};
  uname(&names);
  for (const Architecture& architecture : kArchitectures) {
    if (std::string_view(names.machine).starts_with(architecture.prefix)) {
      return architecture.number;
    }
  }
  return 0xFFFF;
}

Machine& CurrentMachine() noexcept { return *current_machine.load(); }

ScopedMachine::ScopedMachine(Machine& machine) noexcept
    : old_(current_machine.exchange(&machine)) {}

ScopedMachine::~ScopedMachine() { current_machine.store(old_); }

}  // namespace vk::tq
