#include "storage/crypto.h"

#include <openssl/evp.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include "platform/cipher.h"
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

constexpr std::size_t kChunk = 0x100000;

CByteArray ToArray(std::string_view bytes) {
  CByteArray array;
  array.SetSize(static_cast<int>(bytes.size()));
  std::copy(bytes.begin(), bytes.end(), array.begin());
  return array;
}

std::string FromArray(const CByteArray& bytes) { return {bytes.begin(), bytes.end()}; }

std::string UpperHexOfMd5(std::string_view bytes) {
  const Md5Digest digest =
      *Md5({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
  std::string hex = ToHex(std::string(digest.begin(), digest.end()));
  for (char& c : hex) c = static_cast<char>(std::toupper(c));
  return hex;
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

  std::string Encrypt(std::string_view plain) {
    CByteArray cipher;
    crypto_.EncryptByTripleDesToByteArrayByte(ToArray(plain), cipher);
    return FromArray(cipher);
  }
  std::string Decrypt(std::string_view cipher) {
    CByteArray plain;
    crypto_.DecryptByTripleDESByte(ToArray(cipher), plain);
    return FromArray(plain);
  }
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
    if (row.at("key_file").is_null()) {
      RemoveKeyFile();
    } else {
      WriteKeyFile(TextOf(row.at("key_file")));
    }
    const bool is_long = row.contains("repeat");
    const CString text =
        is_long ? FromUtf8(Varied(static_cast<std::size_t>(row.at("length").get<int>())))
                : FromUtf8(TextOf(row.at("text")));
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
    EXPECT_EQ(ToHex(FromArray(cipher)), TextOf(row.at("text_to_bytes")));
    EXPECT_EQ(crypto_.DecryptByTripleDESToByteArray(cipher), text);
  }
}

// ---- Hash and key ----

TEST_F(CryptoTest, HashesAsManyBytesAsTheTextHasCharacters) {
  const ScopedEnvironment japanese("TQ_ANSI_CODEPAGE", "932");
  EXPECT_EQ(ToUtf8(crypto_.ComputeHash(L"日本")), UpperHexOfMd5("\x93\xFA"));
  EXPECT_EQ(crypto_.ComputeHash(std::wstring(L"\0abc", 4)), L"");
}

// Key files of plain ASCII are in storage.jsonl.
TEST_F(CryptoTest, TakesTheKeyFileAsTextUpToItsNul) {
  const ScopedEnvironment japanese("TQ_ANSI_CODEPAGE", "932");
  const std::tuple<std::string, std::string, std::vector<std::size_t>> cases[] = {
      {std::string("AB\0CD", 5), "AB", {0, 3, 1, 4, 2}},
      {"\x93\xFA\x96\x7B", "\x93\xFA", {0, 2, 1, 3}}};
  for (const auto& [key_file, hashed, digits] : cases) {
    WriteKeyFile(key_file);
    std::string expected;
    for (const std::size_t digit : digits) expected += UpperHexOfMd5(hashed)[digit];
    EXPECT_EQ(CryptoTestAccess::KeyBytes(crypto_), expected);
  }
  WriteKeyFile(std::string_view("\0", 1));
  EXPECT_EQ(CryptoTestAccess::KeyBytes(crypto_), std::string(1, '\0'));
}

// 33 bytes are accepted: storage.jsonl.
TEST_F(CryptoTest, RefusesABadKeyFileBeforeItChangesAnything) {
  Write(L"old", "string");
  WriteNative(native("plain"), "plain");
  WriteNative(native("target"), "target");
  const std::string old = ReadNative(native("string"));
  CByteArray bytes = ToArray("kept");
  CString text = L"kept";
  const std::function<void()> operations[] = {
      [&] { crypto_.EncryptByTripleDesToByteArrayByte({}, bytes); },
      [&] { crypto_.DecryptByTripleDESByte(bytes, bytes); },
      [&] { crypto_.EncryptByTripleDesToByteArray(L"x", bytes); },
      [&] { crypto_.DecryptByTripleDESToByteArray(bytes); },
      [&] { crypto_.CryptingStringWriter(L"new", path(L"string")); },
      [&] { crypto_.CryptingStringReader(path(L"string"), text); },
      [&] { crypto_.CryptFileMake(path(L"plain"), path(L"target")); },
      [&] { crypto_.DecryptFileMake(path(L"string"), path(L"target")); }};
  for (const std::string& key : {std::string(34, 'k'), std::string("\0abcdef", 7)}) {
    WriteKeyFile(key);
    for (const auto& operation : operations) EXPECT_THROW(operation(), CInvalidArgException);
  }
  EXPECT_EQ(bytes, ToArray("kept"));
  EXPECT_EQ(text, L"kept");
  EXPECT_EQ(ReadNative(native("string")), old);
  EXPECT_EQ(ReadNative(native("target")), "target");
  // With nothing to cipher the key is not looked at.
  WriteNative(native("plain"), "");
  EXPECT_EQ(crypto_.CryptFileMake(path(L"plain"), path(L"target")), 0);
}

// ---- Bytes and texts ----

TEST_F(CryptoTest, FillsACutCipherTextWithZeros) {
  const std::string plain = "0123456789abcdef0123456789abcdef";
  std::string cut = Encrypt(plain).substr(0, 20);
  const std::string rest = Decrypt(cut);
  EXPECT_EQ(rest.substr(0, 16), plain.substr(0, 16));
  cut.resize(32);
  EXPECT_EQ(rest, Decrypt(cut));
}

TEST_F(CryptoTest, LongRunIsNotCutIntoChunks) {
  const std::string data(2 * kChunk, 'x');
  const std::string run = Encrypt(data);
  EXPECT_TRUE(Decrypt(run) == data);
  EXPECT_FALSE(run.substr(kChunk) == run.substr(0, kChunk));
}

// Cipher bytes are no text: the form is only that of the interface.
TEST_F(CryptoTest, ATextEndsAtItsNulAndItsStringFormIsReadAsUtf8) {
  CByteArray cipher;
  crypto_.EncryptByTripleDesToByteArray(L"text", cipher);
  const std::string bytes = FromArray(cipher);
  EXPECT_EQ(bytes, Encrypt(std::string_view("text\0", 5)));
  crypto_.EncryptByTripleDesToByteArray(std::wstring(L"text\0x", 6), cipher);
  EXPECT_EQ(bytes, FromArray(cipher));
  EXPECT_EQ(crypto_.EncryptByTripleDES(L"text"), FromUtf8(bytes.substr(0, bytes.find('\0'))));
  const std::string plain = Decrypt(std::string("0123456789abcdef\0", 17));
  EXPECT_EQ(crypto_.DecryptByTripleDES(L"0123456789abcdef"),
            FromUtf8(plain.substr(0, plain.find('\0'))));
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
  const CString old = FromUtf8(Varied(3 * kChunk));
  for (const std::size_t length : {std::size_t{0}, std::size_t{20}, kChunk - 1, kChunk + 5}) {
    Write(old, "string");
    const CString text(length, L'n');
    Write(text, "new");
    // A writer that was killed before it cut the file.
    std::string bytes = ReadNative(native("string"));
    const std::string written = ReadNative(native("new"));
    bytes.replace(0, written.size(), written);
    WriteNative(native("string"), bytes);
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
  const CString folder = temp_.path();
  CString text = L"kept";
  fails(ENOENT, crypto_.CryptingStringReader(path(L"none"), text));
  fails(EACCES, crypto_.CryptingStringReader(folder, text));
  fails(ENOENT, crypto_.CryptingStringWriter(L"text", path(L"none\\target")));
  fails(EACCES, crypto_.CryptingStringWriter(L"text", folder));
  for (const auto make : {&CCrypto::CryptFileMake, &CCrypto::DecryptFileMake}) {
    fails(ENOENT, (crypto_.*make)(path(L"none"), path(L"target")));
    fails(EACCES, (crypto_.*make)(path(L"string"), folder));
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
