#include "platform/cipher.h"

#include <stdexcept>
#include <vector>

#include "support/test_support.h"

namespace vk::tq::testing {
namespace {

std::vector<unsigned char> Bytes(std::string_view hex) {
  const std::string bytes = FromHex(hex);
  return {bytes.begin(), bytes.end()};
}

// NIST SP 800-38A, F.2.5 and F.2.6.
TEST(CipherTest, AesCbcOfEachRunStartsFromTheInitialBlock) {
  const auto key = Bytes("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
  const auto initial = Bytes("000102030405060708090a0b0c0d0e0f");
  const auto plain = Bytes("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51");
  const auto cipher = Bytes("f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d");
  const auto make = [&](CipherDirection direction) {
    return AesCbc(direction, std::span<const unsigned char, kAesKeySize>(key),
                  std::span<const unsigned char, kAesBlockSize>(initial));
  };
  AesCbc encrypt = make(CipherDirection::kEncrypt);
  AesCbc decrypt = make(CipherDirection::kDecrypt);
  for (int run = 0; run < 2; ++run) {
    std::vector<unsigned char> bytes = plain;
    encrypt.Run(bytes, bytes.data());  // in place
    EXPECT_EQ(cipher, bytes);
    decrypt.Run(cipher, bytes.data());
    EXPECT_EQ(plain, bytes);
  }
  std::vector<unsigned char> odd(17);
  EXPECT_THROW(encrypt.Run(odd, odd.data()), std::invalid_argument);
}

}  // namespace
}  // namespace vk::tq::testing
