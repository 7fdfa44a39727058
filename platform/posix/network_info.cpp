#include <ifaddrs.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "platform/posix/native.h"
#include "platform/posix/resolver_configuration.h"
#include "platform/system_info.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

std::wstring Widen(std::string_view text) {
  return DecodeText(kCodePageUtf8, text).value_or(std::wstring());
}

std::string HostName() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

std::vector<std::string> Ipv4Servers(const ResolverConfiguration& resolver) {
  std::vector<std::string> servers;
  std::ranges::copy_if(resolver.servers, std::back_inserter(servers),
                       [](const auto& server) { return ParseIpv4Address(server).has_value(); });
  if (servers.empty()) servers.emplace_back();
  return servers;
}

}  // namespace

ErrorCode Machine::Ipv4Addresses(Ipv4Address* addresses, std::size_t& count) {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) return ErrorFromErrno(errno);
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(first, freeifaddrs);
  const std::size_t room = addresses != nullptr ? count : 0;
  count = 0;
  for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    sockaddr_in address;
    std::memcpy(&address, entry->ifa_addr, sizeof address);
    if (count < room) std::memcpy(addresses[count].data(), &address.sin_addr, sizeof(Ipv4Address));
    ++count;
  }
  return addresses == nullptr || count > room ? kErrorInsufficientBuffer : kErrorSuccess;
}

ErrorCode Machine::Network(NetworkParameters& parameters, std::size_t& room) {
  const ResolverConfiguration resolver = ReadResolverConfiguration();
  std::vector<std::string> servers = Ipv4Servers(resolver);
  if (servers.size() > room) {
    room = servers.size();
    return kErrorBufferOverflow;
  }
  const std::string host = HostName();
  const std::size_t point = std::min(host.find('.'), host.size());
  parameters.host_name = Widen(host.substr(0, point));
  parameters.domain_name = Widen(
      !resolver.domain.empty() ? resolver.domain : host.substr(std::min(point + 1, host.size())));
  parameters.dns_servers = std::move(servers);
  return kErrorSuccess;
}

std::vector<std::string> Machine::NameServers() {
  std::vector<std::string> servers = ReadResolverConfiguration().servers;
  if (servers.empty()) servers.emplace_back("127.0.0.1");
  return servers;
}

}  // namespace vk::tq
