#include "demo.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "foundation/util.h"

namespace demo {

namespace fs = std::filesystem;

std::string Narrow(std::wstring_view text) {
  std::string bytes(4 * text.size() + 1, '\0');
  const std::size_t size = std::wcstombs(bytes.data(), std::wstring(text).c_str(), bytes.size());
  bytes.resize(size == static_cast<std::size_t>(-1) ? 0 : size);
  return bytes;
}

std::wstring Wide(const std::string& bytes) {
  return vk::tq::CUtil::ConvertToUnicode(65001, bytes.c_str());
}

void Chapter(std::string_view title) {
  const bool is_terminal = isatty(STDOUT_FILENO) == 1;
  std::printf("\n%s%.*s%s\n", is_terminal ? "\033[1m" : "", static_cast<int>(title.size()),
              title.data(), is_terminal ? "\033[0m" : "");
}

void Say(std::string_view text) {
  std::printf("  %.*s\n", static_cast<int>(text.size()), text.data());
}

void Show(std::string_view what, std::string_view text) {
  std::printf("  %.*s\n", static_cast<int>(what.size()), what.data());
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    if (line.ends_with('\r')) line.pop_back();
    std::printf("    | %s\n", line.c_str());
  }
}

void Expect(bool is_true, std::string_view what) {
  if (is_true) return;
  std::printf("\n  FAILED: %.*s\n", static_cast<int>(what.size()), what.data());
  std::exit(1);
}

namespace {

// exit() runs no destructors of automatic objects, so the folder is also removed from here.
std::string& FolderToRemove() {
  static std::string folder;
  return folder;
}

void RemoveFolder() {
  std::error_code ignored;
  if (!FolderToRemove().empty()) fs::remove_all(FolderToRemove(), ignored);
  FolderToRemove().clear();
}

}  // namespace

Product::Product() {
  std::string folder = (fs::temp_directory_path() / "tq-demo.XXXXXX").string();
  Expect(mkdtemp(folder.data()) != nullptr, "a temporary folder");
  root_ = FolderToRemove() = folder;
  std::atexit(RemoveFolder);
  setenv("TQ_COMMON_APPDATA", native("common").c_str(), 1);
  setenv("TQ_APPDATA", native("user").c_str(), 1);
  setenv("TQ_VOLUMES", native("volumes").c_str(), 1);
  setenv("TQ_REGISTRY", native("registry.ini").c_str(), 1);
  setenv("TQ_ANSI_CODEPAGE", "65001", 1);
  fs::create_directories(file("config"));
  std::ofstream(file("config/data.dat")) << "0a1b2c3d4e5f60718293a4b5c6d7e8f9";
}

Product::~Product() { RemoveFolder(); }

std::string Product::native(std::string_view name) const { return root_ + "/" + std::string(name); }

std::wstring Product::path(std::string_view name) const { return Wide(native(name)); }

std::string Product::file(std::string_view name) const {
  return native("common/ORV-INC/Velkorandia/Tessaloquin/" + std::string(name));
}

std::string Product::Listing(std::string_view folder) const {
  std::vector<std::string> rows;
  for (const auto& entry : fs::directory_iterator(native(folder))) {
    char size[24];
    std::snprintf(size, sizeof size, "%6ju  ", static_cast<std::uintmax_t>(entry.file_size()));
    rows.push_back(size + entry.path().filename().string() + "\n");
  }
  std::sort(rows.begin(), rows.end());
  std::string listing;
  for (const std::string& row : rows) listing += row;
  return listing.empty() ? "(empty)" : listing;
}

struct LogStage::Store {
  std::mutex mutex;
  std::vector<std::string> lines;
  std::vector<std::wstring> events;
};

LogStage::LogStage() : store_(std::make_shared<Store>()) {
  struct Lines : vk::tq::LogSink {
    explicit Lines(std::shared_ptr<Store> to) : store(std::move(to)) {}
    void Write(const vk::tq::LogRecord& record) override {
      std::ostringstream line;
      line << "level " << record.level << "  " << record.number << "  " << Narrow(record.function)
           << "  " << Narrow(record.message);
      if (record.second) line << "  [" << Narrow(*record.second) << "]";
      if (record.code) line << "  code " << *record.code;
      const std::lock_guard lock(store->mutex);
      store->lines.push_back(line.str() + "\n");
    }
    std::shared_ptr<Store> store;
  };
  struct Events : vk::tq::EventSink {
    explicit Events(std::shared_ptr<Store> to) : store(std::move(to)) {}
    void Write(unsigned long, std::wstring_view message, bool) override {
      const std::lock_guard lock(store->mutex);
      store->events.emplace_back(message);
    }
    std::shared_ptr<Store> store;
  };
  vk::tq::InstallLogSink(std::make_shared<Lines>(store_), 2);
  vk::tq::InstallEventSink(std::make_shared<Events>(store_));
}

LogStage::~LogStage() {
  vk::tq::InstallLogSink(nullptr);
  vk::tq::InstallEventSink(nullptr);
}

void LogStage::Show() { ShowLast(static_cast<std::size_t>(-1)); }

void LogStage::ShowLast(std::size_t count) {
  const std::lock_guard lock(store_->mutex);
  std::vector<std::string>& lines = store_->lines;
  const std::size_t left_out = lines.size() - std::min(count, lines.size());
  std::string text;
  if (left_out > 0) text.append("(").append(std::to_string(left_out)).append(" lines before)\n");
  for (std::size_t i = left_out; i < lines.size(); ++i) text += lines[i];
  if (!text.empty()) demo::Show("log:", text);
  lines.clear();
}

void LogStage::ShowOnly(std::string_view text) {
  {
    const std::lock_guard lock(store_->mutex);
    std::erase_if(store_->lines,
                  [&](const std::string& line) { return line.find(text) == std::string::npos; });
  }
  Show();
}

std::vector<std::wstring> LogStage::events() const {
  const std::lock_guard lock(store_->mutex);
  return store_->events;
}

std::string RunTool(const std::vector<std::string>& arguments) {
  int ends[2];
  Expect(pipe(ends) == 0, "a pipe to a second process");
  std::vector<char*> argv;
  std::string program = TQCTL;
  argv.push_back(program.data());
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.data()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, ends[0]);
  std::fflush(stdout);
  pid_t child = 0;
  const int error = posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  Expect(error == 0, "a second process");

  std::string output;
  char buffer[4096];
  for (ssize_t got = 0; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
    output.append(buffer, static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  Expect(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the second process ends well");
  return output;
}

}  // namespace demo
