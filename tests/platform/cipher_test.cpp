#include "platform/cipher.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

std::vector<unsigned char> Bytes(std::string_view hex) {
  const std::string bytes = FromHex(hex);
  return {bytes.begin(), bytes.end()};
}

std::string Hex(std::span<const unsigned char> bytes) {
  return ToHex(std::string(bytes.begin(), bytes.end()));
}

// The test suite of RFC 1321.
TEST(CipherTest, Md5) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& [text, digest] : cases) {
    EXPECT_EQ(digest,
              Hex(*Md5({reinterpret_cast<const unsigned char*>(text.data()), text.size()})));
  }
}

// NIST SP 800-38A, F.2.5 and F.2.6.
class AesCbcTest : public ::testing::Test {
 protected:
  AesCbc Make(CipherDirection direction) const {
    return {direction, std::span<const unsigned char, kAesKeySize>(key_),
            std::span<const unsigned char, kAesBlockSize>(initial_)};
  }

  const std::vector<unsigned char> key_ =
      Bytes("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
  const std::vector<unsigned char> initial_ = Bytes("000102030405060708090a0b0c0d0e0f");
  const std::vector<unsigned char> plain_ = Bytes(
      "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
      "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
  const std::vector<unsigned char> cipher_ = Bytes(
      "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
      "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b");
};

TEST_F(AesCbcTest, EachRunStartsFromTheInitialBlock) {
  AesCbc encrypt = Make(CipherDirection::kEncrypt);
  AesCbc decrypt = Make(CipherDirection::kDecrypt);
  for (int run = 0; run < 2; ++run) {
    std::vector<unsigned char> output(plain_.size());
    encrypt.Run(plain_, output.data());
    EXPECT_EQ(cipher_, output);
    decrypt.Run(cipher_, output.data());
    EXPECT_EQ(plain_, output);
  }
}

TEST_F(AesCbcTest, WorksInPlaceAndWhenMoved) {
  std::vector<unsigned char> bytes = plain_;
  AesCbc made = Make(CipherDirection::kEncrypt);
  AesCbc encrypt = std::move(made);
  encrypt.Run(bytes, bytes.data());
  EXPECT_EQ(cipher_, bytes);
  encrypt.Run({}, nullptr);
}

TEST_F(AesCbcTest, RefusesWhatIsNoWholeNumberOfBlocks) {
  std::vector<unsigned char> bytes(17);
  EXPECT_THROW(Make(CipherDirection::kEncrypt).Run(bytes, bytes.data()), std::invalid_argument);
  EXPECT_EQ(std::vector<unsigned char>(17), bytes);
}

}  // namespace
}  // namespace vk::tq::testing
