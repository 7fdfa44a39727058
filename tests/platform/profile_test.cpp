#include "platform/profile.h"

#include <fcntl.h>

#include <sstream>

#include "platform/error.h"
#include "platform/posix/native.h"
#include "support/json.h"
#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

using namespace std::string_literals;

constexpr std::size_t kEnough = 1024;

class ProfileTest : public ProductTest {
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
  std::string Changed(std::string_view bytes, std::wstring_view section,
                      std::wstring_view value) const {
    Write(bytes);
    EXPECT_TRUE(Set(section, L"k", value));
    return Bytes();
  }

  const std::string native_ = native("file.ini");
  const std::wstring path_ = path(L"file.ini");
};

// A recorded list: NUL behind each name, the last of which may be cut.
std::vector<std::wstring> Names(const Json& list) {
  std::vector<std::wstring> names;
  std::istringstream text(TextOf(list));
  for (std::string name; std::getline(text, name, '\0');) names.push_back(FromUtf8(name));
  return names;
}

TEST_F(ProfileTest, AnswersAsRecorded) {
  const auto wide = [](const Json& json, std::string_view name) {
    return FromUtf8(TextOf(json.at(name)));
  };
  for (const Json& row : ReadJsonLines(TQ_TEST_DATA "/profile.jsonl")) {
    Write(FromHex(TextOf(row.at("file"))));
    const Profile profile(path_);
    SCOPED_TRACE(row.dump());
    for (const Json& get : row.at("get")) {
      const std::wstring section = wide(get, "section");
      const std::wstring key = wide(get, "key");
      const auto size = get.at("size").get<std::size_t>();
      EXPECT_EQ(wide(get, "value"), profile.GetString(section, key, L"<def>", size)) << get;
      EXPECT_EQ(get.at("int").get<int>(), profile.GetInt(section, key, -3)) << get;
    }
    const std::wstring keys_of = wide(row, "keys_of");
    EXPECT_EQ(Names(row.at("sections")), profile.SectionNames(kEnough));
    EXPECT_EQ(Names(row.at("keys")), profile.KeyNames(keys_of, kEnough));
    EXPECT_EQ(Names(row.at("keys_12")), profile.KeyNames(keys_of, 12));
    for (const Json& set : row.at("set")) {
      const std::wstring section = wide(set, "section");
      const std::wstring key = wide(set, "key");
      EXPECT_EQ(set.at("ok").get<int>() == 1, Set(section, key, wide(set, "value"))) << set;
      EXPECT_EQ(wide(set, "reads_back"), Get(section, key)) << set;
    }
  }
}

TEST_F(ProfileTest, AChangeKeepsEveryOtherByte) {
  const std::tuple<std::string, const wchar_t*, std::string> cases[] = {
      {"", L"S", "[S]\r\nk=new\r\n"},
      {"; c\n[S]\n K  = \"old\" ;x\nk=2", L"s", "; c\n[S]\n K  = new\nk=2"},
      {"[S]\na=1\n\n; of T\n[T]\n", L"S", "[S]\na=1\nk=new\n\n; of T\n[T]\n"},
      {"[A]\nk=1\n\n", L"S", "[A]\nk=1\n\n[S]\nk=new\n"},
      {"\xEF\xBB\xBF[\xC3\xA4]\n\xFF=\x80\n", L"Ä", "\xEF\xBB\xBF[\xC3\xA4]\n\xFF=\x80\nk=new\n"},
      {"\xFF\xFE[\0S\0]\0\n\0k\0=\0 \0o\0\n\0"s, L"s",
       "\xFF\xFE[\0S\0]\0\n\0k\0=\0 \0n\0e\0w\0\n\0"s},
      {"[S]\na=1\n\0\0\0"s, L"S", "[S]\na=1\nk=new\n"}};  // what a killed process left
  for (const auto& [before, section, after] : cases) {
    EXPECT_EQ(after, Changed(before, section, L"new"));
  }
  // The second byte of 0x83 0x5C is a backslash elsewhere.
  const ScopedEnvironment japanese("TQ_ANSI_CODEPAGE", "932");
  EXPECT_EQ("[\x83\x5C]\r\nk=\x87\x41\r\n\x83\x5C=\x81\x60\r\n",
            Changed("[\x83\x5C]\r\nk=\x87\x40\r\n\x83\x5C=\x81\x60\r\n", L"ソ", L"②"));
}

TEST_F(ProfileTest, ManyChangesAreOneWrite) {
  Write("[A]\nx=1\n");
  EXPECT_TRUE(WriteProfile(path_, {{L"A", L"x", L"2"}, {L"B", L"y", L"3"}, {L"A", L"x", L"4"}}));
  EXPECT_FALSE(WriteProfile(path_, {{L"A", L"x", L"5"}, {L"A", L"y", L"1\nz=2"}}));
  EXPECT_EQ(kErrorInvalidParameter, GetLastError());
  EXPECT_EQ("[A]\nx=4\n[B]\ny=3\n", Bytes()) << "all or nothing";
}

// And a file that was replaced meanwhile is opened anew.
TEST_F(ProfileTest, AWriterWaitsAReaderNotForEver) {
  Write("[A]\nx=1\n");
  WriteNative(native("other"), "[A]\ny=1\n");
  const FileDescriptor file(open(native_.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_TRUE(SetFileLock(file.get(), F_WRLCK));
  EXPECT_EQ(L"1", Get(L"A", L"x"));
  ChildProcess writer([&] { return Set(L"A", L"x", L"2") ? 0 : 1; });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  std::filesystem::rename(native("other"), native_);
  ASSERT_TRUE(SetFileLock(file.get(), F_UNLCK));
  EXPECT_EQ(0, writer.Wait());
  EXPECT_EQ("[A]\ny=1\nx=2\n", Bytes());
}

}  // namespace
}  // namespace vk::tq::testing
