// Where Linux records when a login session began.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vk::tq {

// The start, in seconds since 1970 UTC, that the login manager's records below a folder hold for a
// process in these control groups (the text of /proc/<id>/cgroup). Nothing when the process belongs
// to no login.
std::optional<std::int64_t> RecordedLogin(std::string_view control_groups,
                                          const std::string& records);

// The start of a process by the texts of /proc/<id>/stat and /proc/stat. The kernel counts it from
// the boot, whose time it takes from the clock anew at each question: when the clock is set, the
// start of a running process moves by as much. A caller that compares it with an earlier answer
// then sees another login. What the login manager recorded stays.
std::optional<std::int64_t> ProcessStart(std::string_view process, std::string_view kernel,
                                         std::int64_t ticks_per_second);

}  // namespace vk::tq
