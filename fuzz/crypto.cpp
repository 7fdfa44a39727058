// Texts and bytes under the key of an arbitrary key file. Input: a mode, the key file up to the next
// line end, the data.
#include "storage/crypto.h"

#include "fuzz/support.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

CByteArray BytesOf(std::string_view text) {
  CByteArray bytes;
  bytes.SetSize(static_cast<int>(text.size()));
  std::copy(text.begin(), text.end(), bytes.begin());
  return bytes;
}

void CheckBytes(CCrypto& crypto, std::string_view data) {
  CByteArray padded = BytesOf(data);
  padded.SetSize((padded.GetSize() + 15) / 16 * 16);
  CByteArray bytes = BytesOf(data);
  crypto.EncryptByTripleDesToByteArrayByte(bytes, bytes);
  Require(bytes.GetSize() == padded.GetSize(), "cipher bytes are whole blocks");
  crypto.DecryptByTripleDESByte(bytes, bytes);
  Require(bytes == padded, "bytes come back");
}

void CheckText(CCrypto& crypto, const CString& text) {
  CByteArray cipher;
  crypto.EncryptByTripleDesToByteArray(text, cipher);
  Require(crypto.DecryptByTripleDESToByteArray(cipher) == UpToNul(text), "a text comes back");
  const CString hash = crypto.ComputeHash(text);
  Require(hash.size() == (UpToNul(text).empty() ? 0U : 32U), "a hash has 32 digits");
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  const Sandbox& sandbox = TheSandbox();
  const unsigned mode = input.Mode();
  const std::string_view key = input.Line();
  sandbox.Write(sandbox.Config("data.dat"), key);
  const bool is_bad = key.size() > 33 || (key.size() >= 2 && key.front() == '\0');
  CCrypto crypto;
  try {
    if (mode == 0) CheckBytes(crypto, input.Rest());
    if (mode == 1) CheckText(crypto, Wide(input.Rest()));
    if (mode == 2) {  // arbitrary cipher bytes
      const CString text = crypto.DecryptByTripleDESToByteArray(BytesOf(input.Rest()));
      Require(text.size() <= input.Rest().size() + 16, "no text is longer than its cipher bytes");
      CheckText(crypto, text);
    }
    if (mode == 3) crypto.DecryptByTripleDES(crypto.EncryptByTripleDES(Wide(input.Rest())));
    Require(!is_bad || mode > 3, "a key file that is no good is refused");
  } catch (const CInvalidArgException&) {
    Require(is_bad, "a good key file is taken");
  }
}
