// The plainest code for what the rows have in common: system calls, OpenSSL and libxml2 by hand.
// None of it uses the library.
#pragma once

#include <openssl/evp.h>

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vk::tq::bench::plain {

constexpr std::size_t kChunk = 0x100000;

// The AES key and chaining block of a key file of 32 bytes: one reading of it, one MD5.
struct Key {
  std::array<unsigned char, 32> key{};
  std::array<unsigned char, 16> initial{};
};
Key ReadKey(const std::string& key_file);

// One run of AES-256-CBC without padding for each call.
class Cipher {
 public:
  Cipher(const Key& key, bool encrypts);
  void Run(const unsigned char* from, unsigned char* to, std::size_t size);

 private:
  struct Free {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
  };
  Key key_;
  std::unique_ptr<EVP_CIPHER_CTX, Free> context_;
};

// A file descriptor that is closed with its owner. Throws when the file cannot be opened.
class File {
 public:
  File(const std::string& path, int flags);
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File();
  int get() const { return descriptor_; }
  std::size_t Size() const;
  // Up to the size or the end of the file.
  std::size_t Read(void* to, std::size_t size) const;
  void Write(const void* from, std::size_t size) const;
  void Cut(std::size_t size) const;

 private:
  int descriptor_;
};

std::string ReadFile(const std::string& path);

// Enciphers UTF-8 and its NUL into a file, in place.
void WriteText(const std::string& key_file, std::string_view utf8, const std::string& path);

// Deciphers a file, and decodes the UTF-8 in it up to its NUL.
std::wstring ReadText(const std::string& key_file, const std::string& path);

// One reading of a directory: how many names begin like this.
int Scan(const std::string& directory, std::string_view prefix);

// A kernel semaphore with undo: what a named mutex stands on.
class Semaphore {
 public:
  Semaphore();
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;
  ~Semaphore();
  // Opens and takes; gives back.
  void Lock() const;
  void Unlock() const;

 private:
  int key_;
  int set_;
};

}  // namespace vk::tq::bench::plain
