#include "floor.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "harness.h"

namespace vk::tq::bench::plain {
namespace {

// Decodes UTF-8 byte by byte; a character may be cut by the end of a piece.
class Decoder {
 public:
  // False at the text's NUL.
  bool Decode(const unsigned char* bytes, std::size_t size, std::wstring& text) {
    for (std::size_t i = 0; i < size; ++i) {
      const unsigned char byte = bytes[i];
      if (left_ > 0 && byte >= low_ && byte <= high_) {
        value_ = value_ << 6 | (byte & 0x3F);
        low_ = 0x80;
        high_ = 0xBF;
        if (--left_ == 0) text.push_back(static_cast<wchar_t>(value_));
        continue;
      }
      if (left_ > 0) text.push_back(0xFFFD);
      left_ = 0;
      if (byte == 0) return false;
      Begin(byte, text);
    }
    return true;
  }

 private:
  void Begin(unsigned char byte, std::wstring& text) {
    low_ = byte == 0xE0 ? 0xA0 : byte == 0xF0 ? 0x90 : 0x80;
    high_ = byte == 0xED ? 0x9F : byte == 0xF4 ? 0x8F : 0xBF;
    if (byte < 0x80) {
      text.push_back(byte);
    } else if (byte >= 0xC2 && byte <= 0xDF) {
      left_ = 1;
      value_ = byte & 0x1F;
    } else if ((byte & 0xF0) == 0xE0) {
      left_ = 2;
      value_ = byte & 0x0F;
    } else if (byte >= 0xF0 && byte <= 0xF4) {
      left_ = 3;
      value_ = byte & 0x07;
    } else {
      text.push_back(0xFFFD);
    }
  }

  int left_ = 0;
  unsigned value_ = 0;
  unsigned char low_ = 0x80;
  unsigned char high_ = 0xBF;
};

}  // namespace

Key ReadKey(const std::string& key_file) {
  const std::string text = ReadFile(key_file);
  Require(text.size() == 32, "the key file has not 32 bytes");
  std::array<unsigned char, 16> hash{};
  EVP_Digest(text.data(), text.size(), hash.data(), nullptr, EVP_md5(), nullptr);
  std::array<unsigned char, 32> digits{};
  for (std::size_t i = 0; i < hash.size(); ++i) {
    digits[2 * i] = static_cast<unsigned char>("0123456789ABCDEF"[hash[i] >> 4]);
    digits[2 * i + 1] = static_cast<unsigned char>("0123456789ABCDEF"[hash[i] & 15]);
  }
  Key key;
  for (std::size_t i = 0; i < 16; ++i) {
    key.key[2 * i] = digits[i];
    key.key[2 * i + 1] = digits[16 + i];
  }
  for (std::size_t i = 0; i < 16; ++i) {
    key.initial[i] = static_cast<unsigned char>(key.key[i] ^ key.key[16 + i]);
  }
  return key;
}

Cipher::Cipher(const Key& key, bool encrypts) : key_(key), context_(EVP_CIPHER_CTX_new()) {
  EVP_CipherInit_ex2(context_.get(), EVP_aes_256_cbc(), key.key.data(), key.initial.data(),
                     encrypts ? 1 : 0, nullptr);
  EVP_CIPHER_CTX_set_padding(context_.get(), 0);
}

void Cipher::Run(const unsigned char* from, unsigned char* to, std::size_t size) {
  int done = 0;
  EVP_CipherInit_ex2(context_.get(), nullptr, nullptr, key_.initial.data(), -1, nullptr);
  EVP_CipherUpdate(context_.get(), to, &done, from, static_cast<int>(size));
}

File::File(const std::string& path, int flags)
    : descriptor_(open(path.c_str(), flags | O_CLOEXEC, 0666)) {
  Require(descriptor_ >= 0, "a file cannot be opened");
}

File::~File() { close(descriptor_); }

std::size_t File::Size() const {
  struct stat status {};
  fstat(descriptor_, &status);
  return static_cast<std::size_t>(status.st_size);
}

std::size_t File::Read(void* to, std::size_t size) const {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = read(descriptor_, static_cast<char*>(to) + done, size - done);
    Require(got >= 0, "a file cannot be read");
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

void File::Write(const void* from, std::size_t size) const {
  Require(write(descriptor_, from, size) == static_cast<ssize_t>(size), "a file cannot be written");
}

void File::Cut(std::size_t size) const {
  Require(ftruncate(descriptor_, static_cast<off_t>(size)) == 0, "a file cannot be cut");
}

std::string ReadFile(const std::string& path) {
  const File file(path, O_RDONLY);
  std::string bytes(file.Size(), '\0');
  bytes.resize(file.Read(bytes.data(), bytes.size()));
  return bytes;
}

void WriteText(const std::string& key_file, std::string_view utf8, const std::string& path) {
  Cipher cipher(ReadKey(key_file), true);
  const std::unique_ptr<unsigned char[]> chunk(new unsigned char[kChunk]);
  const File file(path, O_WRONLY | O_CREAT);
  const auto* from = reinterpret_cast<const unsigned char*>(utf8.data());
  std::size_t left = utf8.size();
  std::size_t written = 0;
  while (left >= kChunk) {
    cipher.Run(from, chunk.get(), kChunk);
    file.Write(chunk.get(), kChunk);
    from += kChunk;
    left -= kChunk;
    written += kChunk;
  }
  const std::size_t last = (left + 16) / 16 * 16;
  std::copy_n(from, left, chunk.get());
  std::fill(chunk.get() + left, chunk.get() + last, static_cast<unsigned char>(0));
  cipher.Run(chunk.get(), chunk.get(), last);
  file.Write(chunk.get(), last);
  file.Cut(written + last);
}

std::wstring ReadText(const std::string& key_file, const std::string& path) {
  const File file(path, O_RDONLY);
  Cipher cipher(ReadKey(key_file), false);
  const std::unique_ptr<unsigned char[]> chunk(new unsigned char[kChunk]);
  std::wstring text;
  text.reserve(file.Size());
  Decoder decoder;
  while (const std::size_t got = file.Read(chunk.get(), kChunk)) {
    cipher.Run(chunk.get(), chunk.get(), got);
    if (!decoder.Decode(chunk.get(), got, text)) break;
  }
  return text;
}

int Scan(const std::string& directory, std::string_view prefix) {
  DIR* const open = opendir(directory.c_str());
  Require(open != nullptr, "a folder cannot be opened");
  int count = 0;
  while (const dirent* entry = readdir(open)) {
    if (std::string_view(entry->d_name).starts_with(prefix)) ++count;
  }
  closedir(open);
  return count;
}

Semaphore::Semaphore() : key_(0x51710000 | (getpid() & 0xFFFF)), set_(-1) {
  set_ = semget(key_, 2, IPC_CREAT | 0600);
  Require(set_ >= 0, "no semaphore");
}

Semaphore::~Semaphore() { semctl(set_, 0, IPC_RMID); }

void Semaphore::Lock() const {
  const int set = semget(key_, 2, 0600);
  std::array<sembuf, 2> take{{{0, 0, 0}, {0, 1, SEM_UNDO}}};
  const timespec limit{60, 0};
  Require(semtimedop(set, take.data(), take.size(), &limit) == 0, "no lock");
}

void Semaphore::Unlock() const {
  sembuf give{0, -1, SEM_UNDO | IPC_NOWAIT};
  Require(semop(set_, &give, 1) == 0, "no unlock");
}

}  // namespace vk::tq::bench::plain
