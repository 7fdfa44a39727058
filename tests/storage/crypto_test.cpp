#include "storage/crypto.h"

#include <openssl/evp.h>

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

namespace fs = std::filesystem;
using namespace std::string_literals;

constexpr std::size_t kChunk = 0x100000;

CByteArray ToArray(std::string_view bytes) {
  CByteArray array;
  array.SetSize(static_cast<int>(bytes.size()));
  std::copy(bytes.begin(), bytes.end(), array.begin());
  return array;
}

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

  CString Read(std::string_view name) {
    CString text;
    EXPECT_EQ(crypto_.CryptingStringReader(path(FromUtf8(name)), text), 0);
    return text;
  }
  void Write(const CString& text, std::string_view name) {
    EXPECT_EQ(crypto_.CryptingStringWriter(text, path(FromUtf8(name))), 0);
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
    Write(text, "string");
    EXPECT_EQ(Read("string"), text);
    const std::string data = is_long ? ToUtf8(text) : FromHex(TextOf(row.at("data")));
    WriteNative(native("data"), data);
    ASSERT_EQ(crypto_.CryptFileMake(path(L"data"), path(L"file")), 0);
    ASSERT_EQ(crypto_.DecryptFileMake(path(L"file"), path(L"back")), 0);
    const std::string file = ReadNative(native("file"));
    std::string back = data;
    back.resize(file.size());
    EXPECT_TRUE(ReadNative(native("back")) == back);

    if (is_long) {
      EXPECT_EQ(HexOfSha256(ReadNative(native("string"))), TextOf(row.at("string_file_sha256")));
      EXPECT_EQ(HexOfSha256(file), TextOf(row.at("source_file_sha256")));
      continue;
    }
    EXPECT_EQ(ToHex(CryptoTestAccess::KeyBytes(crypto_)), TextOf(row.at("key_bytes")));
    EXPECT_EQ(ToHex(ReadNative(native("string"))), TextOf(row.at("string_file")));
    EXPECT_EQ(ToHex(file), TextOf(row.at("source_file")));
    CByteArray cipher;
    crypto_.EncryptByTripleDesToByteArray(text, cipher);
    EXPECT_EQ(ToHex(std::string(cipher.begin(), cipher.end())), TextOf(row.at("text_to_bytes")));
    EXPECT_EQ(crypto_.DecryptByTripleDESToByteArray(cipher), text);
  }
}

// ---- Hash and key ----

// As many bytes are hashed as the text has characters: here those of "AB" and of half the second
// text. Plain ASCII is in storage.jsonl.
TEST_F(CryptoTest, TakesTheKeyFileAsTextUpToItsNul) {
  const ScopedEnvironment japanese("TQ_ANSI_CODEPAGE", "932");
  const std::pair<std::string, std::string> cases[] = {
      {"AB\0CD"s, "BF8C6"}, {"\x93\xFA\x96\x7B", "2EA4"}, {"\0"s, "\0"s}};
  for (const auto& [key_file, key_bytes] : cases) {
    WriteKeyFile(key_file);
    EXPECT_EQ(CryptoTestAccess::KeyBytes(crypto_), key_bytes);
  }
}

// 33 bytes are accepted: storage.jsonl. With nothing to cipher the key is not looked at.
TEST_F(CryptoTest, RefusesABadKeyFileBeforeItChangesAnything) {
  Write(L"old", "string");
  WriteNative(native("plain"), "plain");
  const std::string old = ReadNative(native("string"));
  CByteArray bytes = ToArray("kept");
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
  EXPECT_EQ(bytes, ToArray("kept"));
  EXPECT_EQ(text, L"kept");
  EXPECT_EQ(ReadNative(native("string")), old);
  WriteNative(native("plain"), "");
  EXPECT_EQ(crypto_.CryptFileMake(path(L"plain"), path(L"string")), 0);
}

// ---- Bytes and texts ----

// Cipher bytes are no text: the form is only that of the interface.
TEST_F(CryptoTest, ATextEndsAtItsNulAndItsStringFormIsReadAsUtf8) {
  CByteArray cipher;
  crypto_.EncryptByTripleDesToByteArray(std::wstring(L"text\0x", 6), cipher);
  CByteArray bytes;
  crypto_.EncryptByTripleDesToByteArrayByte(ToArray("text\0"s), bytes);
  EXPECT_EQ(cipher, bytes);
  const std::string form(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
  EXPECT_EQ(crypto_.EncryptByTripleDES(L"text"), FromUtf8(form));
  EXPECT_EQ(crypto_.DecryptByTripleDES(L"0123456789abcdef"),
            crypto_.DecryptByTripleDESToByteArray(ToArray("0123456789abcdef\0"s)));
}

// ---- Enciphered texts ----

TEST_F(CryptoTest, WhatIsNoCharacterIsReplacedAndTheReaderAppends) {
  Write({L'a', 0xD800, L'b', 0x110000, L'\0', L'c'}, "string");
  CString text = L"before ";
  EXPECT_EQ(crypto_.CryptingStringReader(path(L"string"), text), 0);
  EXPECT_EQ(text, L"before a\uFFFDb\uFFFD") << "up to the NUL";
}

// A character may be cut at each of its bytes, and so may the NUL.
TEST_F(CryptoTest, CharacterThatTwoChunksShareComesBackWhole) {
  const std::pair<std::size_t, const wchar_t*> cases[] = {
      {0, L""},   {1, L""},           {1, L"é"},         {1, L"日"},
      {2, L"日"}, {1, L"\U0001F600"}, {3, L"\U0001F600"}};
  const CString start = FromUtf8(Varied(kChunk));
  for (const auto& [back, character] : cases) {
    const CString text = start.substr(0, kChunk - back) + character;
    Write(text, "string");
    const std::uint64_t size = ToUtf8(text).size() + 1;
    EXPECT_EQ(fs::file_size(native("string")), (size + 15) / 16 * 16);
    EXPECT_TRUE(Read("string") == text) << back;
  }
}

TEST_F(CryptoTest, ReaderStopsAtTheFirstNulOfTheWholeFile) {
  Write(FromUtf8(Varied(3 * kChunk)), "old");
  for (const std::size_t length : {std::size_t{0}, std::size_t{20}, kChunk - 1, kChunk + 5}) {
    const CString text(length, L'n');
    Write(text, "new");
    const std::string written = ReadNative(native("new"));
    // A writer that was killed before it cut the file.
    WriteNative(native("string"), written + ReadNative(native("old")).substr(written.size()));
    EXPECT_TRUE(Read("string") == text) << length;
    // One that was killed when it had reserved the length.
    WriteNative(native("string"), written + std::string(2 * kChunk, '\0'));
    EXPECT_TRUE(Read("string") == text) << length;
  }
}

TEST_F(CryptoTest, FailuresOfFilesLeaveErrno) {
  Write(L"text", "string");
  WriteNative(native("data"), "source");
  fs::create_hard_link(native("data"), native("hard"));
  fs::create_symlink(native("data"), native("soft"));
  const auto fails = [&](int error, int result) {
    EXPECT_EQ(result, 1);
    EXPECT_EQ(crypto_.m_nLastError, error);
    crypto_.m_nLastError = 0;
  };
  CString text = L"kept";
  fails(ENOENT, crypto_.CryptingStringReader(path(L"none"), text));
  fails(EACCES, crypto_.CryptingStringReader(temp_.path(), text));
  fails(ENOENT, crypto_.CryptingStringWriter(L"text", path(L"none\\target")));
  fails(EACCES, crypto_.CryptingStringWriter(L"text", temp_.path()));
  for (const auto make : {&CCrypto::CryptFileMake, &CCrypto::DecryptFileMake}) {
    fails(ENOENT, (crypto_.*make)(path(L"none"), path(L"target")));
    fails(EACCES, (crypto_.*make)(path(L"string"), temp_.path()));
    for (const wchar_t* source : {L"data", L"hard", L"soft", L".\\data"}) {
      fails(EINVAL, (crypto_.*make)(path(L"data"), path(source)));
    }
  }
  EXPECT_EQ(ReadNative(native("data")), "source");
  EXPECT_EQ(text, L"kept");
  crypto_.m_nLastError = EACCES;
  Write(L"text", "string");
  EXPECT_EQ(crypto_.m_nLastError, EACCES) << "a success does not reset it";
  EXPECT_THAT(log_.lines(), ::testing::IsEmpty());
}

}  // namespace
}  // namespace testing
}  // namespace vk::tq
