#include "platform/log_output.h"

#include <fcntl.h>
#include <spdlog/details/log_msg.h>
#include <spdlog/formatter.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/sink.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <new>
#include <string>

#include "platform/error.h"
#include "platform/path.h"
#include "platform/posix/native.h"
#include "platform/posix/number.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

constexpr int kDefaultLevel = 2;

// One line: time (UTC), process and thread, then the text. It asks for the time zone of nobody and
// keeps nothing between two lines, so that it works in a child of a process with many threads.
class LineFormatter final : public spdlog::formatter {
 public:
  void format(const spdlog::details::log_msg& message, spdlog::memory_buf_t& line) override {
    using std::chrono::floor;
    const auto now = floor<std::chrono::milliseconds>(message.time);
    const auto day = floor<std::chrono::days>(now);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss time(now - day);
    fmt::format_to(std::back_inserter(line), "{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z {}:{} ",
                   static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                   static_cast<unsigned>(date.day()), time.hours().count(), time.minutes().count(),
                   time.seconds().count(), time.subseconds().count(), getpid(), gettid());
    line.append(message.payload);
    line.push_back('\n');
  }

  std::unique_ptr<spdlog::formatter> clone() const override {
    return std::make_unique<LineFormatter>();
  }
};

// Appends lines to a file that other processes append to as well: each line is one write to a file
// opened for appending, which the kernel does not mix with another.
//
// The file is opened for each line. So a log that was moved away or removed begins anew, and no
// descriptor is left that the program could close, or give to another file, behind the back of the
// log. Nor is there a lock that a child could inherit in a locked state.
class AppendingSink final : public spdlog::sinks::sink {
 public:
  explicit AppendingSink(std::string path) : path_(std::move(path)) {}

  void log(const spdlog::details::log_msg& message) override {
    spdlog::memory_buf_t line;
    LineFormatter().format(message, line);
    const FileDescriptor file = OpenLog(line.size());
    if (file) RetryInterrupted([&] { return write(file.get(), line.data(), line.size()); });
  }
  void flush() override {}
  void set_pattern(const std::string&) override {}
  void set_formatter(std::unique_ptr<spdlog::formatter>) override {}

 private:
  // A link in the place of the file is not followed, be it symbolic or hard, and a pipe is not
  // waited for: whoever may write to the folder could have planted them. A line that the limit of
  // file sizes forbids is none.
  FileDescriptor OpenLog(std::size_t line_size) const {
    constexpr int kFlags =
        O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;
    FileDescriptor file(RetryInterrupted([&] { return open(path_.c_str(), kFlags, 0640); }));
    struct stat status {};
    const bool is_fit =
        file && fstat(file.get(), &status) == 0 &&
        (S_ISCHR(status.st_mode) ||
         (S_ISREG(status.st_mode) && status.st_nlink <= 1 &&
          IsWithinSizeLimit(static_cast<std::uint64_t>(status.st_size) + line_size)));
    return is_fit ? std::move(file) : FileDescriptor();
  }

  std::string path_;
};

// Null without a log file. It is never destroyed: other static objects may still log at the end.
spdlog::logger* ProgramLog() {
  static spdlog::logger* const logger = [] {
    const auto path = EnvironmentOverride("TQ_LOG_FILE");
    if (!path) return static_cast<spdlog::logger*>(nullptr);
    // The program may change its folder later.
    auto sink = std::make_shared<AppendingSink>(std::filesystem::absolute(*path).string());
    auto made = std::make_unique<spdlog::logger>("vk.tq.commonlib", std::move(sink));
    made->set_level(spdlog::level::trace);
    made->set_error_handler([](const std::string&) {});
    return made.release();
  }();
  return logger;
}

spdlog::level::level_enum LevelOf(int level) {
  return static_cast<spdlog::level::level_enum>(
      std::clamp<int>(level, spdlog::level::trace, spdlog::level::critical));
}

// What moves a terminal's cursor, or does more: the control characters of ASCII and of U+0080 to
// U+009F, which hold a command introducer as well, and the separators of lines and paragraphs.
bool IsControl(wchar_t c) {
  return (c < 0x20 && c != L'\t') || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
}

// UTF-8 on one line. Whoever reads the log on a terminal is not to be steered by what it holds.
std::string OneLine(std::wstring_view text) {
  std::wstring line;
  line.reserve(text.size());
  for (const wchar_t c : text) {
    if (c == L'\n') {
      line += L"\\n";
    } else if (c == L'\r') {
      line += L"\\r";
    } else {
      line += IsControl(c) ? L'?' : c;
    }
  }
  return EncodeText(kCodePageUtf8, line).value_or(std::string());
}

int SyslogPriority(unsigned long event_id) {
  switch (event_id >> 30 & 3) {
    case 3:
      return LOG_ERR;
    case 2:
      return LOG_WARNING;
    default:
      return LOG_INFO;
  }
}

}  // namespace

int ProgramLogLevel() noexcept try {
  static const int level = [] {
    const std::string text = EnvironmentOverride("TQ_LOG_LEVEL").value_or(std::string());
    return WholeNumber<int>(text).value_or(kDefaultLevel);
  }();
  return level;
} catch (const std::bad_alloc&) {
  return kDefaultLevel;
}

bool HasProgramLog() noexcept {
  try {
    return ProgramLog() != nullptr;
  } catch (...) {
    return false;
  }
}

void AppendProgramLog(int level, std::wstring_view line) noexcept {
  const LastErrorKeeper keeper;
  try {
    if (spdlog::logger* const log = ProgramLog()) {
      log->log(LevelOf(level), "{} {}", level, OneLine(line));
    }
  } catch (...) {
    // A log that fails must not disturb what it reports.
  }
}

void WriteSystemEvent(unsigned long event_id, std::wstring_view text) noexcept {
  const LastErrorKeeper keeper;
  try {
    syslog(SyslogPriority(event_id), "%08lX %s", event_id, OneLine(text).c_str());
  } catch (...) {
    // As above.
  }
}

}  // namespace vk::tq
