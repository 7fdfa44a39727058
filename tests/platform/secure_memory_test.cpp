#include "platform/secure_memory.h"

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

TEST(SecureMemoryTest, ATextIsWipedWithItsUnusedCapacity) {
  std::string text = "secret, and long enough to be on the heap";
  const std::size_t size = text.size();
  const char* const memory = text.data();
  {
    const WipeOnExit wipe(text);
    text.resize(3);
  }
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(std::string(size, '\0'), std::string(memory, size));
}

}  // namespace
}  // namespace vk::tq::testing
