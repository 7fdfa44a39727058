// What the tests share: temporary product folders, recorders for log lines and events, child
// processes.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/log.h"
#include "platform/posix/mutex_set.h"
#include "support/loopback.h"

namespace vk::tq::testing {

// A folder that is there as long as the object, for nobody else.
class TempFolder {
 public:
  TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder();

  const std::string& native() const { return native_; }
  std::string native(std::string_view name) const { return native_ + "/" + std::string(name); }
  // In the library's form, for example \tmp\tq.x1y2.
  std::wstring path() const;
  std::wstring path(std::wstring_view name) const { return path() + L"\\" + std::wstring(name); }

 private:
  std::string native_;
};

std::string ReadNative(const std::string& native);
void WriteNative(const std::string& native, std::string_view bytes);
bool ExistsNative(const std::string& native);
// The names in a folder, sorted.
std::vector<std::string> ListNative(const std::string& native);

std::string ToUtf8(std::wstring_view text);
std::wstring FromUtf8(std::string_view bytes);
std::string ToHex(std::string_view bytes);
std::string FromHex(std::string_view hex);

struct LogLine {
  int level = 0;
  int number = 0;
  std::wstring function;
  std::wstring message;
  std::optional<std::wstring> second = {};
  std::optional<int> code = {};

  // "level number function message [second] = code", without what is none.
  std::string text() const;
};

// Records every log line and event while it is installed.
class LogRecorder {
 public:
  LogRecorder();
  LogRecorder(const LogRecorder&) = delete;
  LogRecorder& operator=(const LogRecorder&) = delete;
  ~LogRecorder();

  // The lines of at least this level.
  std::vector<LogLine> lines(int lowest_level = 0) const;
  std::vector<std::string> texts(int lowest_level = 0) const;
  // All lines, and then all events, each with a line end: "event 0xid message (shared)".
  std::string text() const;
  void Clear();

 private:
  struct Store;
  std::shared_ptr<Store> store_;
};

// A test with a product folder of its own: every folder of the library lies in a temporary folder,
// log lines and events are recorded, the ANSI code page is UTF-8, and no other test shares its
// mutexes.
class ProductTest : public ::testing::Test {
 protected:
  ProductTest();

  // <common application data>\ORV-INC\Velkorandia\Tessaloquin, native.
  std::string product_native(std::string_view name = {}) const;
  std::wstring product_path(std::wstring_view name = {}) const;
  void WriteKeyFile(std::string_view contents = "0123456789ABCDEF0123456789abcdef") {
    WriteNative(product_native("config/data.dat"), contents);
  }
  void RemoveKeyFile() { std::filesystem::remove(product_native("config/data.dat")); }

  // The test's own files.
  std::string native(std::string_view name) const { return temp_.native(name); }
  std::wstring path(std::wstring_view name) const { return temp_.path(name); }

  // Adds an operation's lines, events and result to what the test tells; "~" is the test's folder.
  void Tell(const std::string& result);
  void Tell(int result) { Tell(std::to_string(result)); }
  // What it has to tell: the section "== Test" of a file in tests/data.
  static std::string Recorded(const std::string& file);

  ScopedMutexNamespace mutexes_;
  TempFolder temp_;
  LogRecorder log_;
  std::string told_;
};

// Sets an environment variable for a scope; null unsets it.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const char* value);
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
  ~ScopedEnvironment();

 private:
  std::string name_;
  std::optional<std::string> old_;
};

// For what a process settles once and for all. False when this process runs other tests as well: the
// present test has then been run in a process of its own, and if it failed there, it fails here.
bool HasOwnProcess();

// A one-way signal between processes: any number of Open calls, each ends one Wait.
class Gate {
 public:
  Gate();
  void Open();
  // False when nothing came in time.
  bool Wait(int milliseconds = 20000);

 private:
  FileDescriptor event_;
};

// A record that this process and those that it forks share.
template <class T>
struct Shared : std::shared_ptr<T> {
  Shared()
      : std::shared_ptr<T>(new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE,
                                     MAP_SHARED | MAP_ANONYMOUS, -1, 0)) T{},
                           [](T* record) { munmap(record, sizeof(T)); }) {}
};

// A real process that runs a function; what the function gives is its exit code. It is killed when
// the object goes.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<int()>& work);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  void Kill();
  // The exit code, or minus the signal that ended it.
  int Wait();

 private:
  pid_t pid_;
  std::optional<int> result_;
};

}  // namespace vk::tq::testing
