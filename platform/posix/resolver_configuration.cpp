#include "platform/posix/resolver_configuration.h"

#include <algorithm>

#include "platform/error.h"
#include "platform/posix/system_file.h"

namespace vk::tq {
namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::size_t kMostServers = 3;

// Cuts off and gives the word that a line begins with.
std::string_view CutWord(std::string_view& line) {
  const std::size_t end = std::min(line.find_first_of(kBlanks), line.size());
  const std::string_view word = line.substr(0, end);
  line.remove_prefix(end);
  line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
  return word;
}

}  // namespace

ResolverConfiguration ParseResolverConfiguration(std::string_view text) {
  ResolverConfiguration configuration;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const std::string_view keyword = CutWord(line);
    const std::string value(CutWord(line));
    if (value.empty()) continue;
    if (keyword == "nameserver" && configuration.servers.size() < kMostServers) {
      configuration.servers.push_back(value);
    } else if (keyword == "domain" || keyword == "search") {
      configuration.domain = value;
    }
  }
  return configuration;
}

ResolverConfiguration ReadResolverConfiguration() {
  const LastErrorKeeper keeper;
  const auto text = ReadSystemFile("/etc/resolv.conf");
  return text ? ParseResolverConfiguration(*text) : ResolverConfiguration();
}

}  // namespace vk::tq
