// Enciphered files. Input: a mode, the file.
#include "fuzz/support.h"
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
    default:
      return;
  }
}
