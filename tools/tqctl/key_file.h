// The key file, under whose contents everything is enciphered.
#pragma once

#include <cstdint>
#include <string>

#include "platform/types.h"
#include "tqctl/failure.h"

namespace tqctl {

// What the key file is like, as far as its length and first byte tell.
struct KeyFile {
  // The library takes zeros for the key in the first three, and throws in the last two.
  enum class State { kMissing, kUnreadable, kEmpty, kShort, kGood, kTooLong, kBeginsWithNul };

  State state = State::kMissing;
  std::uint64_t size = 0;

  bool IsGood() const { return state == State::kShort || state == State::kGood; }
  bool IsZeros() const { return state < State::kShort; }
};

// In the library's form.
std::wstring KeyFilePath();

KeyFile LookAtKeyFile();

// What a state means, in words.
std::wstring Explain(KeyFile::State state);

// Says on standard error that what follows is enciphered with zeros, if it is. Failure when nothing
// can be enciphered.
void RequireKeyForWriting();

// Runs what enciphers or deciphers; Failure when the key file does not allow it.
template <class Work>
auto WithKey(const Work& work) {
  try {
    return work();
  } catch (const vk::tq::CInvalidArgException&) {
    throw Failure(Explain(LookAtKeyFile().state),
                  L"Put the right key file in its place; see \"tqctl crypt check\".");
  }
}

}  // namespace tqctl
