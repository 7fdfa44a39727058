#include "platform/dns.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/posix/dns_message.h"
#include "platform/posix/native.h"
#include "platform/service_table.h"
#include "platform/system_info.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Message = std::vector<std::uint8_t>;

constexpr int kAttempts = 2;
constexpr std::size_t kLargestMessage = 65535;
std::atomic<milliseconds> wait_for_answer = milliseconds(3000);

struct Endpoint {
  sockaddr_storage address{};
  socklen_t size = 0;
};

Endpoint EndpointOf(const Ipv4Address& server) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(ServicePort(Service::kDns));
  std::memcpy(&address.sin_addr, server.data(), server.size());
  Endpoint endpoint;
  std::memcpy(&endpoint.address, &address, sizeof address);
  endpoint.size = sizeof address;
  return endpoint;
}

// What is no address is left out.
std::vector<Endpoint> OwnServers() {
  std::vector<Endpoint> endpoints;
  const std::string port = std::to_string(ServicePort(Service::kDns));
  for (const std::string& server : CurrentMachine().NameServers()) {
    addrinfo wanted{};
    wanted.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    wanted.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(server.c_str(), port.c_str(), &wanted, &found) != 0) continue;
    Endpoint& endpoint = endpoints.emplace_back();
    std::memcpy(&endpoint.address, found->ai_addr, found->ai_addrlen);
    endpoint.size = found->ai_addrlen;
    freeaddrinfo(found);
  }
  return endpoints;
}

// A socket that speaks with one server alone, up to a point in time.
class Conversation {
 public:
  // 0, or what came of it.
  ErrorCode Open(int type, const Endpoint& server) {
    socket_.Reset(socket(server.address.ss_family, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket_) return ErrorFromErrno(errno);
    SetDeadline();
    const auto* address = reinterpret_cast<const sockaddr*>(&server.address);
    const bool is_open = connect(socket_.get(), address, server.size) == 0 ||
                         (errno == EINPROGRESS && Wait(POLLOUT));
    return is_open ? kErrorSuccess : kErrorTimeout;
  }

  void SetDeadline() { deadline_ = steady_clock::now() + wait_for_answer.load(); }

  // One datagram, or a piece of a stream: how much was sent or received, or nothing when the time
  // is over or the server cannot be reached.
  std::optional<std::size_t> Send(const std::uint8_t* data, std::size_t size) {
    return Transfer(POLLOUT, [&] { return send(socket_.get(), data, size, MSG_NOSIGNAL); });
  }
  std::optional<std::size_t> Receive(std::uint8_t* data, std::size_t size) {
    return Transfer(POLLIN, [&] { return recv(socket_.get(), data, size, 0); });
  }

  // The whole of a stream's piece.
  bool SendAll(const Message& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
      const auto sent = Send(bytes.data() + done, bytes.size() - done);
      if (!sent) return false;
      done += *sent;
    }
    return true;
  }
  bool ReceiveAll(Message& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
      const auto received = Receive(bytes.data() + done, bytes.size() - done);
      if (!received || *received == 0) return false;
      done += *received;
    }
    return true;
  }

 private:
  template <class Call>
  std::optional<std::size_t> Transfer(short event, const Call& call) {
    // The time is looked at even when there is something to read: a flood must not keep us.
    while (steady_clock::now() < deadline_) {
      const ssize_t done = RetryInterrupted(call);
      if (done >= 0) return static_cast<std::size_t>(done);
      if (errno != EAGAIN || !Wait(event)) break;
    }
    return std::nullopt;
  }

  bool Wait(short event) {
    pollfd wait{socket_.get(), event, 0};
    return PollUntil({&wait, 1}, &deadline_) > 0;
  }

  FileDescriptor socket_;
  steady_clock::time_point deadline_;
};

DnsAnswer NoAnswer(ErrorCode status) { return {DnsAnswer::Kind::kWhole, status, {}}; }

DnsAnswer AskOverTcp(const Endpoint& server, const Message& question) {
  Conversation conversation;
  const ErrorCode opened = conversation.Open(SOCK_STREAM, server);
  if (opened != kErrorSuccess) return NoAnswer(opened);
  Message framed = {static_cast<std::uint8_t>(question.size() >> 8),
                    static_cast<std::uint8_t>(question.size())};
  framed.insert(framed.end(), question.begin(), question.end());
  if (!conversation.SendAll(framed)) return NoAnswer(kErrorTimeout);
  Message length(2);
  Message message;
  while (conversation.ReceiveAll(length)) {
    message.resize(static_cast<std::size_t>(length[0] << 8 | length[1]));
    if (!conversation.ReceiveAll(message)) break;
    DnsAnswer answer = ReadAnswer(question, message);
    if (answer.kind != DnsAnswer::Kind::kForeign) return answer;
  }
  return NoAnswer(kErrorTimeout);
}

DnsAnswer AskOverUdp(const Endpoint& server, const Message& question) {
  Conversation conversation;
  const ErrorCode opened = conversation.Open(SOCK_DGRAM, server);
  if (opened != kErrorSuccess) return NoAnswer(opened);
  Message message(kLargestMessage);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    conversation.SetDeadline();
    if (!conversation.Send(question.data(), question.size())) continue;
    while (const auto size = conversation.Receive(message.data(), message.size())) {
      DnsAnswer answer = ReadAnswer(question, std::span(message).first(*size));
      if (answer.kind != DnsAnswer::Kind::kForeign) return answer;
    }
  }
  return NoAnswer(kErrorTimeout);
}

DnsAnswer Ask(const Endpoint& server, const Message& question) {
  DnsAnswer answer = AskOverUdp(server, question);
  return answer.kind == DnsAnswer::Kind::kTruncated ? AskOverTcp(server, question)
                                                    : std::move(answer);
}

// Whether another server could know better.
bool IsDecided(ErrorCode status) {
  return status == kErrorSuccess || status == kDnsNameError || status == kDnsNoRecords;
}

}  // namespace

ErrorCode QueryPtr(std::wstring_view name, const std::optional<Ipv4Address>& server,
                   std::vector<DnsRecord>& records) {
  records.clear();
  std::uint16_t number = 0;
  ErrorCode status = kErrorInvalidName;
  if (getrandom(&number, sizeof number, 0) != sizeof number) {
    status = ErrorFromErrno(errno);
  } else if (const auto question =
                 ComposeQuestion(number, EncodeText(kCodePageUtf8, name).value_or(""))) {
    status = kErrorTimeout;
    for (const Endpoint& endpoint :
         server ? std::vector<Endpoint>{EndpointOf(*server)} : OwnServers()) {
      DnsAnswer answer = Ask(endpoint, *question);
      status = answer.status;
      records = std::move(answer.records);
      if (IsDecided(status)) break;
    }
  }
  if (status != kErrorSuccess) SetLastError(status);
  return status;
}

ScopedDnsWait::ScopedDnsWait(milliseconds wait) noexcept : old_(wait_for_answer.exchange(wait)) {}

ScopedDnsWait::~ScopedDnsWait() { wait_for_answer.store(old_); }

}  // namespace vk::tq
