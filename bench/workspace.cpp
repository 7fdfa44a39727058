#include "workspace.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace vk::tq::bench {

Workspace::Workspace() {
  setenv("TQ_COMMON_APPDATA", temp_.native("common").c_str(), 1);
  setenv("TQ_APPDATA", temp_.native("user").c_str(), 1);
  setenv("TQ_VOLUMES", temp_.native("volumes").c_str(), 1);
  setenv("TQ_ANSI_CODEPAGE", "65001", 1);
  std::filesystem::create_directories(product("config"));
  testing::WriteNative(key_file(), "0123456789ABCDEF0123456789abcdef");
}

std::string Workspace::product(std::string_view name) const {
  return temp_.native("common/ORV-INC/Velkorandia/Tessaloquin/" + std::string(name));
}

std::string Workspace::key_file() const { return product("config/data.dat"); }

struct NullSink::Sink : LogSink {
  void Write(const LogRecord&) override { ++lines; }
  int lines = 0;
};

NullSink::NullSink(int lowest_level) : sink_(std::make_shared<Sink>()) {
  InstallLogSink(sink_, lowest_level);
}

NullSink::~NullSink() { InstallLogSink(nullptr); }

int NullSink::lines() const { return sink_->lines; }

int RunProgram(const std::vector<std::string>& arguments) {
  std::vector<char*> pointers;
  for (const std::string& argument : arguments) {
    pointers.push_back(const_cast<char*>(argument.c_str()));
  }
  pointers.push_back(nullptr);
  pid_t child = 0;
  if (posix_spawnp(&child, pointers[0], nullptr, nullptr, pointers.data(), environ) != 0) return -1;
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace vk::tq::bench
