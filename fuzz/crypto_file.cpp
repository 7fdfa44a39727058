// Enciphered files. Input: a mode, the file; with mode 3 a line (the size that the mark of a second copy
// gives), a line (the size of the file), and what the file is filled with.
#include <fcntl.h>

#include "fuzz/support.h"
#include "platform/posix/native.h"
#include "platform/posix/spare_copy.h"
#include "storage/crypto.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

// What any file holds as a text, and as deciphered bytes.
void CheckCipherFile(const Sandbox& sandbox, std::string_view bytes) {
  sandbox.Write(sandbox.Native("cipher"), bytes);
  CCrypto crypto;
  CString text = L"before";
  Require(crypto.CryptingStringReader(sandbox.Path("cipher"), text) == 0, "a file can be read");
  Require(crypto.DecryptFileMake(sandbox.Path("cipher"), sandbox.Path("plain")) == 0,
          "a file can be deciphered");
  const std::string plain = sandbox.Read(sandbox.Native("plain")).value_or("");
  Require(plain.size() == (bytes.size() + 15) / 16 * 16, "a deciphered file has whole blocks");
  Require(text == L"before" + Wide(plain.substr(0, plain.find('\0'))),
          "the text is that of the deciphered bytes up to their NUL");
}

void CheckText(const Sandbox& sandbox, const CString& text) {
  CCrypto crypto;
  CString read;
  Require(crypto.CryptingStringWriter(text, sandbox.Path("cipher")) == 0, "a text can be written");
  Require(crypto.CryptingStringReader(sandbox.Path("cipher"), read) == 0, "a text can be read");
  Require(read == UpToNul(text), "a text comes back");
}

void CheckPlainFile(const Sandbox& sandbox, std::string_view bytes) {
  sandbox.Write(sandbox.Native("plain"), bytes);
  CCrypto crypto;
  Require(crypto.CryptFileMake(sandbox.Path("plain"), sandbox.Path("cipher")) == 0 &&
              crypto.DecryptFileMake(sandbox.Path("cipher"), sandbox.Path("back")) == 0,
          "a file can be enciphered and deciphered");
  const std::string back = sandbox.Read(sandbox.Native("back")).value_or("");
  Require(back.starts_with(bytes), "a file comes back");
  Require(back.find_first_not_of('\0', bytes.size()) == std::string::npos, "zeros follow it");
  Require(back.size() == (bytes.empty() ? 0 : bytes.size() / 16 * 16 + 16),
          "at least one of them, up to a whole block");
}

// A file that ends in the mark of a second copy, which a killed writer left or somebody forged.
void CheckSecondCopy(const Sandbox& sandbox, Input input) {
  const auto claimed = static_cast<std::uint64_t>(ParseInt(Wide(input.Line())));
  const auto size = static_cast<std::size_t>(ParseInt(Wide(input.Line())) & 0x3FFF);
  std::string bytes;
  while (bytes.size() < size && !input.IsEmpty()) bytes += input.Rest();
  bytes.resize(size);
  sandbox.Write(sandbox.Native("cipher"), bytes);
  std::uint64_t end = 0;  // where the claimed size and the mark stand
  {
    const FileDescriptor file(open(sandbox.Native("cipher").c_str(), O_RDWR | O_CLOEXEC));
    Require(internal::AppendSpareCopy(file.get(), size, "", 0), "a mark can be made");
    end = std::filesystem::file_size(sandbox.Native("cipher")) - internal::kSpareCopyEnd;
    Require(WriteAt(file.get(), &claimed, sizeof claimed, end), "and forged");
  }
  const bool counts = end > internal::kPageSize && claimed != 0 && claimed <= end / 2;
  CCrypto crypto;
  Require(crypto.DecryptFileMake(sandbox.Path("cipher"), sandbox.Path("plain")) == 0,
          "a file can be deciphered");
  const std::uint64_t taken =
      counts ? claimed : std::filesystem::file_size(sandbox.Native("cipher"));
  Require(std::filesystem::file_size(sandbox.Native("plain")) == (taken + 15) / 16 * 16,
          "a copy that lies behind its place counts, no other");
  CheckText(sandbox, Wide(bytes));
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  const Sandbox& sandbox = TheSandbox();
  switch (input.Mode()) {
    case 0:
      return CheckCipherFile(sandbox, input.Rest());
    case 1:
      return CheckText(sandbox, Wide(input.Rest()));
    case 2:
      return CheckPlainFile(sandbox, input.Rest());
    case 3:
      return CheckSecondCopy(sandbox, input);
    default:
      return;
  }
}
