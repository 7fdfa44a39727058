/// MD5 and AES.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>

namespace vk::tq {

using Md5Digest = std::array<unsigned char, 16>;

/// The MD5 digest of the data (RFC 1321); nothing when the machine does not offer it.
std::optional<Md5Digest> Md5(std::span<const unsigned char> data);

inline constexpr std::size_t kAesBlockSize = 16;
inline constexpr std::size_t kAesKeySize = 32;

enum class CipherDirection { kEncrypt, kDecrypt };

/// AES-256 (FIPS 197) in CBC mode (NIST SP 800-38A) over whole blocks, without padding. The object
/// holds the expanded key, and wipes it when it goes.
class AesCbc {
 public:
  /// Throws std::runtime_error when the machine does not offer the cipher.
  AesCbc(CipherDirection direction, std::span<const unsigned char, kAesKeySize> key,
         std::span<const unsigned char, kAesBlockSize> initial);
  AesCbc(AesCbc&&) noexcept;
  AesCbc(const AesCbc&) = delete;
  AesCbc& operator=(const AesCbc&) = delete;
  AesCbc& operator=(AesCbc&&) = delete;
  ~AesCbc();

  /// One run, which starts from the initial block; each call is a run of its own. The output is as
  /// long as the input and may be the same memory. Throws std::invalid_argument when the input is
  /// no whole number of blocks, std::runtime_error when the cipher fails.
  void Run(std::span<const unsigned char> input, unsigned char* output);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vk::tq
