/// IPv4 addresses and their dotted form.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vk::tq {

/// The four bytes of an address, in the order in which they are written.
using Ipv4Address = std::array<std::uint8_t, 4>;

/// The address that an ANSI text stands for: four decimal numbers from 0 to 255 with points between
/// them, without leading zeros, blanks or anything else (inet_pton). Nothing for any other text.
std::optional<Ipv4Address> ParseIpv4Address(std::string_view ansi);

/// The dotted form, at most 15 characters.
std::wstring FormatIpv4Address(const Ipv4Address& address);

}  // namespace vk::tq
