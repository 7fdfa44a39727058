/// Where log lines and events go when no sink of a program's own is installed.
#pragma once

#include <string_view>

namespace vk::tq {

/// The lowest level that the program log keeps: TQ_LOG_LEVEL, else 2. Read once.
int ProgramLogLevel() noexcept;

/// Whether the program log has a file (TQ_LOG_FILE). Read once.
bool HasProgramLog() noexcept;

/// Appends one line, without its line break, to the program log, with a time stamp and the process
/// and thread in front of it. Line breaks in the text are written as "\n" so that one call is one
/// line, and other control characters except the tab as "?": part of a text may come from the
/// network. Several processes may append to one file. Failures are ignored.
void AppendProgramLog(int level, std::wstring_view line) noexcept;

/// Hands one event to the system: an error, a warning or information by the top two bits of its id.
/// Its text is written as a line of the program log is. Failures are ignored.
void WriteSystemEvent(unsigned long event_id, std::wstring_view text) noexcept;

}  // namespace vk::tq
