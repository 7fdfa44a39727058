#include "support/ftp_server.h"

#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace vk::tq::testing {
namespace {

constexpr const char* kProgram = "/usr/sbin/proftpd";
// SHA-256 crypt of the password.
constexpr const char* kPasswordHash = "$5$tqtqtqtq$awdvyizpKW5NSjywPZ6fOfmycCLvfVSYHqQUX9L5GH/";

std::string UserName() { return getpwuid(getuid())->pw_name; }
std::string GroupName() { return getgrgid(getgid())->gr_name; }

}  // namespace

FtpServer::FtpServer() {
  std::filesystem::create_directory(home());
  WriteConfiguration();
  thread_ = std::thread([this] { Serve(); });
}

FtpServer::~FtpServer() {
  stop_.Raise();
  thread_.join();
  for (const pid_t session : sessions_) kill(session, SIGKILL);
  for (const pid_t session : sessions_) waitpid(session, nullptr, 0);
}

std::string FtpServer::home(std::string_view name) const {
  return folder_.native(name.empty() ? "home" : "home/" + std::string(name));
}

void FtpServer::WriteConfiguration() const {
  const std::string ids = std::to_string(getuid()) + ":" + std::to_string(getgid());
  WriteNative(folder_.native("accounts"),
              "tester:" + std::string(kPasswordHash) + ":" + ids + "::" + home() + ":/bin/sh\n");
  std::filesystem::permissions(folder_.native("accounts"), std::filesystem::perms::owner_read);
  std::ostringstream text;
  text << "ServerName test\nServerType inetd\nDefaultServer on\n"
       << "DefaultAddress 127.0.0.1\nPort " << port() << "\nUser " << UserName() << "\nGroup "
       << GroupName() << "\nAuthOrder mod_auth_file.c\nAuthPAM off\n"
       << "AuthUserFile " << folder_.native("accounts") << "\nRootLogin on\n"
       << "RequireValidShell off\nUseFtpUsers off\nUseReverseDNS off\nUseEncoding off\n"
       << "AllowOverwrite on\nDelayEngine off\nWtmpLog off\nScoreboardFile none\n"
       << "TransferLog none\nSystemLog " << folder_.native("system.log") << "\n"
       << "LogFormat dialogue \"%r -> %s %S\"\nExtendedLog " << folder_.native("dialogue.log")
       << " ALL dialogue\n";
  WriteNative(folder_.native("proftpd.conf"), text.str());
}

void FtpServer::Serve() {
  while (const Socket control = listener_.Accept(stop_)) StartSession(control.get());
}

void FtpServer::StartSession(int control) {
  const std::string configuration = folder_.native("proftpd.conf");
  const char* arguments[] = {kProgram, "-c", configuration.c_str(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, control, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, control, STDOUT_FILENO);
  pid_t session = 0;
  // Not the test's own environment, which it may be changing.
  char* const environment[] = {nullptr};
  if (posix_spawn(&session, kProgram, &actions, nullptr, const_cast<char* const*>(arguments),
                  environment) == 0) {
    const std::lock_guard lock(mutex_);
    sessions_.push_back(session);
  }
  posix_spawn_file_actions_destroy(&actions);
}

std::vector<std::string> FtpServer::Dialogue() {
  {
    const std::lock_guard lock(mutex_);
    for (const pid_t session : sessions_) waitpid(session, nullptr, 0);
    sessions_.clear();
  }
  std::vector<std::string> lines;
  std::istringstream log(ReadNative(folder_.native("dialogue.log")));
  for (std::string line; std::getline(log, line);) lines.push_back(line);
  return lines;
}

int FtpServer::LogIns() {
  const std::vector<std::string> lines = Dialogue();
  return static_cast<int>(std::ranges::count_if(
      lines, [](const std::string& line) { return line.starts_with("PASS (hidden) -> 230"); }));
}

}  // namespace vk::tq::testing
