/// MD5 and AES.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>

namespace vk::tq {

using Md5Digest = std::array<unsigned char, 16>;

/// The MD5 digest of the data (RFC 1321); nothing when the machine does not offer it.
std::optional<Md5Digest> Md5(std::span<const unsigned char> data);

inline constexpr std::size_t kAesBlockSize = 16;

using AesKey = std::array<unsigned char, 32>;
using AesBlock = std::array<unsigned char, kAesBlockSize>;

/// AES-256 (FIPS 197) in CBC mode (NIST SP 800-38A) over whole blocks, without padding. The output
/// is as long as the input and may be the same memory. False when the input is no whole number of
/// blocks, or the cipher fails.
bool AesCbcEncrypt(const AesKey& key, const AesBlock& initial, std::span<const unsigned char> input,
                   unsigned char* output);
bool AesCbcDecrypt(const AesKey& key, const AesBlock& initial, std::span<const unsigned char> input,
                   unsigned char* output);

}  // namespace vk::tq
