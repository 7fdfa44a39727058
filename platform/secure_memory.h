/// Memory that held keys, passwords or plain text is wiped before it is given back.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/export.h"

namespace vk::tq {

/// Overwrites memory with zeros, in a way that the compiler does not leave out.
TQ_EXPORT void SecureZero(void* memory, std::size_t size) noexcept;

/// An allocator that wipes each block when it is freed: a container that grows leaves no copy
/// behind.
template <class T>
struct WipingAllocator {
  using value_type = T;

  WipingAllocator() = default;
  template <class U>
  WipingAllocator(const WipingAllocator<U>&) noexcept {}

  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* memory, std::size_t count) noexcept {
    SecureZero(memory, count * sizeof(T));
    std::allocator<T>().deallocate(memory, count);
  }
  bool operator==(const WipingAllocator&) const = default;
};

using SecureBytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

/// Wipes a text, its unused capacity included, when the scope ends.
template <class Text>
class WipeOnExit {
 public:
  explicit WipeOnExit(Text& text) : text_(text) {}
  WipeOnExit(const WipeOnExit&) = delete;
  WipeOnExit& operator=(const WipeOnExit&) = delete;
  ~WipeOnExit() {
    SecureZero(text_.data(), text_.capacity() * sizeof(typename Text::value_type));
    text_.clear();
  }

 private:
  Text& text_;
};

namespace internal {
inline std::wstring& TextOf(std::wstring& text) { return text; }
template <class Key>
std::wstring& TextOf(std::pair<const Key, std::wstring>& entry) {
  return entry.second;
}
}  // namespace internal

/// The same for every text of a container, or every value of a map of texts.
template <class Texts>
class WipeTextsOnExit {
 public:
  explicit WipeTextsOnExit(Texts& texts) : texts_(texts) {}
  WipeTextsOnExit(const WipeTextsOnExit&) = delete;
  WipeTextsOnExit& operator=(const WipeTextsOnExit&) = delete;
  ~WipeTextsOnExit() {
    for (auto& item : texts_) const WipeOnExit wipe(internal::TextOf(item));
  }

 private:
  Texts& texts_;
};

}  // namespace vk::tq
