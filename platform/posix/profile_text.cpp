#include "platform/posix/profile_text.h"

#include <algorithm>
#include <utility>

#include "platform/error.h"
#include "platform/posix/upper_case.h"
#include "platform/text.h"

namespace vk::tq::internal {
namespace {

constexpr std::string_view kMarkUtf16Le = "\xFF\xFE";
constexpr std::string_view kMarkUtf8 = "\xEF\xBB\xBF";
constexpr std::wstring_view kLineBreaks = L"\r\n";

constexpr bool IsBlank(wchar_t c) { return c >= 0 && c <= L' '; }

// FNV-1a over the upper-case characters.
std::uint32_t HashOf(std::wstring_view name) {
  std::uint32_t hash = 2166136261u;
  for (const wchar_t c : name) {
    hash = (hash ^ static_cast<std::uint32_t>(ToUpperCharacter(c))) * 16777619u;
  }
  return hash;
}

// Cuts off the text up to the next line break; the break, which may be CR LF, CR or LF, goes too.
std::wstring_view CutLine(std::wstring_view& text) {
  const auto* const end =
      std::ranges::find_if(text, [](wchar_t c) { return c == L'\r' || c == L'\n'; });
  const auto size = static_cast<std::size_t>(end - text.begin());
  const std::wstring_view line = text.substr(0, size);
  text.remove_prefix(size);
  const std::size_t break_size = text.starts_with(kLineBreaks) ? 2 : 1;
  text.remove_prefix(std::min(break_size, text.size()));
  return line;
}

// The code unit at an index of bytes.
unsigned UnitAt(std::string_view bytes, std::size_t index, std::size_t unit_size) {
  const auto byte = [&](std::size_t at) {
    return static_cast<unsigned>(static_cast<unsigned char>(bytes[at]));
  };
  return unit_size == 1 ? byte(index) : byte(index) | byte(index + 1) << 8;
}

// The index of the first code unit of a kind, or the size.
template <class Predicate>
std::size_t FindUnit(std::string_view bytes, std::size_t from, std::size_t unit_size,
                     const Predicate& is_wanted) {
  while (from < bytes.size() && !is_wanted(UnitAt(bytes, from, unit_size))) from += unit_size;
  return std::min(from, bytes.size());
}

}  // namespace

ProfileForm FormOf(std::string_view bytes) {
  if (bytes.starts_with(kMarkUtf16Le)) return {kCodePageUtf16Le, kMarkUtf16Le.size(), 2};
  if (bytes.starts_with(kMarkUtf8)) return {kCodePageUtf8, kMarkUtf8.size(), 1};
  return {AnsiCodePage(), 0, 1};
}

std::wstring_view WithoutBlanks(std::wstring_view text) {
  const auto* const begin = std::ranges::find_if_not(text, IsBlank);
  text.remove_prefix(static_cast<std::size_t>(begin - text.begin()));
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::wstring_view WithoutQuotes(std::wstring_view value) {
  const bool is_quoted = value.size() >= 2 && value.front() == value.back() &&
                         (value.front() == L'"' || value.front() == L'\'');
  return is_quoted ? value.substr(1, value.size() - 2) : value;
}

ProfileLine ParseProfileLine(std::wstring_view line) {
  line = WithoutBlanks(line);
  if (line.empty() || line.front() == L';') return {};
  if (line.front() == L'[') {
    const std::size_t end = line.rfind(L']');
    if (end != line.npos) {
      return {ProfileLine::Kind::kSection, WithoutBlanks(line.substr(1, end - 1)), {}};
    }
  }
  const std::size_t equals_sign = line.find(L'=');
  ProfileLine key{ProfileLine::Kind::kKey, WithoutBlanks(line.substr(0, equals_sign)), {}};
  if (equals_sign != line.npos) key.value = WithoutBlanks(line.substr(equals_sign + 1));
  return key;
}

ProfileText::ProfileText(std::wstring whole_text) : text(std::move(whole_text)) {
  for (std::wstring_view rest = text; !rest.empty();) {
    const ProfileLine line = ParseProfileLine(CutLine(rest));
    if (line.kind == ProfileLine::Kind::kSection) {
      sections.push_back({line.name, keys.size(), keys.size()});
    } else if (line.kind == ProfileLine::Kind::kKey && !sections.empty()) {
      keys.push_back({line.name, line.value});
      sections.back().end_of_keys = keys.size();
    }
  }
  index_.reserve(sections.size() + keys.size());
  for (std::uint32_t scope = 0; scope < sections.size(); ++scope) {
    const Section& section = sections[scope];
    index_.push_back({0, HashOf(section.name), scope});
    for (std::size_t i = section.first_key; i < section.end_of_keys; ++i) {
      index_.push_back({scope + 1, HashOf(keys[i].name), static_cast<std::uint32_t>(i)});
    }
  }
  std::ranges::sort(index_);
}

template <class Item>
const Item* ProfileText::Find(std::uint32_t scope, std::wstring_view name,
                              const std::vector<Item>& items) const {
  name = WithoutBlanks(name);
  const std::uint32_t hash = HashOf(name);
  auto entry = std::ranges::lower_bound(index_, IndexEntry{scope, hash, 0});
  for (; entry != index_.end() && entry->scope == scope && entry->hash == hash; ++entry) {
    const Item& item = items[entry->position];
    if (EqualsNoCase(item.name, name)) return &item;
  }
  return nullptr;
}

const ProfileText::Section* ProfileText::FindSection(std::wstring_view name) const {
  // Most files have so few sections that looking at them is faster than the index.
  constexpr std::size_t kFew = 8;
  if (sections.size() > kFew) return Find(0, name, sections);
  name = WithoutBlanks(name);
  const auto found = std::ranges::find_if(
      sections, [&](const Section& section) { return EqualsNoCase(section.name, name); });
  return found != sections.end() ? &*found : nullptr;
}

const ProfileText::Key* ProfileText::FindKey(std::wstring_view section,
                                             std::wstring_view name) const {
  const Section* const found = FindSection(section);
  if (found == nullptr) return nullptr;
  return Find(static_cast<std::uint32_t>(found - sections.data()) + 1, name, keys);
}

ProfileEditor::ProfileEditor(std::string_view bytes) : form_(FormOf(bytes)) {
  const std::size_t unit_size = form_.unit_size;
  mark_ = bytes.substr(0, form_.mark_size);
  bytes.remove_prefix(form_.mark_size);
  // Half a code unit, and the NULs that a killed process left, are no part of the text.
  bytes.remove_suffix(bytes.size() % unit_size);
  while (!bytes.empty() && UnitAt(bytes, bytes.size() - unit_size, unit_size) == 0) {
    bytes.remove_suffix(unit_size);
  }
  const auto is_break = [](unsigned unit) { return unit == '\r' || unit == '\n'; };
  while (!bytes.empty()) {
    const std::size_t size = FindUnit(bytes, 0, unit_size, is_break);
    std::size_t end = std::min(size + unit_size, bytes.size());
    const bool is_pair = end < bytes.size() && UnitAt(bytes, size, unit_size) == '\r' &&
                         UnitAt(bytes, end, unit_size) == '\n';
    if (is_pair) end += unit_size;
    const std::wstring text =
        DecodeText(form_.code_page, bytes.substr(0, size)).value_or(std::wstring());
    const ProfileLine line = ParseProfileLine(text);
    lines_.push_back({std::string(bytes.substr(0, size)),
                      std::string(bytes.substr(size, end - size)), line.kind,
                      std::wstring(line.name)});
    bytes.remove_prefix(end);
  }
  line_end_ = lines_.empty() ? std::string() : lines_.front().line_end;
  if (line_end_.empty()) line_end_ = Encode(L"\r\n").value_or(std::string());
}

std::optional<std::string> ProfileEditor::Encode(std::wstring_view text) const {
  return EncodeText(form_.code_page, text);
}

std::optional<std::size_t> ProfileEditor::FindSection(std::wstring_view name) const {
  const auto found = std::ranges::find_if(lines_, [&](const Line& line) {
    return line.kind == ProfileLine::Kind::kSection && EqualsNoCase(line.name, name);
  });
  if (found == lines_.end()) return std::nullopt;
  return static_cast<std::size_t>(found - lines_.begin());
}

std::string ProfileEditor::PrefixOfValue(const Line& line, bool keeps_blanks) const {
  const auto is_equals_sign = [](unsigned unit) { return unit == '='; };
  const auto is_no_blank = [](unsigned unit) { return unit != ' ' && unit != '\t'; };
  const std::size_t sign = FindUnit(line.bytes, 0, form_.unit_size, is_equals_sign);
  if (sign == line.bytes.size()) return line.bytes + Encode(L"=").value_or(std::string());
  const std::size_t behind = sign + form_.unit_size;
  const std::size_t value = FindUnit(line.bytes, behind, form_.unit_size, is_no_blank);
  return line.bytes.substr(0, !keeps_blanks || value == line.bytes.size() ? behind : value);
}

void ProfileEditor::Insert(std::size_t index, ProfileLine::Kind kind, std::wstring_view name,
                           std::string bytes) {
  if (index > 0 && lines_[index - 1].line_end.empty()) lines_[index - 1].line_end = line_end_;
  lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(index),
                {std::move(bytes), line_end_, kind, std::wstring(name)});
}

bool ProfileEditor::Set(const ProfileValue& change) {
  const std::wstring_view section = WithoutBlanks(change.section);
  const std::wstring_view key = WithoutBlanks(change.key);
  const auto header = Encode(L"[" + std::wstring(section) + L"]");
  const auto value = Encode(change.value);
  const auto line = Encode(std::wstring(key) + L"=" + change.value);
  if (!header || !value || !line) return false;

  const auto found = FindSection(section);
  if (!found) {
    Insert(lines_.size(), ProfileLine::Kind::kSection, section, *header);
    Insert(lines_.size(), ProfileLine::Kind::kKey, key, *line);
    return true;
  }
  // The blanks of the line in front of blanks of the value would make it grow with each write.
  const bool keeps_blanks = !change.value.empty() && !IsBlank(change.value.front());
  std::size_t behind_last_key = *found + 1;
  for (std::size_t i = *found + 1; i < lines_.size(); ++i) {
    if (lines_[i].kind == ProfileLine::Kind::kSection) break;
    if (lines_[i].kind != ProfileLine::Kind::kKey) continue;
    if (EqualsNoCase(lines_[i].name, key)) {
      lines_[i].bytes = PrefixOfValue(lines_[i], keeps_blanks) + *value;
      return true;
    }
    behind_last_key = i + 1;
  }
  Insert(behind_last_key, ProfileLine::Kind::kKey, key, *line);
  return true;
}

std::string ProfileEditor::Bytes() const {
  std::string bytes = mark_;
  for (const Line& line : lines_) bytes.append(line.bytes).append(line.line_end);
  return bytes;
}

}  // namespace vk::tq::internal
