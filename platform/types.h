/// The few general types that the interfaces of the library mention.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/secure_memory.h"

namespace vk::tq {

/// The root of classes that may be deleted through a pointer to their base.
class TQ_EXPORT CObject {
 public:
  CObject() = default;
  CObject(const CObject&) = default;
  CObject(CObject&&) = default;
  CObject& operator=(const CObject&) = default;
  CObject& operator=(CObject&&) = default;
  virtual ~CObject();
};

/// The text of the system. Its characters are UTF-16 or UTF-32 code units, as wide as wchar_t is.
using CString = std::wstring;

/// Thrown for an index outside an array.
class TQ_EXPORT CInvalidArgException : public std::exception {
 public:
  const char* what() const noexcept override;
};

/// A growing array. Every access by index is checked and throws CInvalidArgException when it lies
/// outside. New elements are value-initialised: numbers are zero, texts empty.
template <class T, class Allocator = std::allocator<T>>
class CArray {
 public:
  using value_type = T;

  CArray() = default;
  CArray(std::initializer_list<T> items) : items_(items) {}

  int GetSize() const { return static_cast<int>(items_.size()); }
  int GetCount() const { return GetSize(); }
  bool IsEmpty() const { return items_.empty(); }

  const T& GetAt(int index) const { return items_[Checked(index)]; }
  void SetAt(int index, const T& value) { items_[Checked(index)] = value; }
  const T& operator[](int index) const { return items_[Checked(index)]; }
  T& operator[](int index) { return items_[Checked(index)]; }

  /// Appends one element and gives its index.
  int Add(T value) {
    items_.push_back(std::move(value));
    return GetSize() - 1;
  }

  /// Cuts the array, or lets it grow by value-initialised elements.
  void SetSize(int size) {
    if (size < 0) throw CInvalidArgException();
    items_.resize(static_cast<std::size_t>(size));
  }
  void RemoveAll() { items_.clear(); }

  T* GetData() { return items_.data(); }
  const T* GetData() const { return items_.data(); }

  auto begin() { return items_.begin(); }
  auto end() { return items_.end(); }
  auto begin() const { return items_.begin(); }
  auto end() const { return items_.end(); }

  bool operator==(const CArray&) const = default;

 private:
  std::size_t Checked(int index) const {
    if (index < 0 || index >= GetSize()) throw CInvalidArgException();
    return static_cast<std::size_t>(index);
  }

  std::vector<T, Allocator> items_;
};

/// Binary data. Its storage is wiped whenever it is given back, since it may hold keys or plain
/// text.
using CByteArray = CArray<unsigned char, WipingAllocator<unsigned char>>;
using CStringArray = CArray<CString>;

/// A map that may be deleted through a pointer to its base. The argument types only name how keys
/// and values are handed over on other platforms.
template <class Key, class ArgKey, class Value, class ArgValue>
class CMap : public CObject, public std::map<Key, Value, std::less<>> {
 public:
  using std::map<Key, Value, std::less<>>::map;

  int GetCount() const { return static_cast<int>(this->size()); }
  void SetAt(ArgKey key, ArgValue value) { (*this)[key] = value; }
  /// Gives whether the key is there, and if it is, its value.
  bool Lookup(ArgKey key, Value& value) const {
    const auto found = this->find(key);
    if (found == this->end()) return false;
    value = found->second;
    return true;
  }
};

/// Names to texts.
using CMapStringToString = CMap<CString, const wchar_t*, CString, const wchar_t*>;

/// A point in time: seconds since 1970-01-01 00:00:00 UTC. 0 stands for no time.
class CTime {
 public:
  CTime() = default;
  explicit CTime(std::int64_t seconds) : seconds_(seconds) {}
  std::int64_t GetTime() const { return seconds_; }
  auto operator<=>(const CTime&) const = default;

 private:
  std::int64_t seconds_ = 0;
};

}  // namespace vk::tq
