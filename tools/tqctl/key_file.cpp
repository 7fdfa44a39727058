#include "tqctl/key_file.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "foundation/util.h"
#include "platform/path.h"
#include "tqctl/output.h"

namespace tqctl {

std::wstring KeyFilePath() {
  return vk::tq::CUtil::GetSpecialFolderPath(35) +
         L"\\ORV-INC\\Velkorandia\\Tessaloquin\\config\\data.dat";
}

KeyFile LookAtKeyFile() {
  using State = KeyFile::State;
  // The length that "crypt keygen" gives, and the greatest that the library takes.
  constexpr std::uint64_t kGoodSize = 32;
  constexpr std::uint64_t kLongest = 33;

  const std::string path = vk::tq::PathToNative(KeyFilePath());
  std::error_code error;
  const std::uint64_t size = std::filesystem::file_size(path, error);
  if (error == std::errc::no_such_file_or_directory) return {State::kMissing, 0};
  std::ifstream file(path, std::ios::binary);
  if (error || !file) return {State::kUnreadable, error ? 0 : size};
  if (size == 0) return {State::kEmpty, size};
  if (size > kLongest) return {State::kTooLong, size};
  if (file.peek() == 0) return {State::kBeginsWithNul, size};
  return {size < kGoodSize ? State::kShort : State::kGood, size};
}

std::wstring Explain(KeyFile::State state) {
  switch (state) {
    case KeyFile::State::kMissing:
      return L"There is no key file: everything is enciphered with a key of zeros.";
    case KeyFile::State::kUnreadable:
      return L"The key file cannot be opened: everything is enciphered with a key of zeros.";
    case KeyFile::State::kEmpty:
      return L"The key file is empty: everything is enciphered with a key of zeros.";
    case KeyFile::State::kShort:
      return L"The key file is good, but short.";
    case KeyFile::State::kGood:
      return L"The key file is good.";
    case KeyFile::State::kTooLong:
      return L"The key file is longer than 33 bytes: nothing can be enciphered.";
    case KeyFile::State::kBeginsWithNul:
      break;
  }
  return L"The key file begins with a zero byte.";
}

void RequireKeyForWriting() {
  const KeyFile key = LookAtKeyFile();
  if (key.IsGood()) return;
  if (!key.IsZeros()) {
    throw Failure(Explain(key.state), L"Put the right key file in its place.");
  }
  Warn(Explain(key.state) + L" See \"tqctl crypt check\" and \"tqctl crypt keygen\".");
}

}  // namespace tqctl
