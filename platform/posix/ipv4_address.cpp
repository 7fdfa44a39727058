#include "platform/ipv4_address.h"

#include <arpa/inet.h>

#include <cstddef>

namespace vk::tq {

std::optional<Ipv4Address> ParseIpv4Address(std::string_view ansi) {
  if (ansi.find('\0') != ansi.npos) return std::nullopt;
  Ipv4Address address;
  if (inet_pton(AF_INET, std::string(ansi).c_str(), address.data()) != 1) return std::nullopt;
  return address;
}

std::wstring FormatIpv4Address(const Ipv4Address& address) {
  char text[INET_ADDRSTRLEN];
  const std::string_view dotted = inet_ntop(AF_INET, address.data(), text, sizeof text);
  return {dotted.begin(), dotted.end()};
}

}  // namespace vk::tq
