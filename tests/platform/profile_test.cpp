#include "platform/profile.h"

#include <fcntl.h>

#include <chrono>
#include <filesystem>
#include <sstream>
#include <thread>

#include "platform/error.h"
#include "platform/posix/native.h"
#include "platform/posix/spare_copy.h"
#include "platform/text.h"
#include "support/json.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

constexpr std::size_t kEnough = 1024;

class ProfileTest : public ::testing::Test {
 protected:
  void Write(std::string_view bytes) const { WriteNative(native_, bytes); }
  std::string Bytes() const { return ReadNative(native_); }
  std::wstring Get(std::wstring_view section, std::wstring_view key) const {
    return Profile(path_).GetString(section, key, L"<def>", kEnough);
  }
  bool Set(std::wstring_view section, std::wstring_view key, std::wstring_view value) const {
    return WriteProfileString(path_, section, key, value);
  }
  // The file that a text becomes when one value is written.
  std::string Changed(std::string_view bytes, std::wstring_view section, std::wstring_view key,
                      std::wstring_view value) const {
    Write(bytes);
    EXPECT_TRUE(Set(section, key, value));
    return Bytes();
  }

  TempFolder temp_;
  std::string native_ = temp_.native("file.ini");
  std::wstring path_ = temp_.path(L"file.ini");
  ScopedEnvironment code_page_{"TQ_ANSI_CODEPAGE", "65001"};
};

// A recorded list: NUL behind each name, the last of which may be cut.
std::vector<std::wstring> Names(const Json& list) {
  std::vector<std::wstring> names;
  std::istringstream text(TextOf(list));
  for (std::string name; std::getline(text, name, '\0');) names.push_back(FromUtf8(name));
  return names;
}

TEST_F(ProfileTest, AnswersAsRecorded) {
  const auto rows = ReadJsonLines(TQ_TEST_DATA "/profile.jsonl");
  ASSERT_EQ(120U, rows.size());
  for (std::size_t row = 0; row < rows.size(); ++row) {
    SCOPED_TRACE("row " + std::to_string(row));
    const auto wide = [](const Json& json, std::string_view name) {
      return FromUtf8(TextOf(json.at(name)));
    };
    Write(FromHex(TextOf(rows[row].at("file"))));
    const Profile profile(path_);
    for (const Json& get : rows[row].at("get")) {
      const std::wstring section = wide(get, "section");
      const std::wstring key = wide(get, "key");
      const auto size = static_cast<std::size_t>(get.at("size").get<int>());
      EXPECT_EQ(TextOf(get.at("value")), ToUtf8(profile.GetString(section, key, L"<def>", size)))
          << ToUtf8(section + L" " + key);
      EXPECT_EQ(get.at("int").get<int>(), profile.GetInt(section, key, -3));
    }
    EXPECT_EQ(Names(rows[row].at("sections")), profile.SectionNames(kEnough));
    const std::wstring keys_of = wide(rows[row], "keys_of");
    EXPECT_EQ(Names(rows[row].at("keys")), profile.KeyNames(keys_of, kEnough));
    EXPECT_EQ(Names(rows[row].at("keys_12")), profile.KeyNames(keys_of, 12));
    for (const Json& set : rows[row].at("set")) {
      const std::wstring section = wide(set, "section");
      const std::wstring key = wide(set, "key");
      EXPECT_EQ(set.at("ok").get<int>() == 1, Set(section, key, wide(set, "value")));
      EXPECT_EQ(TextOf(set.at("reads_back")), ToUtf8(Get(section, key)))
          << ToUtf8(section + L" " + key);
    }
  }
}

TEST_F(ProfileTest, ReadsWhatPeopleWrite) {
  using namespace std::string_literals;
  Write(
      "lost=1\r\n[A]\rold=mac\n  k = v \r\n[\xC3\x9C]x\n\xEF\xBC\xA1=wide\nq=\"two \"\nd='\n"
      "z=\"a b\0c\"\n[open\n\0\0\x1A"s);
  EXPECT_EQ(L"mac", Get(L"a", L"OLD"));
  EXPECT_EQ(L"v", Get(L" A ", L" K ")) << "blanks around the names that are asked for";
  EXPECT_EQ(L"wide", Get(L"ü", L"ａ"));
  EXPECT_EQ(L"'", Get(L"Ü", L"d"));
  EXPECT_EQ(L"a b", Get(L"Ü", L"z")) << "up to the NUL";
  EXPECT_THAT(Profile(path_).KeyNames(L"Ü", kEnough), ElementsAre(L"Ａ", L"q", L"d", L"z"));
}

TEST_F(ProfileTest, AChangeKeepsEveryOtherByte) {
  const std::tuple<std::string, const wchar_t*, std::string> cases[] = {
      {"", L"S", "[S]\r\nk=new\r\n"},
      {"; c\n[S]\n K  = \"old\" ;x\nk=2", L"s", "; c\n[S]\n K  = new\nk=2"},
      {"[S]\nk\nk=2\n", L"S", "[S]\nk=new\nk=2\n"},
      {"[S]\na=1\n\n; of T\n[T]\n", L"S", "[S]\na=1\nk=new\n\n; of T\n[T]\n"},
      {"[S]", L"S", "[S]\r\nk=new\r\n"},
      {"[A]\nk=1\n\n", L"S", "[A]\nk=1\n\n[S]\nk=new\n"},
      {"[S]\nk=1\n[s]\nk=2\n", L"S", "[S]\nk=new\n[s]\nk=2\n"},
      {"\xEF\xBB\xBF[\xC3\xA4]\n\xFF=\x80\n", L"Ä", "\xEF\xBB\xBF[\xC3\xA4]\n\xFF=\x80\nk=new\n"},
      // What a killed process left.
      {std::string("[S]\na=1\n\0\0\0", 11), L"S", "[S]\na=1\nk=new\n"}};
  for (const auto& [before, section, after] : cases) {
    EXPECT_EQ(after, Changed(before, section, L"k", L"new"));
  }
}

TEST_F(ProfileTest, AFileKeepsItsEncoding) {
  using namespace std::string_literals;
  EXPECT_EQ("\xFF\xFE[\0S\0]\0\n\0k\0=\0 \0\x42\x30\n\0"s,
            Changed("\xFF\xFE[\0S\0]\0\n\0k\0=\0 \0o\0l\0d\0\n\0"s, L"s", L"K", L"あ"));
  // The second byte of 0x83 0x5C is a backslash elsewhere; ② is one of the characters that only
  // code page 932 has.
  const ScopedEnvironment japanese("TQ_ANSI_CODEPAGE", "932");
  EXPECT_EQ("[\x83\x5C]\r\nk=\x87\x41\r\n\x83\x5C=\x81\x60\r\n",
            Changed("[\x83\x5C]\r\nk=\x87\x40\r\n\x83\x5C=\x81\x60\r\n", L"ソ", L"k", L"②"));
  EXPECT_EQ(L"～", Get(L"ソ", L"ソ"));
}

TEST_F(ProfileTest, ManyChangesAreOneWrite) {
  Write("[A]\nx=1\n");
  EXPECT_TRUE(WriteProfile(path_, {{L"A", L"x", L"2"}, {L"B", L"y", L"3"}, {L"A", L"x", L"4"}}));
  EXPECT_EQ("[A]\nx=4\n[B]\ny=3\n", Bytes());
  EXPECT_FALSE(WriteProfile(path_, {{L"A", L"x", L"5"}, {L"A", L"y", L"1\nz=2"}}));
  EXPECT_EQ(kErrorInvalidParameter, GetLastError());
  EXPECT_EQ("[A]\nx=4\n[B]\ny=3\n", Bytes()) << "all or nothing";
}

TEST_F(ProfileTest, TheFileItselfStays) {
  Write("[A]\nx=1\n");
  fs::create_hard_link(native_, temp_.native("twin"));
  const auto long_ago = fs::last_write_time(native_) - std::chrono::hours(1);
  fs::last_write_time(native_, long_ago);
  EXPECT_TRUE(Set(L"A", L"x", L"1"));
  EXPECT_GT(fs::last_write_time(native_), long_ago) << "an unchanged value is a write too";
  EXPECT_TRUE(Set(L"A", L"more", std::wstring(9000, L'x')));
  EXPECT_EQ("[A]\nx=1\nmore=" + std::string(9000, 'x') + "\n", ReadNative(temp_.native("twin")));
}

// And a file that was replaced meanwhile is opened anew.
TEST_F(ProfileTest, AWriterWaitsAReaderNotForEver) {
  Write("[A]\nx=1\n");
  WriteNative(temp_.native("other"), "[A]\ny=1\n");
  const FileDescriptor file(open(native_.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_TRUE(SetFileLock(file.get(), F_WRLCK));
  EXPECT_EQ(L"1", Get(L"A", L"x"));
  ChildProcess writer([&] { return Set(L"A", L"x", L"2") ? 0 : 1; });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  fs::rename(temp_.native("other"), native_);
  ASSERT_TRUE(SetFileLock(file.get(), F_UNLCK));
  EXPECT_EQ(0, writer.Wait());
  EXPECT_EQ("[A]\ny=1\nx=2\n", Bytes());
}

// A writer of several memory pages that was killed leaves a second copy behind the text.
TEST_F(ProfileTest, ACopyStandsForTheTextWhenItIsWhole) {
  const std::string rest = std::string(5004, ';') + "\n[B]\n";
  const std::string old_text = "[A]\nx=1\n" + rest;
  const std::string new_text = "[A]\nx=2\n";
  // Cut in front of the copy, the file ends in a mark, behind the end of the text and NULs that would
  // be a size of ten.
  ASSERT_EQ(9U, old_text.size() % 16);
  for (const std::size_t cut : {std::size_t{0}, std::size_t{1}, 25 + new_text.size()}) {
    Write(old_text);
    const FileDescriptor file(open(native_.c_str(), O_RDWR));
    ASSERT_TRUE(
        internal::AppendSpareCopy(file.get(), old_text.size(), new_text.data(), new_text.size()));
    fs::resize_file(native_, fs::file_size(native_) - cut);
    EXPECT_EQ(cut == 0 ? L"2" : L"1", Get(L"A", L"x")) << cut;
    const Profile foreign = Profile::FromText(DecodeProfile(Bytes()).value_or(L""));
    EXPECT_EQ(L"1", foreign.GetString(L"A", L"x", L"", kEnough)) << "for who knows of no copies";
    EXPECT_TRUE(Set(L"A", L"y", L""));
    EXPECT_EQ(cut == 0 ? new_text + "y=\n" : "[A]\nx=1\ny=\n" + rest, Bytes()) << cut;
  }
}

// It would end the file there.
TEST_F(ProfileTest, NoValueCanBeTheMarkOfACopy) {
  Write("");
  const FileDescriptor file(open(native_.c_str(), O_RDWR));
  ASSERT_TRUE(internal::AppendSpareCopy(file.get(), 0, "", 0));
  const std::string mark = Bytes().substr(fs::file_size(native_) - 16);
  std::vector<std::wstring> values = {*DecodeText(kCodePage932, mark), L"", L""};
  for (std::size_t i = 0; i + 1 < mark.size(); ++i) {
    values[1 + i % 2] += static_cast<wchar_t>(static_cast<unsigned char>(mark[i]) |
                                              static_cast<unsigned char>(mark[i + 1]) << 8);
  }
  for (const unsigned code_page : {kCodePageUtf8, kCodePageUtf16Le, kCodePage932}) {
    for (const std::wstring& value : values) {
      EXPECT_EQ(std::string::npos, EncodeText(code_page, value)->find(mark)) << code_page;
    }
  }
}

}  // namespace
}  // namespace vk::tq::testing
