#include "settings/langage_manager.h"

#include <unistd.h>

#include <filesystem>

#include "platform/path.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using namespace std::string_literals;

// The table lives as long as the process and the language folder lies beside the program, so each
// of these tests runs in a process of its own, from a copy of the program in its own folder.
constexpr char kInside[] = "TQ_TEST_INSIDE";

class LangageManagerTest : public ProductTest {
 protected:
  static bool IsInside() { return getenv(kInside) != nullptr; }

  // Runs the calling test again, inside.
  void RunInside() {
    const std::string program = native("program");
    std::filesystem::copy_file("/proc/self/exe", program);
    const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string("--gtest_filter=*.") + test.name();
    ChildProcess child([&] {
      setenv(kInside, "1", 1);
      unsetenv("GTEST_OUTPUT");
      execl(program.c_str(), program.c_str(), filter.c_str(), nullptr);
      return 98;
    });
    EXPECT_EQ(child.Wait(), 0);
  }

  static std::string LanguageFile(std::string_view name) {
    return PathToNative(ProgramFolder()) + "lang/" + std::string(name);
  }

  static std::wstring ProgramFolder() {
    const std::wstring program = ProgramPath();
    return program.substr(0, program.rfind(L'\\') + 1);
  }
};

class OtherLanguage : public CLangageManager {
 public:
  explicit OtherLanguage(int language) { language_ = language; }
};

TEST_F(LangageManagerTest, TextsOfTheFileBesideTheProgram) {
  if (!IsInside()) return RunInside();
  EXPECT_EQ(CLangageManager::GetDispMessage(L"101"), L"") << "before any object";
  WriteNative(LanguageFile("lang_jp.dat"),
              "101=\u5370\u5237\n"
              "key=a=b\r\n"
              "\n=no key\nno separator\n"
              " blank = x \n"
              "101=second\n"
              "lines=<\\n>a<\\n><\\n>b\n"
              "bad=x\xFF\xE3\x81y\n"
              "last=end");
  {
    CLangageManager manager;
    EXPECT_EQ(manager.GetAppPath(), ProgramFolder());
    EXPECT_EQ(manager.GetLangFileName(), L"lang_jp.dat");
  }
  EXPECT_EQ(log_.lines(), std::vector<LogLine>{});
  const auto text = [](auto key) { return CLangageManager::GetLangResource(key); };
  for (const auto& [key, expected] : {std::pair{L"key", L"a=b"},
                                      {L"KEY", L""},
                                      {L"", L""},
                                      {L"no separator", L""},
                                      {L" blank ", L" x "},
                                      {L"bad", L"x\uFFFD\uFFFDy"},
                                      {L"last", L"end"},
                                      {L"lines", L"<\\n>a<\\n><\\n>b"}}) {
    EXPECT_EQ(text(key), expected) << ToUtf8(key);
  }
  EXPECT_EQ(text(101), L"印刷");
  EXPECT_EQ(CLangageManager::GetLangResourceDecodeNewLine(L"lines"), L"\r\na\r\n\r\nb");
  EXPECT_EQ(CLangageManager::GetLangResourceDecodeNewLine(101), L"印刷");

  std::filesystem::remove(LanguageFile("lang_jp.dat"));
  const CLangageManager failed;
  EXPECT_EQ(log_.lines(), (std::vector<LogLine>{{5, 130212, L"CLangageManager::SetLangList",
                                                 L"ファイルが存在しません。<" + ProgramFolder() +
                                                     L"lang\\lang_jp.dat>"}}));
  EXPECT_EQ(text(101), L"");
  EXPECT_EQ(CLangageManager::GetDispMessage(L"101"), L"印刷") << "the table keeps what it holds";

  WriteNative(LanguageFile("lang_jp.dat"), "101=new\n102=added\n");
  const CLangageManager again;
  EXPECT_EQ(text(101) + text(102), L"印刷added");
}

TEST_F(LangageManagerTest, OtherLanguagesAndPaths) {
  if (!IsInside()) return RunInside();
  // Made before the table, so that it goes after whatever is destroyed at the end of the process.
  static const struct AtExit {
    ~AtExit() {
      if (CLangageManager::GetLangResource(1) != L"number one") _exit(97);
    }
  } at_exit;
  WriteNative(LanguageFile("lang_en.dat"), "1=number one\n");
  OtherLanguage english(1);
  EXPECT_EQ(OtherLanguage(2).GetLangFileName(), L"lang_.dat");
  EXPECT_EQ(CLangageManager::GetLangResource(1), L"");
  english.SetLangList();

  WriteNative(native("marked"),
              "\xEF\xBB\xBF"
              "a=1\nb=2\n");
  WriteNative(native("nul"), "c=1\0z\n\0=1\nd=2\n"s);
  for (const std::wstring& file : {path(L"missing"), path(L"marked"), path(L"nul")}) {
    EXPECT_EQ(english.GetHashTbl(file.c_str()), 1);
  }
  CString found;
  for (const wchar_t* key : {L"1", L"a", L"\uFEFFa", L"b", L"c", L"d"}) {
    found += CLangageManager::GetLangResource(key) + L",";
  }
  EXPECT_EQ(found, L"number one,,1,2,1,2,");
}

}  // namespace
}  // namespace vk::tq::testing
