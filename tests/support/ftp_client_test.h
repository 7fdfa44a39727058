#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/service_table.h"
#include "support/test_clock.h"
#include "support/test_support.h"

namespace vk::tq::testing {

// A password that is in no other text, and must be in no log line.
inline constexpr const wchar_t* kSecret = L"geheim secret";

// Works against a server on a loopback port, without real pauses.
class FtpClientTest : public ProductTest {
 protected:
  void TearDown() override { ClearLog(); }

  // Forgets the recorded lines; the password must be in none of them.
  void ClearLog() {
    for (const LogLine& line : log_.lines()) {
      EXPECT_EQ((line.message + line.second.value_or(L"")).find(kSecret), std::wstring::npos);
    }
    log_.Clear();
  }

  void UsePort(std::uint16_t port) { port_.emplace(Service::kFtpControl, port); }

  TestClock clock_;
  ScopedClock use_clock_{clock_};
  std::optional<ScopedServicePort> port_;
};

}  // namespace vk::tq::testing
