#include "storage/xml.h"

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

class XmlTest : public ProductTest {
 protected:
  CXml xml_;
};

TEST_F(XmlTest, ReadsBackWhatItCreated) {
  const CStringArray names = {L"A", L"B", L"空", L"C"};
  const CStringArray values = {L"1", L" 2\r\n\t<&>\" ", L"", L"日本語①～髙\\"};
  const CString text = xml_.CreateXmlString01(names, values);
  EXPECT_EQ(text,
            L"<?xml version=\"1.0\" encoding=\"Shift_JIS\" ?>\n"
            L"<Velkorandia><QTL><A>1</A><B> 2&#13;\n\t&lt;&amp;&gt;\" </B><空/>"
            L"<C>日本語①～髙\\</C></QTL></Velkorandia>");
  for (int i = 0; i < names.GetSize(); ++i) {
    CString value = L"old";
    EXPECT_EQ(xml_.SelectXMLStringValue01(text, names[i], value), 0);
    EXPECT_EQ(value, values[i]);
  }
  EXPECT_THAT(log_.lines(), ::testing::IsEmpty());
}

}  // namespace
}  // namespace vk::tq::testing
