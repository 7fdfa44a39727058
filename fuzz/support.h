// What the fuzz targets share. A target is one function, Check: it gives an input to the library and
// states what must hold afterwards.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "foundation/log.h"
#include "platform/path.h"
#include "platform/posix/mutex_set.h"
#include "platform/text.h"

namespace vk::tq::fuzzing {

// Ends the run when something does not hold; the fuzzer keeps the input.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// An input is taken apart from its front: a mode, some lines, and the rest, which is the file or the
// answer. So a corpus can be read and written with an editor.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  // The first character, taken as a digit of the base 64 from '0' on; 0 when there is none.
  unsigned Mode() {
    if (rest_.empty()) return 0;
    const auto mode = static_cast<unsigned char>(rest_.front());
    rest_.remove_prefix(1);
    return (mode - '0') & 63U;
  }

  std::string_view Line() {
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    const std::string_view line = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    return line;
  }

  bool IsEmpty() const { return rest_.empty(); }
  std::string_view Rest() const { return rest_; }

 private:
  std::string_view rest_;
};

inline std::wstring Wide(std::string_view bytes) { return *DecodeText(kCodePageUtf8, bytes); }
inline std::string Narrow(std::wstring_view text) { return *EncodeText(kCodePageUtf8, text); }
inline std::wstring UpToNul(std::wstring_view text) {
  return std::wstring(text.substr(0, text.find(L'\0')));
}

// A place of its own for the process: all folders of the library lie in memory, the ANSI code page is
// UTF-8, log lines and events go nowhere, and no other process has the same mutexes.
class Sandbox {
 public:
  Sandbox() {
    namespace fs = std::filesystem;
    std::string name = fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path().string();
    name += "/tq.fuzz.XXXXXX";
    Require(mkdtemp(name.data()) != nullptr, "a folder can be made");
    root_ = name;
    const auto set = [&](const char* variable, const char* tail) {
      fs::create_directories(root_ + tail);
      setenv(variable, (root_ + tail).c_str(), 1);
    };
    set("TQ_COMMON_APPDATA", "/common");
    set("TQ_APPDATA", "/user");
    set("TQ_VOLUMES", "/volumes");
    set("TMPDIR", "/temporary");
    setenv("TQ_REGISTRY", (root_ + "/registry.ini").c_str(), 1);
    setenv("TQ_ANSI_CODEPAGE", "65001", 1);
    fs::create_directories(Config());
    fs::create_directories(root_ + "/work");
    InstallLogSink(std::make_shared<SilentLog>());
    InstallEventSink(std::make_shared<SilentEvents>());
  }
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;
  ~Sandbox() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  std::string Native(std::string_view name) const { return root_ + "/work/" + std::string(name); }
  std::wstring Path(std::string_view name) const { return PathFromNative(Native(name)); }
  // The product's folder of settings.
  std::string Config(std::string_view name = {}) const {
    return root_ + "/common/ORV-INC/Velkorandia/Tessaloquin/config/" + std::string(name);
  }

  void Write(const std::string& native, std::string_view bytes) const {
    std::ofstream out(native, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    Require(!out.flush().fail(), "the input can be written");
  }

  // Nothing when there is no such file.
  std::optional<std::string> Read(const std::string& native) const {
    std::ifstream in(native, std::ios::binary);
    if (!in) return {};
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return std::move(bytes).str();
  }

 private:
  struct SilentLog : LogSink {
    void Write(const LogRecord& /*record*/) override {}
  };
  struct SilentEvents : EventSink {
    void Write(unsigned long /*id*/, std::wstring_view /*message*/, bool /*shared*/) override {}
  };

  std::string root_;
  ScopedMutexNamespace mutexes_;
};

// The one of the process; a target that touches the system asks for it first.
inline const Sandbox& TheSandbox() {
  static const Sandbox sandbox;
  return sandbox;
}

}  // namespace vk::tq::fuzzing

// The name that both drivers, the fuzzer and replay.cpp, call.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#define TQ_FUZZ_TARGET(input)                                                         \
  static void Check(vk::tq::fuzzing::Input input);                                    \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) { \
    Check(vk::tq::fuzzing::Input(data, size));                                        \
    return 0;                                                                         \
  }                                                                                   \
  static void Check([[maybe_unused]] vk::tq::fuzzing::Input input)
