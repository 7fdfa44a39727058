#include "storage/crypto.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "foundation/product_folder.h"
#include "foundation/util.h"
#include "platform/cipher.h"
#include "platform/error.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

constexpr std::size_t kChunkSize = 0x100000;

constexpr std::size_t kHashSize = 16;
// The digits of a hash and a NUL. A longer key file leaves key bytes that nothing fills.
constexpr std::uint64_t kLongestKeyFile = 2 * kHashSize + 1;

// The size rule: every run of the cipher is a whole number of blocks.
template <class Length>
constexpr Length RoundUpToBlock(Length length) {
  constexpr auto kBlock = static_cast<Length>(kAesBlockSize);
  return (length + kBlock - 1) / kBlock * kBlock;
}
static_assert(RoundUpToBlock(kChunkSize) == kChunkSize);

// A text ends at its first NUL.
template <class Text>
Text UpToNul(Text text) {
  return text.substr(0, text.find(typename Text::value_type{}));
}

std::string_view CharactersOf(const unsigned char* bytes, std::size_t size) {
  return {reinterpret_cast<const char*>(bytes), size};
}

CByteArray RunAsOne(AesCbc cipher, const CByteArray& input, int output_size) {
  CByteArray output;
  output.SetSize(output_size);
  std::copy(input.begin(), input.end(), output.begin());
  cipher.Run({output.GetData(), static_cast<std::size_t>(output_size)}, output.GetData());
  return output;
}

// Reads a file chunk by chunk, as far as it went when it was opened: what is appended meanwhile is
// left out, what is cut off is missing. The chunk lies in a buffer that is wiped; zeros follow it
// up to a whole block, at least one of them behind a chunk that is not full.
class ChunkReader {
 public:
  bool Open(const CString& path) {
    FileStatus status;
    if (!file_.Open(path, status)) return false;
    size_ = left_ = status.size;
    buffer_.resize(std::min<std::uint64_t>(kChunkSize, RoundUpToBlock(size_ + 1)));
    return true;
  }

  std::uint64_t size() const { return size_; }
  std::uint64_t left() const { return left_; }  // bytes behind the current chunk
  unsigned char* data() { return buffer_.data(); }

  // The number of bytes in the next chunk, 0 at the end of the file; nothing on an error.
  std::optional<std::size_t> Next() {
    const std::size_t wanted = std::min<std::uint64_t>(left_, kChunkSize);
    const std::optional<std::size_t> got = file_.Read(data(), wanted);
    if (!got) return {};
    left_ = *got < wanted ? 0 : left_ - wanted;
    std::fill(data() + *got, data() + std::min(RoundUpToBlock(*got + 1), buffer_.size()),
              static_cast<unsigned char>(0));
    return got;
  }

 private:
  InputFile file_;
  std::uint64_t size_ = 0;
  std::uint64_t left_ = 0;
  SecureBytes buffer_;
};

// The cipher bytes of a source file's last data are marked by a zero byte, unless they fill their
// chunk.
template <class Length>
constexpr Length MarkedLength(Length length) {
  return length % kChunkSize == 0 ? length : RoundUpToBlock(length + 1);
}

}  // namespace

CCrypto::CCrypto() : m_strKeyFile(CString(kProductFolder) + L"\\config\\data.dat") {}

// ---- Conversions ----

int CCrypto::GetByteArraySize(int length) {
  const std::int64_t size = RoundUpToBlock<std::int64_t>(length);
  if (size > std::numeric_limits<int>::max()) throw CInvalidArgException();
  return static_cast<int>(size);
}

int CCrypto::GetBytes(unsigned code_page, const CString& text, CByteArray& bytes) {
  bytes.RemoveAll();
  std::optional<std::string> converted = EncodeText(code_page, UpToNul(std::wstring_view(text)));
  if (!converted) return 1;
  const WipeOnExit wipe(*converted);
  if (converted->size() >= static_cast<std::size_t>(std::numeric_limits<int>::max())) return 1;
  bytes.SetSize(static_cast<int>(converted->size()) + 1);
  std::copy(converted->begin(), converted->end(), bytes.begin());
  return 0;
}

CString CCrypto::GetString(unsigned code_page, const CByteArray& bytes) {
  const auto size = static_cast<std::size_t>(bytes.GetSize());
  std::optional<CString> text = DecodeText(code_page, UpToNul(CharactersOf(bytes.GetData(), size)));
  return text ? std::move(*text) : CString();
}

CString CCrypto::ByteArrayToString(const CByteArray& bytes) {
  static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
  CString text;
  text.reserve(2 * static_cast<std::size_t>(bytes.GetSize()));  // no copy of a key is left behind
  for (const unsigned char byte : bytes) text += {kDigits[byte >> 4], kDigits[byte & 15]};
  return text;
}

// ---- Hash and key ----

int CCrypto::GetMD5Hash(const unsigned char* data, unsigned long length, CByteArray& hash) {
  if (data == nullptr || length == 0) return 0;
  std::optional<Md5Digest> digest = Md5({data, length});
  if (!digest) return 0;
  std::copy(digest->begin(), digest->end(), hash.begin());
  SecureZero(digest->data(), digest->size());
  return 1;
}

CString CCrypto::ComputeHash(const CString& text) {
  CByteArray bytes;
  if (GetBytes(kCodePageAnsi, text, bytes) != 0) return {};
  // The number of characters, although it is bytes that are hashed: the keys of stored files rest
  // on it.
  const std::size_t length =
      std::min(UpToNul(std::wstring_view(text)).size(), static_cast<std::size_t>(bytes.GetSize()));
  CByteArray hash;
  hash.SetSize(kHashSize);
  if (GetMD5Hash(bytes.GetData(), length, hash) != 1) return {};
  return ByteArrayToString(hash);
}

void CCrypto::GetBytesKey(CByteArray& key) {
  InputFile file;
  const bool is_open =
      file.OpenUnlocked(CUtil::GetSpecialFolderPath(kFolderCommonAppData) + m_strKeyFile);
  if (!is_open && !IsPassing(GetLastError())) return;
  const std::optional<FileStatus> status = is_open ? file.Status() : std::nullopt;
  // Without its contents the key would be that of no key file, and nothing would tell.
  if (!status) throw std::runtime_error("the key file cannot be read");
  if (status->size > kLongestKeyFile) throw CInvalidArgException();
  const auto length = static_cast<int>(status->size);
  CByteArray contents;
  contents.SetSize(length + 1);
  if (!file.Read(contents.GetData(), status->size)) {
    throw std::runtime_error("the key file cannot be read");
  }

  CString key_text = GetString(kCodePageAnsi, contents);
  const WipeOnExit wipe_key_text(key_text);
  CString hash_text = ComputeHash(key_text);
  const WipeOnExit wipe_hash_text(hash_text);
  CByteArray hash_bytes;
  GetBytes(kCodePageAnsi, hash_text, hash_bytes);

  // The even positions in ascending order, then the odd ones.
  CByteArray reordered;
  reordered.SetSize(length);
  int position = 0;
  for (int i = 0; i < length; ++i) {
    reordered[position] = hash_bytes[i];
    position += 2;
    if (position >= length) position = 1;
  }
  key = std::move(reordered);
}

void CCrypto::ResizeBytesArray(const CByteArray& source, CByteArray& target) {
  if (source.GetSize() <= target.GetSize()) {
    std::copy(source.begin(), source.end(), target.begin());
    return;
  }
  int index = 0;
  for (const unsigned char byte : source) {
    target[index] = static_cast<unsigned char>(target[index] ^ byte);
    index = (index + 1) % target.GetSize();
  }
}

AesCbc CCrypto::MakeCipher(CipherDirection direction) {
  CByteArray key_bytes;
  GetBytesKey(key_bytes);
  CByteArray key;
  key.SetSize(kAesKeySize);
  ResizeBytesArray(key_bytes, key);
  CByteArray chaining_block;
  chaining_block.SetSize(kAesBlockSize);
  ResizeBytesArray(key_bytes, chaining_block);
  return {direction, std::span<const unsigned char, kAesKeySize>(key.GetData(), kAesKeySize),
          std::span<const unsigned char, kAesBlockSize>(chaining_block.GetData(), kAesBlockSize)};
}

// ---- Bytes and texts ----

void CCrypto::EncryptByTripleDesToByteArrayByte(const CByteArray& input, CByteArray& output) {
  output =
      RunAsOne(MakeCipher(CipherDirection::kEncrypt), input, GetByteArraySize(input.GetSize()));
}

void CCrypto::DecryptByTripleDESByte(const CByteArray& input, CByteArray& output) {
  output =
      RunAsOne(MakeCipher(CipherDirection::kDecrypt), input, GetByteArraySize(input.GetSize()));
}

void CCrypto::EncryptByTripleDesToByteArray(const CString& text, CByteArray& output) {
  CByteArray bytes;
  GetBytes(kCodePageUtf8, text, bytes);
  EncryptByTripleDesToByteArrayByte(bytes, output);
}

CString CCrypto::DecryptByTripleDESToByteArray(const CByteArray& input) {
  CByteArray bytes;
  DecryptByTripleDESByte(input, bytes);
  return GetString(kCodePageUtf8, bytes);
}

CString CCrypto::EncryptByTripleDES(const CString& text) {
  CByteArray cipher;
  EncryptByTripleDesToByteArray(text, cipher);
  cipher.Add(0);
  return GetString(kCodePageUtf8, cipher);
}

CString CCrypto::DecryptByTripleDES(CString cipher) {
  CByteArray bytes;
  GetBytes(kCodePageUtf8, cipher, bytes);
  return DecryptByTripleDESToByteArray(bytes);
}

// ---- Files ----

int CCrypto::FailWithErrno() {
  m_nLastError = ErrnoFromError(GetLastError());
  return 1;
}

int CCrypto::CryptingStringWriter(const CString& text, const CString& path) {
  // What can fail without the file comes first.
  AesCbc cipher = MakeCipher(CipherDirection::kEncrypt);
  Utf8Encoder encoder(text, Utf8Encoder::End::kFirstNul);
  std::uint64_t left = encoder.length() + 1;
  SecureBytes chunk(std::min<std::uint64_t>(kChunkSize, RoundUpToBlock(left)));

  InPlaceWriter file;
  if (!file.Open(path, RoundUpToBlock(left))) return FailWithErrno();
  while (left > 0) {
    const std::size_t length = std::min<std::uint64_t>(left, kChunkSize);
    const std::size_t size = RoundUpToBlock(length);
    const std::size_t encoded = encoder.Encode({chunk.data(), length});
    std::fill(chunk.data() + encoded, chunk.data() + size, static_cast<unsigned char>(0));
    cipher.Run({chunk.data(), size}, chunk.data());
    if (!file.Write(chunk.data(), size)) return FailWithErrno();
    left -= length;
  }
  return file.Commit() ? 0 : FailWithErrno();
}

int CCrypto::CryptingStringReader(const CString& path, CString& output) {
  ChunkReader file;
  if (!file.Open(path)) return FailWithErrno();
  if (file.size() == 0) return 0;
  AesCbc cipher = MakeCipher(CipherDirection::kDecrypt);

  const std::size_t old_length = output.size();
  Utf8Decoder decoder;
  for (bool at_end = false; !at_end;) {
    const std::optional<std::size_t> got = file.Next();
    if (!got) {
      output.resize(old_length);
      return FailWithErrno();
    }
    const std::size_t size = RoundUpToBlock(*got);
    cipher.Run({file.data(), size}, file.data());
    const std::string_view plain = UpToNul(CharactersOf(file.data(), size));
    // Room for a text that goes on gets made once: while it grew it would be held twice.
    output.reserve(output.size() + plain.size() +
                   (plain.size() < size ? 0 : static_cast<std::size_t>(file.left())));
    decoder.Decode(plain, output);
    at_end = *got == 0 || plain.size() < size;
  }
  decoder.Finish(output);
  return 0;
}

int CCrypto::CryptFileMake(const CString& source, const CString& destination) {
  return MakeFile(CipherDirection::kEncrypt, source, destination);
}

int CCrypto::DecryptFileMake(const CString& source, const CString& destination) {
  return MakeFile(CipherDirection::kDecrypt, source, destination);
}

int CCrypto::MakeFile(CipherDirection direction, const CString& source,
                      const CString& destination) {
  const auto output_length = [direction](auto length) {
    return direction == CipherDirection::kEncrypt ? MarkedLength(length) : RoundUpToBlock(length);
  };
  ChunkReader input;
  if (!input.Open(source)) return FailWithErrno();
  std::optional<AesCbc> cipher;
  if (input.size() > 0) cipher.emplace(MakeCipher(direction));

  // Writing into the file that is being read would destroy it, if the process ended early.
  if (IsSameFile(source, destination)) {
    SetLastError(kErrorInvalidParameter);
    return FailWithErrno();
  }
  InPlaceWriter output;
  if (!output.Open(destination, output_length(input.size()))) return FailWithErrno();
  for (;;) {
    const std::optional<std::size_t> got = input.Next();
    if (!got) return FailWithErrno();
    if (*got == 0) return output.Commit() ? 0 : FailWithErrno();
    const std::size_t size = output_length(*got);
    cipher->Run({input.data(), size}, input.data());
    if (!output.Write(input.data(), size)) return FailWithErrno();
  }
}

}  // namespace vk::tq
