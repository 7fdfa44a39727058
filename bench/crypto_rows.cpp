// Enciphered texts and files.
#include <fcntl.h>
#include <unistd.h>

#include "floor.h"
#include "harness.h"
#include "rows.h"
#include "storage/crypto.h"
#include "support/test_support.h"
#include "workspace.h"

namespace vk::tq::bench {
namespace {

constexpr std::size_t kMiB = 1 << 20;

struct Fixture : Workspace {
  std::wstring text;
  std::string utf8;
};

std::shared_ptr<Fixture> MakeText(bool is_japanese, std::size_t size) {
  auto fixture = std::make_shared<Fixture>();
  fixture->text = SampleText(is_japanese, size);
  fixture->utf8 = testing::ToUtf8(fixture->text);
  return fixture;
}

Contest WriterContest(bool is_japanese, std::size_t size) {
  auto f = MakeText(is_japanese, size);
  const auto ours = [f] {
    Require(CCrypto().CryptingStringWriter(f->text, f->path(L"ours")) == 0, "not written");
  };
  const auto floor = [f] { plain::WriteText(f->key_file(), f->utf8, f->native("floor")); };
  ours();
  floor();
  Require(plain::ReadFile(f->native("ours")) == plain::ReadFile(f->native("floor")),
          "other bytes than by hand");
  return {ours, floor};
}

Contest ReaderContest(bool is_japanese, std::size_t size) {
  auto f = MakeText(is_japanese, size);
  plain::WriteText(f->key_file(), f->utf8, f->native("file"));
  const auto read = [f] {
    std::wstring text;
    Require(CCrypto().CryptingStringReader(f->path(L"file"), text) == 0, "not read");
    return text;
  };
  Require(read() == f->text && plain::ReadText(f->key_file(), f->native("file")) == f->text,
          "another text");
  return {
      [read] { benchmark::DoNotOptimize(read().size()); },
      [f] { benchmark::DoNotOptimize(plain::ReadText(f->key_file(), f->native("file")).size()); }};
}

void WriteZeros(const std::string& path, std::size_t size) {
  const plain::File file(path, O_WRONLY | O_CREAT | O_TRUNC);
  const std::string chunk(kMiB, 'x');
  for (std::size_t left = size; left > 0;) {
    const std::size_t piece = std::min(left, chunk.size());
    file.Write(chunk.data(), piece);
    left -= piece;
  }
}

// Whole blocks only, so that no mark follows the data.
void CipherByHand(const std::string& key_file, bool encrypts, const std::string& from,
                  const std::string& to) {
  const plain::File source(from, O_RDONLY);
  plain::Cipher cipher(plain::ReadKey(key_file), encrypts);
  const std::unique_ptr<unsigned char[]> chunk(new unsigned char[plain::kChunk]);
  const plain::File target(to, O_WRONLY | O_CREAT | O_TRUNC);
  while (const std::size_t got = source.Read(chunk.get(), plain::kChunk)) {
    cipher.Run(chunk.get(), chunk.get(), got);
    target.Write(chunk.get(), got);
  }
}

std::string Hex(const unsigned char* bytes, std::size_t size) {
  return testing::ToHex({reinterpret_cast<const char*>(bytes), size});
}

void CipherByProgram(const std::string& key_file, bool encrypts, const std::string& from,
                     const std::string& to) {
  const plain::Key key = plain::ReadKey(key_file);
  const int code =
      RunProgram({"openssl", "enc", "-aes-256-cbc", "-nosalt", "-nopad", encrypts ? "-e" : "-d",
                  "-K", Hex(key.key.data(), key.key.size()), "-iv",
                  Hex(key.initial.data(), key.initial.size()), "-in", from, "-out", to});
  Require(code == 0, "the openssl program fails");
}

// Every side makes a new file: removing the old one is not timed.
Contest FileContest(bool encrypts, bool against_program, std::size_t size) {
  auto w = std::make_shared<Workspace>();
  WriteZeros(w->native("source"), size);
  const auto ours = [w, encrypts] {
    CCrypto crypto;
    const std::wstring from = w->path(L"source");
    const std::wstring to = w->path(L"ours");
    const int result = encrypts ? crypto.CryptFileMake(from, to) : crypto.DecryptFileMake(from, to);
    Require(result == 0, "not made");
  };
  const auto floor = [w, encrypts, against_program] {
    (against_program ? CipherByProgram : CipherByHand)(w->key_file(), encrypts, w->native("source"),
                                                       w->native("floor"));
  };
  const auto before = [w] {
    unlink(w->native("ours").c_str());
    unlink(w->native("floor").c_str());
  };
  ours();
  floor();
  // The program runs through as one chain; the first chunk is the same.
  const std::size_t compared = against_program ? plain::kChunk : size;
  Require(plain::ReadFile(w->native("ours")).substr(0, compared) ==
              plain::ReadFile(w->native("floor")).substr(0, compared),
          "other bytes than by hand");
  return {ours, floor, before};
}

}  // namespace

std::wstring SampleText(bool is_japanese, std::size_t bytes) {
  constexpr std::wstring_view kJapanese =
      L"印刷管理情報ファイルの読み込みに成功しました。プリンタ名と文書名を確認してください。";
  constexpr std::wstring_view kAscii = L"<comment>The quick brown fox prints 24 pages.</comment> ";
  const std::wstring_view sample = is_japanese ? kJapanese : kAscii;
  const std::size_t characters = bytes / (is_japanese ? 3 : 1);
  std::wstring text;
  text.reserve(characters);
  while (text.size() < characters) text += sample.substr(0, characters - text.size());
  return text;
}

void AddCryptoRows() {
  for (const bool is_japanese : {false, true}) {
    const std::string kind = is_japanese ? "Japanese" : "ASCII";
    AddRow({"crypto", "CryptingStringWriter, 64 MiB of " + kind, "EVP over the UTF-8 bytes, write",
            1.3, 11},
           [=] { return WriterContest(is_japanese, 64 * kMiB); });
    AddRow({"crypto", "CryptingStringReader, 64 MiB of " + kind, "read, EVP, plain UTF-8 decode",
            1.3, 9},
           [=] { return ReaderContest(is_japanese, 64 * kMiB); });
  }
  for (const bool encrypts : {true, false}) {
    const std::string work = std::string(encrypts ? "Crypt" : "Decrypt") + "FileMake, 256 MiB";
    AddRow({"crypto", work, "read, EVP, write", 1.15, 7},
           [=] { return FileContest(encrypts, false, 256 * kMiB); });
    AddRow({"crypto", work, "the openssl program", 1.0, 7},
           [=] { return FileContest(encrypts, true, 256 * kMiB); });
  }
  for (const std::size_t size : {std::size_t{16}, kMiB / 64, kMiB, 16 * kMiB, 128 * kMiB}) {
    const auto x = static_cast<double>(size);
    const int rounds = size > kMiB ? 3 : 11;
    AddRow({"curve", "CryptFileMake by bytes", "read, EVP, write", {}, rounds, x},
           [=] { return FileContest(true, false, size); });
    AddRow({"curve",
            "CryptingStringReader by bytes of ASCII",
            "read, EVP, plain decode",
            {},
            rounds,
            x},
           [=] { return ReaderContest(false, size); });
  }
}

}  // namespace vk::tq::bench
