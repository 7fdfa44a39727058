#include "platform/system_info.h"

#include <optional>

#include "platform/posix/login_session.h"
#include "platform/posix/resolver_configuration.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

TEST(SystemInfoTest, TheLoginManagersRecordOfTheSessionCounts) {
  const TempFolder records;
  WriteNative(records.native("sessions/2"), "UID=1000\nREALTIME=1700000000123456\nMONOTONIC=5\n");
  WriteNative(records.native("users/1000"), "STATE=active\nDISPLAY=2\nREALTIME=1690000000000000\n");
  const std::pair<const char*, std::optional<std::int64_t>> cases[] = {
      {"4:memory:/\n1:name=systemd:/user.slice/user-1000.slice/session-2.scope\n", 1700000000},
      {"0::/user.slice/user-1000.slice/user@1000.service/app.slice/session-c7.scope", 1700000000},
      {"0::/session-..\xC0.scope/session-.scope/session-2.scopes/xsession-2.scope", std::nullopt}};
  for (const auto& [groups, start] : cases) {
    EXPECT_EQ(start, RecordedLogin(groups, records.native())) << groups;
  }
}

TEST(SystemInfoTest, TheResolversFileIsRead) {
  const ResolverConfiguration configuration = ParseResolverConfiguration(
      "# nameserver 1.1.1.1\n nameserver 1.1.1.3\nnameservers 1.1.1.4\ndomain first.example\n"
      "nameserver\t192.0.2.1 # here\nnameserver 2001:db8::1\r\nnameserver\n"
      "search last.example other.example\nnameserver 192.0.2.3\nnameserver 192.0.2.4");
  EXPECT_THAT(configuration.servers,
              ::testing::ElementsAre("192.0.2.1", "2001:db8::1", "192.0.2.3"));
  EXPECT_EQ("last.example", configuration.domain);
}

}  // namespace
}  // namespace vk::tq::testing
