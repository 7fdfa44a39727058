// What the tool needs of the operating system beyond the library: the terminal, the kernel's counts
// of a process, random bytes. terminal.cpp is the one file that includes headers of the system for
// it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "platform/secure_memory.h"

namespace tqctl {

// The name of the locale's encoding, for example UTF-8.
std::string LocaleEncoding();

// The columns of one character: 2 for a wide one, 0 for one that combines, else 1.
std::size_t ColumnsOf(wchar_t character);

enum class Stream { kOutput, kError };

bool IsTerminal(Stream stream);

// Whether colours may be used: on a terminal that is not dumb, unless NO_COLOR is set to something.
bool HasColour(Stream stream);

// Holds back the signals by which people end or stop a program, for what must be put right before.
// One that came meanwhile takes its effect when the scope ends.
class SignalDelay {
 public:
  SignalDelay();
  SignalDelay(const SignalDelay&) = delete;
  SignalDelay& operator=(const SignalDelay&) = delete;
  ~SignalDelay();

  // Waits for standard input, at its end too; false when a signal comes first.
  bool WaitForInput() const;
  // The same for a time.
  void Wait(std::chrono::seconds time) const;

 private:
  struct Signals;
  const std::unique_ptr<Signals> signals_;
};

// A text that is wiped when it goes.
struct Secret {
  Secret() = default;
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  std::wstring text;
  const vk::tq::WipeOnExit<std::wstring> wipe{text};
};

// A password: asked for on a terminal, which does not show it, else the first line of standard
// input. Failure when there is none.
void ReadPassword(std::wstring_view prompt, Secret& password);

// Random letters and digits; Failure when the system has no random bytes.
std::string RandomCharacters(std::size_t count);

// Makes a file that its owner alone may use. It appears whole or not at all, and never in the place
// of another one: std::errc::file_exists.
std::error_code MakePrivateFile(const std::string& native_path, std::string_view contents);

// Shows on a terminal how far a long call of the library has come. Such a call tells nothing before
// its end, so the bar follows what the kernel counts: the bytes that this process has read from
// files, or written to them. The bar goes when the object does.
class Progress {
 public:
  enum class Counted { kRead, kWritten };

  // For a call whose bytes nobody knows before: the bytes so far are shown in place of a bar.
  static constexpr std::uint64_t kUnknown = ~std::uint64_t{0};

  // Nothing is shown when standard error is no terminal, or the call ends at once.
  Progress(std::wstring_view label, std::uint64_t bytes, Counted counted);

 private:
  std::jthread thread_;
};

}  // namespace tqctl
