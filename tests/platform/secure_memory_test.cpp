#include "platform/secure_memory.h"

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

TEST(SecureMemoryTest, ATextIsWipedWithItsUnusedCapacity) {
  std::string text(40, 's');
  const char* const memory = text.data();
  {
    const WipeOnExit wipe(text);
    text.resize(3);
  }
  EXPECT_EQ(std::string(40, '\0'), std::string(memory, 40));
}

}  // namespace
}  // namespace vk::tq::testing
