// What resolv.conf(5) says.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vk::tq {

struct ResolverConfiguration {
  std::vector<std::string> servers;  // IPv4 and IPv6 addresses, the first three at most
  std::string domain;                // of the last line "domain" or "search"
};

ResolverConfiguration ParseResolverConfiguration(std::string_view text);

// The machine's own; without the file, an empty one.
ResolverConfiguration ReadResolverConfiguration();

}  // namespace vk::tq
