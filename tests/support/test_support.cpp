#include "support/test_support.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "platform/path.h"
#include "platform/text.h"

// Writes the coverage data; there only where the program is built for coverage.
extern "C" [[gnu::weak]] void __gcov_dump();

namespace vk::tq::testing {

namespace fs = std::filesystem;

TempFolder::TempFolder() {
  std::string name = (fs::temp_directory_path() / "tq.XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
  native_ = name;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  fs::remove_all(native_, ignored);
}

std::wstring TempFolder::path() const { return PathFromNative(native_); }

std::string ReadNative(const std::string& native) {
  std::ifstream in(native, std::ios::binary);
  if (!in) ADD_FAILURE() << "cannot read " << native;
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return std::move(bytes).str();
}

void WriteNative(const std::string& native, std::string_view bytes) {
  fs::create_directories(fs::path(native).parent_path());
  std::ofstream out(native, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out.flush()) ADD_FAILURE() << "cannot write " << native;
}

bool ExistsNative(const std::string& native) { return fs::exists(fs::symlink_status(native)); }

std::vector<std::string> ListNative(const std::string& native) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(native)) {
    names.push_back(entry.path().filename().string());
  }
  std::ranges::sort(names);
  return names;
}

std::string ToUtf8(std::wstring_view text) { return *EncodeText(kCodePageUtf8, text); }

std::wstring FromUtf8(std::string_view bytes) { return *DecodeText(kCodePageUtf8, bytes); }

std::string ToHex(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex += {kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return hex;
}

std::string FromHex(std::string_view hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
  }
  return bytes;
}

std::string LogLine::text() const {
  const std::string number_text = number != 0 ? " " + std::to_string(number) : "";
  const std::string second_text = second ? " [" + ToUtf8(*second) + "]" : "";
  const std::string code_text = code ? " = " + std::to_string(*code) : "";
  return std::to_string(level) + number_text + " " + ToUtf8(function) + " " + ToUtf8(message) +
         second_text + code_text;
}

struct LogRecorder::Store : LogSink, EventSink {
  void Write(const LogRecord& record) override {
    const std::lock_guard lock(mutex);
    lines.push_back({record.level, record.number, std::wstring(record.function),
                     std::wstring(record.message), std::optional<std::wstring>(record.second),
                     record.code});
  }
  void Write(unsigned long id, std::wstring_view message, bool is_shared) override {
    const std::lock_guard lock(mutex);
    events += ToUtf8(Format(L"event 0x%x %s%s\n", id, message, is_shared ? L" (shared)" : L""));
  }

  std::mutex mutex;
  std::vector<LogLine> lines;
  std::string events;
};

LogRecorder::LogRecorder() : store_(std::make_shared<Store>()) {
  InstallLogSink(store_);
  InstallEventSink(store_);
}

LogRecorder::~LogRecorder() {
  InstallLogSink(nullptr);
  InstallEventSink(nullptr);
}

std::vector<LogLine> LogRecorder::lines(int lowest_level) const {
  const std::lock_guard lock(store_->mutex);
  std::vector<LogLine> kept = store_->lines;
  std::erase_if(kept, [&](const LogLine& line) { return line.level < lowest_level; });
  return kept;
}

std::vector<std::string> LogRecorder::texts(int lowest_level) const {
  std::vector<std::string> texts;
  for (const LogLine& line : lines(lowest_level)) texts.push_back(line.text());
  return texts;
}

std::string LogRecorder::text() const {
  std::string text;
  for (const std::string& line : texts()) text += line + "\n";
  const std::lock_guard lock(store_->mutex);
  return text + store_->events;
}

void LogRecorder::Clear() {
  const std::lock_guard lock(store_->mutex);
  store_->lines.clear();
  store_->events.clear();
}

ProductTest::ProductTest() {
  const std::pair<const char*, std::string> kEnvironment[] = {
      {"TQ_COMMON_APPDATA", native("common")}, {"TQ_APPDATA", native("user")},
      {"TQ_VOLUMES", native("volumes")},       {"TQ_REGISTRY", native("registry.ini")},
      {"TQ_ANSI_CODEPAGE", "65001"},
  };
  for (const auto& [name, value] : kEnvironment) setenv(name, value.c_str(), 1);
  fs::create_directories(product_native("config"));
}

std::string ProductTest::product_native(std::string_view name) const {
  std::string native = temp_.native("common/ORV-INC/Velkorandia/Tessaloquin");
  if (!name.empty()) native.append("/").append(name);
  return native;
}

std::wstring ProductTest::product_path(std::wstring_view name) const {
  return PathFromNative(product_native(ToUtf8(name)));
}

void ProductTest::Tell(const std::string& result) {
  std::wstring lines = FromUtf8(log_.text());
  ReplaceAll(lines, temp_.path(), L"~");
  told_ += ToUtf8(lines) + "-> " + result + "\n";
  log_.Clear();
}

std::string ProductTest::Recorded(const std::string& file) {
  const std::string all = ReadNative(TQ_TEST_DATA "/" + file) + "== ";
  const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
  const std::string title = std::string("== ") + test.name() + "\n";
  const std::size_t start = all.find(title) + title.size();
  return all.substr(start, all.find("== ", start) - start);
}

static void SetEnvironment(const std::string& name, const char* value) {
  value != nullptr ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
}

ScopedEnvironment::ScopedEnvironment(const char* name, const char* value) : name_(name) {
  if (const char* old = getenv(name)) old_ = old;
  SetEnvironment(name_, value);
}

ScopedEnvironment::~ScopedEnvironment() { SetEnvironment(name_, old_ ? old_->c_str() : nullptr); }

bool HasOwnProcess() {
  const ::testing::UnitTest& program = *::testing::UnitTest::GetInstance();
  if (program.test_to_run_count() == 1) return true;
  const ::testing::TestInfo& test = *program.current_test_info();
  const std::string name = std::string(test.test_suite_name()) + "." + test.name();
  ChildProcess child([&] {
    execl("/proc/self/exe", "test", ("--gtest_filter=" + name).c_str(), nullptr);
    return 98;
  });
  EXPECT_EQ(0, child.Wait()) << name << " in a process of its own";
  return false;
}

Gate::Gate() : event_(eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE)) {}

void Gate::Open() { eventfd_write(event_.get(), 1); }

bool Gate::Wait(int milliseconds) {
  pollfd wait{event_.get(), POLLIN, 0};
  eventfd_t count = 0;
  return poll(&wait, 1, milliseconds) == 1 && eventfd_read(event_.get(), &count) == 0;
}

ChildProcess::ChildProcess(const std::function<int()>& work) : pid_(fork()) {
  if (pid_ < 0) throw std::runtime_error("no child process");
  if (pid_ == 0) {
    int code = 99;
    try {
      code = work();
    } catch (...) {
    }
    const rlimit all{RLIM_INFINITY, RLIM_INFINITY};  // a small limit would cut the coverage data
    if (__gcov_dump != nullptr && setrlimit(RLIMIT_FSIZE, &all) == 0) __gcov_dump();
    _exit(code);
  }
}

ChildProcess::~ChildProcess() {
  if (!result_) Kill();
  Wait();
}

void ChildProcess::Kill() { kill(pid_, SIGKILL); }

int ChildProcess::Wait() {
  if (!result_) {
    int status = 0;
    RetryInterrupted([&] { return waitpid(pid_, &status, 0); });
    result_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  return *result_;
}

}  // namespace vk::tq::testing
