// INI files: reading, and changing one value. Input: three lines (section, key, value), the file.
#include "fuzz/support.h"
#include "platform/error.h"
#include "platform/posix/profile_text.h"
#include "platform/profile.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

constexpr std::size_t kEverything = 1U << 20;

Profile ProfileOf(std::string_view bytes) {
  const std::optional<std::wstring> text = DecodeProfile(bytes);
  Require(text.has_value(), "any bytes are a text");
  return Profile::FromText(*text);
}

bool IsSame(std::wstring_view left, std::wstring_view right) {
  return EqualsNoCase(left, internal::WithoutBlanks(right));
}

// Every key but the one that was changed has its old value.
void CheckOthers(const Profile& before, const Profile& after, const ProfileValue& change) {
  for (const std::wstring& section : before.SectionNames(kEverything)) {
    for (const std::wstring& key : before.KeyNames(section, kEverything)) {
      if (IsSame(section, change.section) && IsSame(key, change.key)) continue;
      Require(after.GetString(section, key, L"", kEverything) ==
                  before.GetString(section, key, L"", kEverything),
              "a change keeps the other keys");
    }
  }
}

void CheckBuffers(const Profile& profile, const ProfileValue& asked) {
  const std::wstring whole = profile.GetString(asked.section, asked.key, asked.value, kEverything);
  for (const std::size_t size : {0U, 1U, 2U, 7U}) {
    const std::wstring cut = profile.GetString(asked.section, asked.key, asked.value, size);
    Require(cut.size() <= (size == 0 ? 0 : size - 1), "a value fits its buffer");
    Require(whole.starts_with(cut), "a value that is cut is the beginning of the whole one");
    std::size_t listed = 1;
    for (const std::wstring& name : profile.SectionNames(size)) listed += name.size() + 1;
    Require(listed <= std::max<std::size_t>(size, 1), "a list fits its buffer");
  }
}

std::size_t NulsAtEnd(std::string_view bytes) {
  const std::size_t last = bytes.substr(0, bytes.size() / 2 * 2).find_last_not_of('\0');
  return last == bytes.npos ? bytes.size() : bytes.size() - last;
}

// A name that a line of a file can hold as it is.
bool IsPlainName(std::wstring_view name) {
  return !name.empty() && name.find_first_of(L"[]=;\"'") == name.npos &&
         internal::WithoutBlanks(name) == name && OnOneLine(name) == name;
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  const ProfileValue change{Wide(input.Line()), Wide(input.Line()), Wide(input.Line())};
  const std::string_view bytes = input.Rest();
  const Profile before = ProfileOf(bytes);
  before.GetInt(change.section, change.key, -1);
  CheckBuffers(before, change);

  for (const std::wstring& text : {change.section, change.key, change.value}) {
    if (OnOneLine(text) != text) return;
  }
  // With "]" behind it, that is the line of a section.
  if (internal::WithoutBlanks(change.key).starts_with(L'[')) return;
  internal::ProfileEditor editor(bytes);
  const std::string unchanged = editor.Bytes();
  // NULs at the end were left by a process that was killed, and half a code unit is nothing.
  Require(bytes.starts_with(unchanged) && bytes.size() - unchanged.size() <= 1 + NulsAtEnd(bytes),
          "without a change every byte stays");
  if (!editor.Set(change)) {
    Require(GetLastError() == kErrorInvalidParameter, "what a file cannot hold is refused");
    return;
  }
  const std::string changed = editor.Bytes();
  const Profile after = ProfileOf(changed);
  CheckOthers(before, after, change);
  if (IsPlainName(change.section) && IsPlainName(change.key)) {
    const std::wstring_view stored = internal::WithoutQuotes(internal::WithoutBlanks(change.value));
    Require(after.GetString(change.section, change.key, L"none", kEverything) == UpToNul(stored),
            "what was written is read");
    internal::ProfileEditor second(changed);
    Require(second.Set(change) && second.Bytes() == changed, "to write it again changes nothing");
  }
}
