#include "platform/types.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

TEST(TypesTest, AnIndexOutsideAnArrayThrows) {
  CByteArray bytes = {1, 2};
  EXPECT_EQ(2, bytes[1]);
  EXPECT_THROW(bytes[2], CInvalidArgException);
  EXPECT_THROW(bytes[-1], CInvalidArgException);
  EXPECT_THROW(bytes.GetAt(2), CInvalidArgException);
  EXPECT_THROW(bytes.SetAt(2, 0), CInvalidArgException);
  EXPECT_THROW(bytes.SetSize(-1), CInvalidArgException);
  EXPECT_THROW(CStringArray().GetAt(0), CInvalidArgException);
}

TEST(TypesTest, ArraysGrowByEmptyElements) {
  CByteArray bytes = {1, 2, 3};
  bytes.SetSize(2);
  bytes.SetSize(4);
  EXPECT_EQ((CByteArray{1, 2, 0, 0}), bytes);
  CStringArray texts;
  EXPECT_EQ(0, texts.Add(L"a"));
  EXPECT_EQ(1, texts.Add(L"b"));
  texts.SetSize(3);
  EXPECT_EQ(L"", texts[2]);
}

TEST(TypesTest, MapsGiveWhetherAKeyIsThere) {
  CMapStringToString map;
  map.SetAt(L"a", L"1");
  map.SetAt(L"a", L"2");
  CString value = L"old";
  EXPECT_FALSE(map.Lookup(L"A", value));
  EXPECT_EQ(L"old", value);
  EXPECT_TRUE(map.Lookup(L"a", value));
  EXPECT_EQ(L"2", value);
  EXPECT_EQ(1, map.GetCount());
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
