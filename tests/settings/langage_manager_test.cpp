#include "settings/langage_manager.h"

#include <unistd.h>

#include <filesystem>

#include "platform/path.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using namespace std::string_literals;

class OtherLanguage : public CLangageManager {
 public:
  explicit OtherLanguage(int language) { language_ = language; }
};

using LangageManagerTest = ProductTest;

// The table lives as long as the process and the language folder lies beside the program, so the
// test runs once more, in a process of its own, from a copy of the program in its own folder.
TEST_F(LangageManagerTest, TextsOfTheFileBesideTheProgram) {
  if (getenv("TQ_TEST_INSIDE") == nullptr) {
    const std::string program = native("program");
    std::filesystem::copy_file("/proc/self/exe", program);
    ChildProcess child([&] {
      setenv("TQ_TEST_INSIDE", "1", 1);
      unsetenv("GTEST_OUTPUT");
      execl(program.c_str(), program.c_str(), "--gtest_filter=LangageManagerTest.*", nullptr);
      return 98;
    });
    EXPECT_EQ(child.Wait(), 0);
    return;
  }
  const std::wstring folder = ProgramPath().substr(0, ProgramPath().rfind(L'\\') + 1);
  const std::string japanese = PathToNative(folder) + "lang/lang_jp.dat";
  const auto texts = [](std::initializer_list<const wchar_t*> keys) {
    CString found;
    for (const wchar_t* key : keys) found += CLangageManager::GetLangResource(key) + L",";
    return found;
  };
  WriteNative(japanese,
              "101=\u5370\u5237\nkey=a=b\r\n\n=no key\nno separator\n blank = x \n101=second\n"
              "lines=<\\n>a<\\n><\\n>b\nbad=x\xFF\xE3\x81y\nnul=1\0z\n\0=1\nlast=end"s);
  { CLangageManager manager; }
  EXPECT_EQ(log_.texts(), std::vector<std::string>{});
  EXPECT_EQ(texts({L"key", L" blank ", L"bad", L"nul", L"last", L"KEY", L"", L"no separator"}),
            L"a=b, x ,x\uFFFD\uFFFDy,1,end,,,,");
  EXPECT_EQ(CLangageManager::GetLangResourceDecodeNewLine(L"lines"), L"\r\na\r\n\r\nb");
  EXPECT_EQ(CLangageManager::GetLangResourceDecodeNewLine(101), L"印刷");

  std::filesystem::remove(japanese);
  OtherLanguage english(1);
  EXPECT_EQ(log_.texts(), std::vector{"5 130212 CLangageManager::SetLangList ファイルが存在しません"
                                      "。<" +
                                      ToUtf8(folder) + "lang\\lang_jp.dat>"});
  EXPECT_EQ(CLangageManager::GetLangResource(101), L"");
  EXPECT_EQ(CLangageManager::GetDispMessage(L"101"), L"印刷") << "the table keeps what it holds";
  WriteNative(PathToNative(folder) + "lang/lang_en.dat", "\xEF\xBB\xBF" + "1=a\n101=new\n2=b\n"s);
  english.SetLangList();
  EXPECT_EQ(texts({L"101", L"1", L"\uFEFF1", L"2"}), L"印刷,,a,b,");
}

}  // namespace
}  // namespace vk::tq::testing
