// The text of an INI file: what its lines mean, questions to it, and changes in it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/profile.h"

namespace vk::tq::internal {

// How a file is written: the code page, the size of its mark and of one code unit in bytes.
struct ProfileForm {
  unsigned code_page;
  std::size_t mark_size;
  std::size_t unit_size;
};
ProfileForm FormOf(std::string_view bytes);

// One line, with views into it.
struct ProfileLine {
  enum class Kind { kNothing, kSection, kKey };

  Kind kind = Kind::kNothing;  // blank lines and comments are kNothing
  std::wstring_view name;      // of the section or the key
  // What stands behind the equals sign, without blanks around it. A key without that sign stands in
  // the way of later ones of its name, but has no value and is not listed.
  std::optional<std::wstring_view> value;
};
ProfileLine ParseProfileLine(std::wstring_view line);

// Without blanks at both ends. Every control character is a blank here, NUL included, since the end
// of a file may hold NULs after a process was killed.
std::wstring_view WithoutBlanks(std::wstring_view text);

// Without one pair of equal quotes, single or double.
std::wstring_view WithoutQuotes(std::wstring_view value);

// A whole file, ready for questions.
struct ProfileText {
  struct Section {
    std::wstring_view name;
    std::size_t first_key;
    std::size_t end_of_keys;
  };
  struct Key {
    std::wstring_view name;
    std::optional<std::wstring_view> value;
  };

  // The names and values are views into the text.
  explicit ProfileText(std::wstring whole_text);
  ProfileText(const ProfileText&) = delete;
  ProfileText& operator=(const ProfileText&) = delete;
  ~ProfileText() = default;

  // The first section of a name, and the first key of a name in it.
  const Section* FindSection(std::wstring_view name) const;
  const Key* FindKey(std::wstring_view section, std::wstring_view name) const;

  std::wstring text;
  std::vector<Section> sections;
  std::vector<Key> keys;

 private:
  // Names in the order of their scope (0 for sections, 1 + n for the keys of section n), of their
  // hash, and of their place in the file.
  struct IndexEntry {
    std::uint32_t scope;
    std::uint32_t hash;
    std::uint32_t position;
    auto operator<=>(const IndexEntry&) const =
        default;  // NOLINT(modernize-use-nullptr): there is none
  };

  template <class Item>
  const Item* Find(std::uint32_t scope, std::wstring_view name,
                   const std::vector<Item>& items) const;

  std::vector<IndexEntry> index_;
};

// A whole file, ready for changes. What is not changed stays to the byte.
class ProfileEditor {
 public:
  explicit ProfileEditor(std::string_view bytes);

  // False, with the last error set, when the file cannot hold the value.
  bool Set(const ProfileValue& change);
  std::string Bytes() const;

 private:
  struct Line {
    std::string bytes;
    std::string line_end;
    ProfileLine::Kind kind;
    std::wstring name;
  };

  // In the code page of the file.
  std::optional<std::string> Encode(std::wstring_view text) const;
  // The index of the header of a section.
  std::optional<std::size_t> FindSection(std::wstring_view name) const;
  // A key's line up to where its value begins: the name keeps its form, and the blanks theirs if
  // they are to stay.
  std::string PrefixOfValue(const Line& line, bool keeps_blanks) const;
  void Insert(std::size_t index, ProfileLine::Kind kind, std::wstring_view name, std::string bytes);

  ProfileForm form_;
  std::string mark_;
  std::string line_end_;
  std::vector<Line> lines_;
};

}  // namespace vk::tq::internal
