/// INI files ("profiles"): one parse, many questions; many changes, one write.
///
/// Section and key names are told apart without regard to case. Blanks around names and values are
/// no part of them, one pair of equal quotes around a value is taken off, a line that begins with
/// ';' is a comment, and of several sections or keys of one name the first counts. A file that
/// begins with the byte-order mark of UTF-16LE or UTF-8 is read as such, any other in the ANSI code
/// page. A file that is missing, may not be read, is reached by somebody else's link, or has more
/// than 16 MiB is like an empty one; callers for whom that is not the same use ReadProfileText and
/// Profile::FromText.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vk::tq {

namespace internal {
struct ProfileText;
}

/// The answers that one reading of a file gives.
class Profile {
 public:
  explicit Profile(const std::wstring& path);
  /// The same answers from a text that the caller has.
  static Profile FromText(std::wstring text);
  Profile(const Profile&) = delete;
  Profile& operator=(const Profile&) = delete;
  ~Profile();

  /// The value, or the default when the key is missing (blanks at the end of the default are
  /// dropped), up to its first NUL. The result is what fits a buffer of so many characters, the
  /// terminator included.
  std::wstring GetString(std::wstring_view section, std::wstring_view key,
                         std::wstring_view default_value, std::size_t size) const;

  /// The integer that the value begins with; the default when the key is missing.
  std::int32_t GetInt(std::wstring_view section, std::wstring_view key,
                      std::int32_t default_value) const;

  /// The names of all sections, or of the keys of one section, in file order, as far as they fit a
  /// buffer of so many characters in which a NUL follows each name and one more ends the list.
  std::vector<std::wstring> SectionNames(std::size_t size) const;
  std::vector<std::wstring> KeyNames(std::wstring_view section, std::size_t size) const;

 private:
  explicit Profile(std::unique_ptr<internal::ProfileText> text);

  std::unique_ptr<internal::ProfileText> text_;
};

/// The text of a file, read as Profile reads it; nothing, with the last error set, when it cannot be
/// read.
std::optional<std::wstring> ReadProfileText(const std::wstring& path);

/// The text of a file with these bytes, without its byte-order mark; nothing, with the last error
/// set, when the system does not know the code page.
std::optional<std::wstring> DecodeProfile(std::string_view bytes);

/// One value to be written.
struct ProfileValue {
  std::wstring section;
  std::wstring key;
  std::wstring value;
};

/// Writes values into a file in the order given, in one go. Every other line, comment and the order
/// stay, and so does the form of the file (its mark and encoding); a file that did not exist is
/// made in the ANSI code page. The file is locked from the reading to the writing, so that two
/// processes that change different keys both succeed, and it is written in place: a process that is
/// killed leaves the old or the new text, if that has at most 1 MiB. To write what stands there
/// already is a write, too: the time of the file moves. False, with the last error set, when the
/// file cannot be read or written, or a name or value has a line break or a NUL (87); nothing has
/// changed then.
bool WriteProfile(const std::wstring& path, const std::vector<ProfileValue>& values);

/// One value, one write.
bool WriteProfileString(const std::wstring& path, std::wstring_view section, std::wstring_view key,
                        std::wstring_view value);

}  // namespace vk::tq
