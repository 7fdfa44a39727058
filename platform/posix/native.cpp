#include "platform/posix/native.h"

#include "platform/posix/utf8.h"

namespace vk::tq {
namespace {

constexpr char32_t kEscape = 0xDC00;

}  // namespace

void FileDescriptor::Reset(int descriptor) noexcept {
  const int old = std::exchange(descriptor_, descriptor);
  if (old < 0) return;
  const int kept = errno;
  close(old);
  errno = kept;
}

std::wstring NameFromNative(std::string_view name) {
  std::wstring wide;
  wide.reserve(name.size());
  for (std::size_t i = 0; i < name.size();) {
    const Utf8Character character = ReadUtf8(name.substr(i));
    if (character.is_valid() && character.value != U'\\') {
      wide += static_cast<wchar_t>(character.value);
      i += character.length;
    } else {
      wide += static_cast<wchar_t>(kEscape + static_cast<unsigned char>(name[i++]));
    }
  }
  return wide;
}

std::string NameToNative(std::wstring_view name) {
  std::string native;
  native.reserve(name.size());
  for (std::size_t i = 0; i < name.size();) {
    const auto unit = static_cast<char32_t>(name[i]);
    const bool is_escape =
        unit == kEscape + U'\\' || (unit >= kEscape + 0x80 && unit <= kEscape + 0xFF);
    if (is_escape) {
      native += static_cast<char>(unit - kEscape);
      ++i;
    } else {
      AppendUtf8Character(ReadCodePoint(name, i), native);
    }
  }
  return native;
}

std::string ParentOf(const std::string& native) {
  const std::size_t slash = native.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : native.substr(0, slash);
}

std::string DescriptorPath(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

}  // namespace vk::tq
