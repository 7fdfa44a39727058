#include "storage/crypto.h"

#include <cerrno>

#include "support/json.h"
#include "support/test_support.h"

namespace vk::tq {

// Reaches the key bytes.
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

std::string FromArray(const CByteArray& bytes) { return {bytes.begin(), bytes.end()}; }

class CryptoTest : public ProductTest {
 protected:
  CCrypto crypto_;
};

TEST_F(CryptoTest, GivesTheBytesThatWereComputedIndependently) {
  for (const Json& row : ReadJsonLines(TQ_TEST_DATA "/storage.jsonl")) {
    if (row.Has("repeat")) continue;
    if (row["key_file"].is_null()) {
      RemoveKeyFile();
    } else {
      WriteKeyFile(row["key_file"].text);
    }
    const CString text = FromUtf8(row["text"].text);
    EXPECT_EQ(ToHex(CryptoTestAccess::KeyBytes(crypto_)), row["key_bytes"].text);

    CByteArray cipher;
    crypto_.EncryptByTripleDesToByteArray(text, cipher);
    EXPECT_EQ(ToHex(FromArray(cipher)), row["text_to_bytes"].text);
    EXPECT_EQ(crypto_.DecryptByTripleDESToByteArray(cipher), text);

    ASSERT_EQ(crypto_.CryptingStringWriter(text, path(L"string")), 0);
    EXPECT_EQ(ToHex(ReadNative(native("string"))), row["string_file"].text);
    CString read;
    EXPECT_EQ(crypto_.CryptingStringReader(path(L"string"), read), 0);
    EXPECT_EQ(read, text);

    WriteNative(native("data"), FromHex(row["data"].text));
    ASSERT_EQ(crypto_.CryptFileMake(path(L"data"), path(L"file")), 0);
    EXPECT_EQ(ToHex(ReadNative(native("file"))), row["source_file"].text);
    ASSERT_EQ(crypto_.DecryptFileMake(path(L"file"), path(L"back")), 0);
    std::string back = FromHex(row["data"].text);
    back.resize(ReadNative(native("file")).size());
    EXPECT_EQ(ReadNative(native("back")), back);
  }
}

}  // namespace
}  // namespace testing
}  // namespace vk::tq
