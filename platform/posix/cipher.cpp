#include "platform/cipher.h"

#include <openssl/evp.h>

#include <algorithm>
#include <stdexcept>

#include "platform/secure_memory.h"

namespace vk::tq {
namespace {

// What one call of the cipher takes at most; its lengths are ints.
constexpr std::size_t kLongestPiece = std::size_t{1} << 30;

void Require(bool is_done) {
  if (!is_done) throw std::runtime_error("AES-256-CBC or MD5 is not available");
}

template <class Algorithm>
const Algorithm* Available(Algorithm* algorithm) {
  Require(algorithm != nullptr);
  return algorithm;
}

// Looked up once, since each look-up searches the providers. One that fails may have lacked memory:
// as it throws, the next call looks again.
const EVP_MD* Md5Algorithm() {
  static const EVP_MD* const algorithm = Available(EVP_MD_fetch(nullptr, "MD5", nullptr));
  return algorithm;
}

const EVP_CIPHER* AesAlgorithm() {
  static const EVP_CIPHER* const algorithm =
      Available(EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr));
  return algorithm;
}

}  // namespace

std::optional<Md5Digest> Md5(std::span<const unsigned char> data) {
  Md5Digest digest{};
  try {
    Require(EVP_Digest(data.data(), data.size(), digest.data(), nullptr, Md5Algorithm(), nullptr) ==
            1);
  } catch (const std::runtime_error&) {
    return {};
  }
  return digest;
}

struct AesCbc::Impl {
  struct Free {
    void operator()(EVP_CIPHER_CTX* made) const { EVP_CIPHER_CTX_free(made); }
  };
  std::unique_ptr<EVP_CIPHER_CTX, Free> context{EVP_CIPHER_CTX_new()};
  std::array<unsigned char, kAesBlockSize> initial{};

  Impl() = default;
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;
  ~Impl() { SecureZero(initial.data(), initial.size()); }
};

AesCbc::AesCbc(CipherDirection direction, std::span<const unsigned char, kAesKeySize> key,
               std::span<const unsigned char, kAesBlockSize> initial)
    : impl_(std::make_unique<Impl>()) {
  std::ranges::copy(initial, impl_->initial.begin());
  EVP_CIPHER_CTX* const context = impl_->context.get();
  Require(context != nullptr);
  Require(EVP_CipherInit_ex2(context, AesAlgorithm(), key.data(), initial.data(),
                             direction == CipherDirection::kEncrypt ? 1 : 0, nullptr) == 1);
  Require(EVP_CIPHER_CTX_set_padding(context, 0) == 1);
}

AesCbc::AesCbc(AesCbc&&) noexcept = default;

AesCbc::~AesCbc() = default;

void AesCbc::Run(std::span<const unsigned char> input, unsigned char* output) {
  if (input.size() % kAesBlockSize != 0) throw std::invalid_argument("no whole blocks");
  EVP_CIPHER_CTX* const context = impl_->context.get();
  Require(EVP_CipherInit_ex2(context, nullptr, nullptr, impl_->initial.data(), -1, nullptr) == 1);
  while (!input.empty()) {
    const std::size_t piece = std::min(input.size(), kLongestPiece);
    int done = 0;
    Require(EVP_CipherUpdate(context, output, &done, input.data(), static_cast<int>(piece)) == 1 &&
            static_cast<std::size_t>(done) == piece);
    input = input.subspan(piece);
    output += piece;
  }
}

}  // namespace vk::tq
