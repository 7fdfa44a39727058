#include "servers/ftp_server.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

namespace vk::tq::servers {

using namespace testing;

namespace {

constexpr const char* kProgram = "/usr/sbin/proftpd";
// SHA-256 crypt of the password.
constexpr const char* kPasswordHash = "$5$tqtqtqtq$awdvyizpKW5NSjywPZ6fOfmycCLvfVSYHqQUX9L5GH/";

}  // namespace

FtpServer::FtpServer() : server_([this](const Peer& control, int) { StartSession(control); }) {
  std::filesystem::create_directory(home());
  const std::string ids = std::to_string(getuid()) + ":" + std::to_string(getgid());
  WriteNative(folder_.native("accounts"),
              "tester:" + std::string(kPasswordHash) + ":" + ids + "::" + home() + ":/bin/sh\n");
  std::filesystem::permissions(folder_.native("accounts"), std::filesystem::perms::owner_read);
  WriteNative(folder_.native("proftpd.conf"),
              "Include " TQ_SERVERS "/proftpd.conf\nPort " + std::to_string(port()) + "\nUser " +
                  getpwuid(getuid())->pw_name + "\nGroup " + getgrgid(getgid())->gr_name +
                  "\nAuthUserFile " + folder_.native("accounts") + "\nSystemLog " +
                  folder_.native("system.log") + "\nExtendedLog " + folder_.native("dialogue.log") +
                  " ALL dialogue\n");
}

void FtpServer::StartSession(const Peer& control) {
  const std::string configuration = folder_.native("proftpd.conf");
  const std::lock_guard lock(mutex_);
  sessions_.emplace_back([&] {
    // Not the test's own environment, which it may be changing.
    char* const environment[] = {nullptr};
    dup2(control.get(), STDIN_FILENO);
    dup2(control.get(), STDOUT_FILENO);
    return execle(kProgram, kProgram, "-c", configuration.c_str(), nullptr, environment);
  });
}

std::vector<std::string> FtpServer::Dialogue() {
  const std::lock_guard lock(mutex_);
  for (ChildProcess& session : sessions_) session.Wait();
  sessions_.clear();
  std::vector<std::string> lines;
  std::istringstream log(ReadNative(folder_.native("dialogue.log")));
  for (std::string line; std::getline(log, line);) lines.push_back(line);
  return lines;
}

}  // namespace vk::tq::servers
