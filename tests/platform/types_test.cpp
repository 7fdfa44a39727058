#include "platform/types.h"

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

TEST(TypesTest, AnIndexOutsideAnArrayThrows) {
  CByteArray bytes = {1, 2, 3};
  bytes.SetSize(2);
  for (const int index : {-1, 2}) {
    EXPECT_THROW(bytes[index], CInvalidArgException);
    EXPECT_THROW(bytes.SetAt(index, 0), CInvalidArgException);
  }
}

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
