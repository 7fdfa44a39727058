// Where a row works: folders of its own, a key file, mutexes that nobody else knows.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "foundation/log.h"
#include "platform/posix/mutex_set.h"
#include "support/test_support.h"

namespace vk::tq::bench {

using testing::TempFolder;

// While it is there, every folder of the library lies in a temporary folder.
class Workspace {
 public:
  Workspace();
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;

  // A file or folder of the row's own.
  std::string native(std::string_view name) const { return temp_.native(name); }
  std::wstring path(std::wstring_view name) const { return temp_.path(name); }
  std::string key_file() const;
  std::string product(std::string_view name) const;

 private:
  ScopedMutexNamespace mutexes_;
  TempFolder temp_;
};

// Installs a sink that drops every line, from a level on, for its lifetime.
class NullSink {
 public:
  explicit NullSink(int lowest_level);
  NullSink(const NullSink&) = delete;
  NullSink& operator=(const NullSink&) = delete;
  ~NullSink();
  // The lines that came so far.
  int lines() const;

 private:
  struct Sink;
  std::shared_ptr<Sink> sink_;
};

// Starts a program and waits for it; its exit code, or -1 when it cannot be started.
int RunProgram(const std::vector<std::string>& arguments);

}  // namespace vk::tq::bench
