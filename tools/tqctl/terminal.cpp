#include "tqctl/terminal.h"

#include <langinfo.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/random.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>
#include <wchar.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stop_token>

#include "tqctl/failure.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

using vk::tq::WipeOnExit;

// Keeps a terminal from showing what is typed. A signal that comes meanwhile takes its effect once
// the terminal shows it again.
class HiddenInput {
 public:
  HiddenInput() {
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
  }

  bool Wait() const { return signals_.WaitForInput(); }

 private:
  SignalDelay signals_;
  termios shown_ = {};
};

// Byte for byte, without a buffer that would keep them. False without a line.
bool ReadLine(std::string& line) {
  for (char c = 0; read(STDIN_FILENO, &c, 1) == 1;) {
    if (c == '\n') return true;
    line += c;
  }
  return !line.empty();
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

struct SignalDelay::Signals {
  sigset_t old = {};
  int arrived = -1;  // readable as soon as one of them is held back
};

SignalDelay::SignalDelay() : signals_(std::make_unique<Signals>()) {
  sigset_t held_back;
  sigemptyset(&held_back);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP}) {
    sigaddset(&held_back, number);
  }
  pthread_sigmask(SIG_BLOCK, &held_back, &signals_->old);
  signals_->arrived = signalfd(-1, &held_back, SFD_CLOEXEC);
}

SignalDelay::~SignalDelay() {
  close(signals_->arrived);
  pthread_sigmask(SIG_SETMASK, &signals_->old, nullptr);
}

bool SignalDelay::WaitForInput() const {
  pollfd either[] = {{signals_->arrived, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
  poll(either, std::size(either), -1);
  return either[0].revents == 0;
}

void SignalDelay::Wait(std::chrono::seconds time) const {
  pollfd signal = {signals_->arrived, POLLIN, 0};
  poll(&signal, 1, static_cast<int>(std::chrono::milliseconds(time).count()));
}

void ReadPassword(std::wstring_view prompt, Secret& password) {
  std::string line;
  line.reserve(4096);  // a longer one would leave a copy behind when it grows
  const WipeOnExit wipe(line);
  bool is_read = false;
  if (isatty(STDIN_FILENO) == 1) {
    const HiddenInput hidden;  // first: what is typed before is dropped
    std::fputs((Narrow(prompt) + ": ").c_str(), stderr);
    is_read = hidden.Wait() && ReadLine(line);
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

std::string RandomCharacters(std::size_t count) {
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-";
  static_assert(kAlphabet.size() == 64);  // each is as probable as the others
  std::string characters(count, '\0');
  if (getrandom(characters.data(), count, 0) != static_cast<ssize_t>(count)) {
    throw Failure(L"The system gives no random bytes.", L"Try again later.");
  }
  for (char& c : characters) c = kAlphabet[static_cast<unsigned char>(c) % kAlphabet.size()];
  return characters;
}

std::error_code MakePrivateFile(const std::string& native_path, std::string_view contents) {
  const auto error = [] { return std::error_code(errno, std::generic_category()); };
  std::string unfinished = native_path + ".XXXXXX";
  const int file = mkstemp(unfinished.data());
  if (file < 0) return error();
  const auto size = static_cast<ssize_t>(contents.size());
  const bool is_written = write(file, contents.data(), contents.size()) == size && fsync(file) == 0;
  std::error_code result;
  if (!is_written || link(unfinished.c_str(), native_path.c_str()) != 0) result = error();
  unlink(unfinished.c_str());
  close(file);
  return result;
}

namespace {

std::string Bar(std::uint64_t done, std::uint64_t bytes) {
  constexpr std::size_t kLength = 40;
  const auto share = static_cast<double>(done) / static_cast<double>(bytes);
  const auto filled = static_cast<std::size_t>(static_cast<double>(kLength) * share);
  char percent[16];
  std::snprintf(percent, sizeof percent, "] %3.0f%%", 100 * share);
  return "[" + std::string(filled, '#') + std::string(kLength - filled, '.') + percent;
}

std::string Amount(std::uint64_t bytes) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f MiB", static_cast<double>(bytes) / (1 << 20));
  return text;
}

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
    std::fprintf(stderr, "\r%s %s", label.c_str(),
                 bytes == Progress::kUnknown ? Amount(done).c_str() : Bar(done, bytes).c_str());
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
