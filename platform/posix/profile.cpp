#include "platform/profile.h"

#include <algorithm>
#include <utility>

#include "platform/error.h"
#include "platform/path.h"
#include "platform/posix/profile_file.h"
#include "platform/posix/profile_text.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

using internal::ProfileText;

// The number that a text begins with: blanks, a sign, and digits to the base that a prefix names.
// It wraps at 32 bits.
std::int32_t IntegerOf(std::wstring_view text) {
  text = internal::WithoutBlanks(text);
  const bool is_negative = text.starts_with(L'-');
  if (is_negative || text.starts_with(L'+')) text.remove_prefix(1);
  std::uint32_t base = 10;
  if (text.starts_with(L"0x")) base = 16;
  if (text.starts_with(L"0o")) base = 8;
  if (text.starts_with(L"0b")) base = 2;
  if (base != 10) text.remove_prefix(2);

  constexpr std::wstring_view kDigits = L"0123456789abcdef0123456789ABCDEF";
  std::uint32_t number = 0;
  for (const wchar_t c : text) {
    const std::size_t place = kDigits.find(c);
    const auto digit = static_cast<std::uint32_t>(place % 16);
    if (place == kDigits.npos || digit >= base) break;
    number = number * base + digit;
  }
  return static_cast<std::int32_t>(is_negative ? 0 - number : number);
}

// The names as far as a buffer takes them in which a NUL follows each and one more ends the list.
// The last may be cut.
class NameList {
 public:
  explicit NameList(std::size_t size) : room_(size < 2 ? 0 : size - 2) {}

  void Add(std::wstring_view name) {
    if (name.empty() || room_ == 0) return;
    names_.emplace_back(name.substr(0, room_));
    room_ -= std::min(name.size() + 1, room_);
  }
  std::vector<std::wstring> Take() { return std::move(names_); }

 private:
  std::size_t room_;
  std::vector<std::wstring> names_;
};

bool IsOneLine(std::wstring_view text) {
  return text.find_first_of(std::wstring_view(L"\r\n\0", 3)) == text.npos;
}

}  // namespace

Profile::Profile(const std::wstring& path)
    : Profile(std::make_unique<ProfileText>(ReadProfileText(path).value_or(std::wstring()))) {}

Profile::Profile(std::unique_ptr<ProfileText> text) : text_(std::move(text)) {}

Profile Profile::FromText(std::wstring text) {
  return Profile(std::make_unique<ProfileText>(std::move(text)));
}

Profile::~Profile() = default;

std::wstring Profile::GetString(std::wstring_view section, std::wstring_view key,
                                std::wstring_view default_value, std::size_t size) const {
  const ProfileText::Key* const found = text_->FindKey(section, key);
  std::wstring_view value;
  if (found != nullptr && found->value) {
    value = internal::WithoutQuotes(*found->value);
  } else {
    value = default_value.substr(0, default_value.find_last_not_of(L' ') + 1);
  }
  // A caller that is handed a buffer sees the text up to its first NUL.
  value = value.substr(0, value.find(L'\0'));
  return std::wstring(value.substr(0, size == 0 ? 0 : size - 1));
}

std::int32_t Profile::GetInt(std::wstring_view section, std::wstring_view key,
                             std::int32_t default_value) const {
  const ProfileText::Key* const found = text_->FindKey(section, key);
  if (found == nullptr || !found->value) return default_value;
  const std::wstring_view value = internal::WithoutQuotes(*found->value);
  return value.empty() ? default_value : IntegerOf(value);
}

std::vector<std::wstring> Profile::SectionNames(std::size_t size) const {
  NameList list(size);
  for (const auto& section : text_->sections) list.Add(section.name);
  return list.Take();
}

std::vector<std::wstring> Profile::KeyNames(std::wstring_view section, std::size_t size) const {
  NameList list(size);
  const ProfileText::Section* const found = text_->FindSection(section);
  if (found == nullptr) return {};
  for (std::size_t i = found->first_key; i < found->end_of_keys; ++i) {
    if (text_->keys[i].value) list.Add(text_->keys[i].name);
  }
  return list.Take();
}

std::optional<std::wstring> ReadProfileText(const std::wstring& path) {
  const auto bytes = internal::ReadProfileFile(PathToNative(path));
  return bytes ? DecodeProfile(*bytes) : std::nullopt;
}

std::optional<std::wstring> DecodeProfile(std::string_view bytes) {
  const internal::ProfileForm form = internal::FormOf(bytes);
  bytes.remove_prefix(form.mark_size);
  bytes.remove_suffix(bytes.size() % form.unit_size);  // half a code unit, as the editor has it
  return DecodeText(form.code_page, bytes);
}

bool WriteProfile(const std::wstring& path, const std::vector<ProfileValue>& values) {
  const bool are_lines = std::ranges::all_of(values, [](const ProfileValue& value) {
    return IsOneLine(value.section) && IsOneLine(value.key) && IsOneLine(value.value);
  });
  if (!are_lines) {
    SetLastError(kErrorInvalidParameter);
    return false;
  }
  // A file that another process makes at the same moment is read, and changed, in the next turn.
  for (;;) {
    internal::ProfileFile file;
    if (!file.Open(PathToNative(path))) return false;
    internal::ProfileEditor editor(file.bytes());
    for (const ProfileValue& value : values) {
      if (!editor.Set(value)) return false;
    }
    if (file.Replace(editor.Bytes())) return true;
    if (GetLastError() != kErrorAlreadyExists) return false;
  }
}

bool WriteProfileString(const std::wstring& path, std::wstring_view section, std::wstring_view key,
                        std::wstring_view value) {
  return WriteProfile(path, {{std::wstring(section), std::wstring(key), std::wstring(value)}});
}

}  // namespace vk::tq
