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
  EXPECT_EQ(CLangageManager::GetDispMessage(L"101"), L"") << "before any object";
  WriteNative(japanese,
              "101=\u5370\u5237\n"
              "key=a=b\r\n"
              "\n=no key\nno separator\n"
              " blank = x \n"
              "101=second\n"
              "lines=<\\n>a<\\n><\\n>b\n"
              "bad=x\xFF\xE3\x81y\n"
              "last=end");
  { CLangageManager manager; }
  EXPECT_EQ(log_.lines(), std::vector<LogLine>{});
  const auto texts = [](std::initializer_list<const wchar_t*> keys) {
    CString found;
    for (const wchar_t* key : keys) found += CLangageManager::GetLangResource(key) + L",";
    return found;
  };
  EXPECT_EQ(texts({L"key", L" blank ", L"bad", L"last", L"lines"}),
            L"a=b, x ,x\uFFFD\uFFFDy,end,<\\n>a<\\n><\\n>b,");
  EXPECT_EQ(texts({L"KEY", L"", L"no separator"}), L",,,");
  EXPECT_EQ(CLangageManager::GetLangResourceDecodeNewLine(L"lines"), L"\r\na\r\n\r\nb");
  EXPECT_EQ(CLangageManager::GetLangResourceDecodeNewLine(101), L"印刷");

  std::filesystem::remove(japanese);
  OtherLanguage english(1);
  EXPECT_EQ(
      log_.lines(),
      (std::vector<LogLine>{{5, 130212, L"CLangageManager::SetLangList",
                             L"ファイルが存在しません。<" + folder + L"lang\\lang_jp.dat>"}}));
  EXPECT_EQ(CLangageManager::GetLangResource(101), L"");
  EXPECT_EQ(CLangageManager::GetDispMessage(L"101"), L"印刷") << "the table keeps what it holds";

  WriteNative(PathToNative(folder) + "lang/lang_en.dat", "101=new\n1=number one\n");
  english.SetLangList();
  WriteNative(native("marked"), "\xEF\xBB\xBF" + "a=1\nb=2\n"s);
  WriteNative(native("nul"), "c=1\0z\n\0=1\nd=2\n"s);
  for (const std::wstring& file : {path(L"missing"), path(L"marked"), path(L"nul")}) {
    EXPECT_EQ(english.GetHashTbl(file.c_str()), 1);
  }
  EXPECT_EQ(texts({L"101", L"1", L"a", L"\uFEFFa", L"b", L"c", L"d"}),
            L"印刷,number one,,1,2,1,2,");
}

}  // namespace
}  // namespace vk::tq::testing
