#include "support/dns_peer.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace vk::tq::testing {
namespace {

// None when somebody has the port.
FileDescriptor BindUdp(std::uint16_t port) {
  FileDescriptor udp(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
  const bool is_bound =
      bind(udp.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  return is_bound ? std::move(udp) : FileDescriptor();
}

std::string Number16(std::size_t number) {
  return {static_cast<char>(number >> 8), static_cast<char>(number)};
}

}  // namespace

DnsPeer::DnsPeer(Answer answer) : answer_(std::move(answer)) {
  while (!udp_) {
    tcp_.emplace([this](const Peer& client, int) { ServeTcp(client); });
    udp_ = BindUdp(port());
  }
  udp_thread_ = std::thread([this] { ServeUdp(); });
}

DnsPeer::~DnsPeer() {
  stop_.Raise();
  udp_thread_.join();
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

void DnsPeer::ServeTcp(const Peer& client) {
  // The questions of these tests are short.
  const std::string length = client.Read(2);
  if (length.empty()) return;
  const std::string question = client.Read(static_cast<unsigned char>(length.back()));
  ++questions_;
  for (const std::string& message : answer_(question, /*is_tcp=*/true)) {
    client.Write(Number16(message.size()) + message);
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
