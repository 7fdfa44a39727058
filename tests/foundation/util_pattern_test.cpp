#include <pthread.h>

#include <regex>

#include "foundation/util.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using ::testing::ElementsAre;

class UtilPatternTest : public ProductTest {
 protected:
  int Extract(const CString& source, const std::wstring& pattern) {
    return CUtil::ExtractPatternString(source, pattern, result_, error_, message_);
  }

  CString result_ = L"見積書_2024.pdf", message_ = L"old";
  int error_ = 77;
};

TEST_F(UtilPatternTest, TheFirstMatchIsExtracted) {
  EXPECT_EQ(1, Extract(result_, L"x|_(\\d{4})\\."));
  EXPECT_EQ(L"_2024.", result_) << "the source may be the result";
  EXPECT_EQ(0, error_);
  EXPECT_EQ(L"", message_);
  EXPECT_EQ(1, Extract(L"日本", L"\\w"));
  EXPECT_EQ(L"", result_);
}

// A bad one, and those that would otherwise exhaust the stack, the memory or the day.
TEST_F(UtilPatternTest, ASearchThatFailsGivesTheEnginesCode) {
  using namespace std::regex_constants;
  const std::wstring long_text(1'000'000, L'a');
  const std::tuple<std::wstring, std::wstring, error_type> cases[] = {
      {L"source", L"[", error_brack},
      {std::wstring(64, L'a'), L"(a+)+b", error_complexity},
      {long_text, L"^(a|b)*x", error_stack},
      {L"a", std::wstring(100'000, L'(') + std::wstring(100'000, L')'), error_space},
      {L"a", L"(((a{100}){100}){100}){100}", error_space}};
  for (const auto& [source, pattern, code] : cases) {
    log_.Clear();
    EXPECT_EQ(0, Extract(source, pattern));
    EXPECT_EQ(static_cast<int>(code), error_) << ToUtf8(pattern.substr(0, 40));
    EXPECT_THAT(log_.texts(),
                ElementsAre("5 CUtil::ExtractPatternString 文字列から正規表現パターンに一致した"
                            "文字列を抽出する際にエラーが発生しました。(" +
                            std::to_string(error_) + ": " + ToUtf8(message_) + ")"));
  }
  EXPECT_EQ(0, Extract(L"source", L""));
  EXPECT_EQ(L"source", result_);
  EXPECT_EQ(CUtil::ERR_REGEX_EMPTY, error_);
}

TEST_F(UtilPatternTest, ASmallStackIsRespected) {
  const auto search = [](void*) -> void* {
    const std::wstring text(10'000, L'a');
    CString result;
    int error = 0;
    for (const auto& pattern : {std::wstring(L"(a|b)*x"), std::wstring(L"a*?x"),
                                std::wstring(150, L'(') + std::wstring(150, L')')}) {
      CUtil::ExtractPatternString(text, pattern, result, error);
      EXPECT_EQ(static_cast<int>(std::regex_constants::error_stack), error) << ToUtf8(pattern);
    }
    EXPECT_EQ(1, CUtil::ExtractPatternString(text + L"b1", L"b[0-9]", result, error));
    return nullptr;
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 256 * 1024);
  pthread_t thread{};
  ASSERT_EQ(0, pthread_create(&thread, &attributes, search, nullptr));
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

TEST_F(UtilPatternTest, AnImageLogIdIsCutOut) {
  const std::wstring id = L"0123456789abcdef0123456789ABCDEFwxyz";
  const std::wstring longest(63, L'x');
  const std::tuple<std::wstring, std::wstring, int, std::wstring> cases[] = {
      {L"#SI#", L"見積" + id + L"#SI#" + id + L"#SI#", 1, L"見積" + id + L"#SI#"},
      {L"#SI#", L"#SI#" + id + L"#SI#", 0, L"#SI#" + id + L"#SI#"},
      {longest, id + longest + L"rest", 1, L"rest"},
      // With a registry value that is too long, the function is off, as without one.
      {longest + L"y", id + longest + L"y", 0, id + longest + L"y"}};
  for (const auto& [delimiter, whole, result, left] : cases) {
    WriteNative(native("registry.ini"),
                "[SOFTWARE\\Wow6432Node\\ORV-INC\\Velkorandia\\Tessaloquin\\Option]\r\n"
                "ImageLogIDDelimiter = " +
                    ToUtf8(delimiter) + "\r\n");
    std::wstring text = whole;
    std::wstring buffer(38, L'|');
    EXPECT_EQ(result, CUtil::SepareteImaglogID(text.data(), buffer.data()));
    EXPECT_EQ(left, text.c_str());
    EXPECT_EQ(result == 1 ? id + L'\0' + L'|' : std::wstring(38, L'|'), buffer);
  }
  EXPECT_THAT(log_.texts(), ElementsAre("2 101414 CUtil::SepareteImaglogID イメログID取得処理無効"
                                        "で実施。"));
}

}  // namespace
}  // namespace vk::tq::testing
