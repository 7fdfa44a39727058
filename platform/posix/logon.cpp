#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "platform/posix/login_session.h"
#include "platform/posix/native.h"
#include "platform/posix/system_file.h"
#include "platform/system_info.h"

namespace vk::tq {

bool ToLocalTime(std::int64_t time, LocalTime& local) {
  const time_t seconds = time;
  tm parts{};
  if (localtime_r(&seconds, &parts) == nullptr) return FailWithErrno();
  local = {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
           parts.tm_hour,        parts.tm_min,     parts.tm_sec};
  return true;
}

bool Machine::LogonTime(LocalTime& time, LogonStep& failed) {
  const auto groups = ReadSystemFile("/proc/self/cgroup");
  auto start = groups ? RecordedLogin(*groups, "/run/systemd") : std::nullopt;
  if (!start) {
    failed = LogonStep::kToken;
    const pid_t leader = getsid(0);
    if (leader < 0) return FailWithErrno();
    // The leader of the session lives outside of this container.
    if (leader == 0) return Fail(kErrorNoSuchLogonSession);
    failed = LogonStep::kTokenInformation;
    const auto process = ReadSystemFile("/proc/" + std::to_string(leader) + "/stat");
    if (!process) return false;
    failed = LogonStep::kSessionData;
    const auto kernel = ReadSystemFile("/proc/stat");
    if (!kernel) return false;
    start = ProcessStart(*process, *kernel, sysconf(_SC_CLK_TCK));
    if (!start) return Fail(kErrorInvalidData);
  }
  failed = LogonStep::kSessionData;
  return ToLocalTime(*start, time);
}

}  // namespace vk::tq
