#include "support/dns_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <stdexcept>

namespace vk::tq::testing {
namespace {

constexpr const char* kProgram = "/usr/sbin/unbound";

sockaddr_in AddressOf(const std::string& address, std::uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &result.sin_addr);
  return result;
}

Socket Bound(int type, const std::string& address, std::uint16_t port) {
  Socket bound(socket(AF_INET, type | SOCK_CLOEXEC, 0));
  const int on = 1;
  if (type == SOCK_STREAM) setsockopt(bound.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in wanted = AddressOf(address, port);
  if (bind(bound.get(), reinterpret_cast<const sockaddr*>(&wanted), sizeof wanted) != 0) {
    return Socket();
  }
  return bound;
}

std::uint16_t PortOf(const Socket& bound) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(bound.get(), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

// Takes one port for both protocols.
void BindBoth(const std::string& address, Socket& udp, Socket& tcp) {
  for (int attempt = 0; attempt < 20; ++attempt) {
    tcp = Bound(SOCK_STREAM, address, 0);
    udp = Bound(SOCK_DGRAM, address, PortOf(tcp));
    if (udp) return;
  }
  throw std::runtime_error("no port for a DNS server");
}

bool IsListening(const std::string& address, std::uint16_t port) {
  const Socket probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in peer = AddressOf(address, port);
  // A socket that happens to have this port can connect to itself.
  return connect(probe.get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0 &&
         PortOf(probe) != port;
}

std::string Number16(std::size_t number) {
  return {static_cast<char>(number >> 8), static_cast<char>(number)};
}

std::string Configuration(const std::string& folder, const std::string& address, std::uint16_t port,
                          const std::vector<std::string>& zones,
                          const std::vector<std::string>& records) {
  std::ostringstream text;
  text << "server:\n  interface: " << address << "\n  port: " << port
       << "\n  username: \"\"\n  chroot: \"\"\n  directory: \"" << folder
       << "\"\n  pidfile: \"\"\n  use-syslog: no\n  logfile: \"\"\n  num-threads: 1\n"
       << "  do-daemonize: no\n  module-config: \"iterator\"\n  outgoing-range: 16\n"
       << "  so-reuseport: no\n  do-ip6: no\n";
  for (const std::string& zone : zones) text << "  local-zone: \"" << zone << "\" static\n";
  for (const std::string& record : records) text << "  local-data: '" << record << "'\n";
  text << "remote-control:\n  control-enable: no\n";
  return text.str();
}

}  // namespace

DnsServer::DnsServer(const std::vector<std::string>& zones, const std::vector<std::string>& records,
                     const std::string& address, std::uint16_t port)
    : address_(address), port_(port) {
  // Between the choice of a port and the start somebody else may take it.
  for (int attempt = 0; attempt < 5; ++attempt) {
    if (port == 0) {
      Socket udp;
      Socket tcp;
      BindBoth(address, udp, tcp);
      port_ = PortOf(udp);
    }
    WriteNative(folder_.native("unbound.conf"),
                Configuration(folder_.native(), address, port_, zones, records));
    if (Start()) return;
  }
  throw std::runtime_error("unbound does not start: " + ReadNative(folder_.native("output")));
}

DnsServer::~DnsServer() { Stop(); }

bool DnsServer::Start() {
  const std::string configuration = folder_.native("unbound.conf");
  const char* arguments[] = {kProgram, "-d", "-c", configuration.c_str(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, folder_.native("output").c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int error = posix_spawn(&process_, kProgram, &actions, nullptr,
                                const_cast<char* const*>(arguments), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::runtime_error("no unbound");
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (std::chrono::steady_clock::now() < deadline) {
    if (IsListening(address_, port_)) return true;
    if (waitpid(process_, nullptr, WNOHANG) == process_) {
      process_ = -1;
      return false;
    }
    usleep(5000);
  }
  Stop();
  return false;
}

void DnsServer::Stop() {
  if (process_ < 0) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
  process_ = -1;
}

DnsPeer::DnsPeer(Answer answer, const std::string& address) : answer_(std::move(answer)) {
  BindBoth(address, udp_, tcp_);
  port_ = PortOf(udp_);
  if (listen(tcp_.get(), 8) != 0) throw std::runtime_error("no DNS peer");
  udp_thread_ = std::thread([this] { ServeUdp(); });
  tcp_thread_ = std::thread([this] { ServeTcp(); });
}

DnsPeer::~DnsPeer() {
  stop_.Raise();
  udp_thread_.join();
  tcp_thread_.join();
}

void DnsPeer::ServeUdp() {
  while (stop_.Wait(udp_.get(), POLLIN)) {
    char buffer[1024];
    sockaddr_in client{};
    socklen_t size = sizeof client;
    const ssize_t count =
        recvfrom(udp_.get(), buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&client), &size);
    if (count < 0) continue;
    ++questions_;
    for (const std::string& message :
         answer_({buffer, static_cast<std::size_t>(count)}, /*is_tcp=*/false)) {
      sendto(udp_.get(), message.data(), message.size(), 0,
             reinterpret_cast<const sockaddr*>(&client), size);
    }
  }
}

void DnsPeer::ServeTcp() {
  while (stop_.Wait(tcp_.get(), POLLIN)) {
    const Socket client(accept4(tcp_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!stop_.Wait(client.get(), POLLIN)) return;
    // The questions of these tests are short; a client may send them in two pieces.
    char buffer[1024];
    ssize_t count = recv(client.get(), buffer, sizeof buffer, 0);
    if (count < 2) continue;
    if (count < 2 + buffer[1]) count += recv(client.get(), buffer + count, sizeof buffer - 512, 0);
    ++questions_;
    const auto messages =
        answer_({buffer + 2, static_cast<std::size_t>(count) - 2}, /*is_tcp=*/true);
    for (const std::string& message : messages) {
      const std::string framed = Number16(message.size()) + message;
      send(client.get(), framed.data(), framed.size(), MSG_NOSIGNAL);
    }
    // Silence is kept until the client gives up.
    if (messages.empty()) stop_.Wait(client.get(), POLLIN);
  }
}

std::string PackName(std::string_view name) {
  std::string packed;
  while (!name.empty()) {
    const std::string_view label = name.substr(0, name.find('.'));
    packed += static_cast<char>(label.size());
    packed += label;
    name.remove_prefix(std::min(label.size() + 1, name.size()));
  }
  return packed + '\0';
}

std::string PackRecord(std::string_view name, int type, std::string_view data) {
  constexpr std::string_view kClassAndLife("\0\1\0\0\0\x3C", 6);
  return std::string(name) + Number16(static_cast<std::size_t>(type)) + std::string(kClassAndLife) +
         Number16(data.size()) + std::string(data);
}

std::string Reply::To(const std::string& question) const {
  std::string message = question;
  message[2] = static_cast<char>(0x81 | (is_truncated ? 0x02 : 0));
  message[3] = static_cast<char>(0x80 | code);
  message.replace(6, 2, Number16(records.size()));
  for (const std::string& record : records) message += record;
  return message;
}

}  // namespace vk::tq::testing
