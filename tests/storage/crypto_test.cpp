#include "storage/crypto.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>

#include "support/json.h"
#include "support/test_support.h"

namespace vk::tq {

// Reaches what callers do not see.
class CryptoTestAccess {
 public:
  static std::string KeyBytes(CCrypto& crypto) {
    CByteArray key;
    crypto.GetBytesKey(key);
    return {key.begin(), key.end()};
  }
};

namespace testing {
namespace {

using namespace std::string_literals;

constexpr std::size_t kChunk = 0x100000;

std::string HexOfSha256(std::string_view bytes) {
  std::string digest(32, '\0');
  EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()), nullptr,
             EVP_sha256(), nullptr);
  return ToHex(digest);
}

// A text without two equal neighbourhoods, of characters of one byte.
std::string Varied(std::size_t length) {
  std::string text(length, '\0');
  for (std::size_t i = 0; i < length; ++i) text[i] = "0123456789abcdef"[(i * 7 + i / 251) % 16];
  return text;
}

class CryptoTest : public ProductTest {
 protected:
  CryptoTest() { WriteKeyFile(); }

  CString Read() {
    CString text;
    EXPECT_EQ(crypto_.CryptingStringReader(path(L"string"), text), 0);
    return text;
  }
  // The bytes of the file in which a text was written.
  std::string Write(const CString& text) {
    EXPECT_EQ(crypto_.CryptingStringWriter(text, path(L"string")), 0);
    return ReadNative(native("string"));
  }

  CCrypto crypto_;
};

TEST_F(CryptoTest, GivesTheBytesThatWereComputedIndependently) {
  for (const Json& row : ReadJsonLines(TQ_TEST_DATA "/storage.jsonl")) {
    RemoveKeyFile();
    if (!row.at("key_file").is_null()) WriteKeyFile(TextOf(row.at("key_file")));
    const bool is_long = row.contains("repeat");
    const CString text =
        FromUtf8(is_long ? Varied(row.at("length").get<std::size_t>()) : TextOf(row.at("text")));
    const std::string string = Write(text);
    EXPECT_EQ(Read(), text);
    const std::string data = is_long ? ToUtf8(text) : FromHex(TextOf(row.at("data")));
    WriteNative(native("data"), data);
    ASSERT_EQ(crypto_.CryptFileMake(path(L"data"), path(L"file")), 0);
    ASSERT_EQ(crypto_.DecryptFileMake(path(L"file"), path(L"back")), 0);
    const std::string file = ReadNative(native("file"));
    std::string back = data;
    back.resize(file.size());
    EXPECT_TRUE(ReadNative(native("back")) == back);

    if (is_long) {
      EXPECT_EQ(HexOfSha256(string), TextOf(row.at("string_file_sha256")));
      EXPECT_EQ(HexOfSha256(file), TextOf(row.at("source_file_sha256")));
      continue;
    }
    EXPECT_EQ(ToHex(CryptoTestAccess::KeyBytes(crypto_)), TextOf(row.at("key_bytes")));
    EXPECT_EQ(ToHex(string), TextOf(row.at("string_file")));
    EXPECT_EQ(ToHex(file), TextOf(row.at("source_file")));
    CByteArray cipher;
    crypto_.EncryptByTripleDesToByteArray(text, cipher);
    EXPECT_EQ(ToHex(std::string(cipher.begin(), cipher.end())), TextOf(row.at("text_to_bytes")));
    EXPECT_EQ(crypto_.DecryptByTripleDESToByteArray(cipher), text);
    // Cipher bytes are no text: that form is only there for the interface.
    cipher.Add(0);
    EXPECT_EQ(crypto_.EncryptByTripleDES(text),
              FromUtf8(std::string(cipher.begin(), std::ranges::find(cipher, 0))));
  }
}

// As many bytes are hashed as the text has characters: here those of "AB" and of half the second
// text.
TEST_F(CryptoTest, TakesTheKeyFileAsTextUpToItsNul) {
  const ScopedEnvironment japanese("TQ_ANSI_CODEPAGE", "932");
  const std::pair<std::string, std::string> cases[] = {
      {"AB\0CD"s, "BF8C6"}, {"\x93\xFA\x96\x7B", "2EA4"}, {"\0"s, "\0"s}};
  for (const auto& [key_file, key_bytes] : cases) {
    WriteKeyFile(key_file);
    EXPECT_EQ(CryptoTestAccess::KeyBytes(crypto_), key_bytes);
  }
}

TEST_F(CryptoTest, RefusesABadKeyFileBeforeItChangesAnything) {
  const std::string old = Write(L"old");
  WriteNative(native("plain"), "plain");
  CByteArray bytes;
  CString text = L"kept";
  const std::function<void()> operations[] = {
      [&] { crypto_.EncryptByTripleDesToByteArray(L"x", bytes); },
      [&] { crypto_.CryptingStringWriter(L"new", path(L"string")); },
      [&] { crypto_.CryptingStringReader(path(L"string"), text); },
      [&] { crypto_.CryptFileMake(path(L"plain"), path(L"string")); },
      [&] { crypto_.DecryptFileMake(path(L"plain"), path(L"string")); }};
  for (const std::string& key : {std::string(34, 'k'), "\0abcdef"s}) {
    WriteKeyFile(key);
    for (const auto& operation : operations) EXPECT_THROW(operation(), CInvalidArgException);
  }
  EXPECT_TRUE(bytes.IsEmpty());
  EXPECT_EQ(text, L"kept");
  EXPECT_EQ(ReadNative(native("string")), old);
}

// A character may be cut at each of its bytes, and so may the NUL.
TEST_F(CryptoTest, LongTextsComeBackWholeWhateverFollowsTheirNul) {
  const std::pair<std::size_t, const wchar_t*> cases[] = {
      {kChunk, L""}, {0, L""},   {1, L""},           {1, L"é"},
      {1, L"日"},    {2, L"日"}, {1, L"\U0001F600"}, {3, L"\U0001F600"}};
  const CString start = FromUtf8(Varied(kChunk));
  const std::string old = Write(start + start + start);
  for (const auto& [back, character] : cases) {
    const CString text = start.substr(0, kChunk - back) + character;
    const std::string written = Write(text);
    EXPECT_EQ(written.size(), (ToUtf8(text).size() + 16) / 16 * 16);
    // What writers leave that were killed: the rest of a longer text, and reserved space.
    for (const std::string& rest : {""s, old.substr(written.size()), std::string(kChunk, '\0')}) {
      WriteNative(native("string"), written + rest);
      EXPECT_TRUE(Read() == text) << back;
    }
  }
}

TEST_F(CryptoTest, FailuresOfFilesLeaveErrno) {
  Write(L"text");
  std::filesystem::create_hard_link(native("string"), native("hard"));
  const auto fails = [&](int error, int result) {
    EXPECT_EQ(result, 1);
    EXPECT_EQ(crypto_.m_nLastError, error);
  };
  CString text = L"kept";
  fails(ENOENT, crypto_.CryptingStringReader(path(L"none"), text));
  fails(EACCES, crypto_.CryptingStringWriter(L"text", temp_.path()));
  for (const auto make : {&CCrypto::CryptFileMake, &CCrypto::DecryptFileMake}) {
    fails(ENOENT, (crypto_.*make)(path(L"none"), path(L"target")));
    fails(EACCES, (crypto_.*make)(path(L"string"), temp_.path()));
    fails(EINVAL, (crypto_.*make)(path(L"string"), path(L"hard")));
  }
  EXPECT_EQ(Read() + text, L"textkept");
}

}  // namespace
}  // namespace testing
}  // namespace vk::tq
