#include "tqctl/terminal.h"

#include <langinfo.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>
#include <wchar.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <stop_token>

#include "tqctl/failure.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

using vk::tq::WipeOnExit;

volatile sig_atomic_t caught_signal = 0;

// Keeps a terminal from showing what is typed. A signal that would end or stop the process
// meanwhile is sent on to it once the terminal shows it again.
class HiddenInput {
 public:
  HiddenInput() {
    caught_signal = 0;
    struct sigaction action = {};
    action.sa_handler = [](int number) { caught_signal = number; };
    for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &action, &old_[i]);
    tcgetattr(STDIN_FILENO, &shown_);
    termios hidden = shown_;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
  }
  HiddenInput(const HiddenInput&) = delete;
  HiddenInput& operator=(const HiddenInput&) = delete;
  ~HiddenInput() {
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown_);
    std::fputc('\n', stderr);
    for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &old_[i], nullptr);
    if (caught_signal != 0) raise(caught_signal);
  }

 private:
  static constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};
  std::array<struct sigaction, kSignals.size()> old_ = {};
  termios shown_ = {};
};

// Byte for byte, without a buffer that would keep them. False without a line, or after a signal.
bool ReadLine(std::string& line) {
  for (;;) {
    char c = 0;
    const ssize_t got = read(STDIN_FILENO, &c, 1);
    if (got <= 0) return got == 0 && !line.empty();
    if (c == '\n') return true;
    line += c;
  }
}

std::uint64_t BytesCounted(Progress::Counted counted) {
  std::ifstream counts("/proc/self/io");
  const std::string_view wanted = counted == Progress::Counted::kRead ? "rchar:" : "wchar:";
  std::string name;
  for (std::uint64_t count = 0; counts >> name >> count;) {
    if (name == wanted) return count;
  }
  return 0;
}

}  // namespace

std::string LocaleEncoding() { return nl_langinfo(CODESET); }

std::size_t ColumnsOf(wchar_t character) {
  const int columns = ::wcwidth(character);
  return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

bool IsTerminal(Stream stream) {
  return isatty(stream == Stream::kOutput ? STDOUT_FILENO : STDERR_FILENO) == 1;
}

bool HasColour(Stream stream) {
  const char* const no_colour = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  return IsTerminal(stream) && (no_colour == nullptr || *no_colour == '\0') &&
         terminal != nullptr && terminal != std::string_view("dumb");
}

void ReadPassword(std::wstring_view prompt, Secret& password) {
  std::string line;
  line.reserve(4096);  // a longer one would leave a copy behind when it grows
  const WipeOnExit wipe(line);
  bool is_read = false;
  if (isatty(STDIN_FILENO) == 1) {
    std::fputs((Narrow(prompt) + ": ").c_str(), stderr);
    const HiddenInput hidden;
    is_read = ReadLine(line);
  } else {
    is_read = ReadLine(line);
  }
  if (!is_read) {
    throw Failure(L"No password was given.",
                  L"Type it when you are asked, or give it as the first line of standard input.");
  }
  auto text = Decoded(line);
  if (!text) {
    throw Failure(L"The password is no text in the locale's encoding.",
                  L"Set LC_ALL to a locale with the encoding of your terminal.");
  }
  password.text = *std::move(text);
}

namespace {

// Draws until it is told to stop.
void FollowProgress(const std::stop_token& stop, const std::string& label, std::uint64_t bytes,
                    Progress::Counted counted, std::uint64_t counted_before) {
  std::mutex mutex;
  std::unique_lock lock(mutex);
  std::condition_variable_any pause;
  bool is_drawn = false;
  const auto stopped = [&] { return stop.stop_requested(); };
  while (!pause.wait_for(lock, stop, std::chrono::milliseconds(200), stopped)) {
    const std::uint64_t done = std::min(BytesCounted(counted) - counted_before, bytes);
    const auto share = static_cast<double>(done) / static_cast<double>(bytes);
    constexpr int kLength = 40;
    const auto filled = static_cast<std::size_t>(kLength * share);
    const std::string bar = std::string(filled, '#') + std::string(kLength - filled, '.');
    std::fprintf(stderr, "\r%s [%s] %3.0f%%", label.c_str(), bar.c_str(), 100 * share);
    is_drawn = true;
  }
  if (is_drawn) std::fputs("\r\033[K", stderr);
}

}  // namespace

Progress::Progress(std::wstring_view label, std::uint64_t bytes, Counted counted) {
  if (bytes == 0 || !IsTerminal(Stream::kError)) return;
  thread_ = std::jthread(FollowProgress, Narrow(label), bytes, counted, BytesCounted(counted));
}

}  // namespace tqctl
