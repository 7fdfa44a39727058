#include "platform/path.h"

#include <fcntl.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "platform/posix/native.h"

namespace vk::tq {
namespace {

constexpr std::wstring_view kSeparators = L"\\/";

constexpr bool IsDrive(std::wstring_view path) {
  if (path.size() < 2 || path[1] != L':') return false;
  return (path[0] >= L'A' && path[0] <= L'Z') || (path[0] >= L'a' && path[0] <= L'z');
}

std::string VolumesRoot() {
  return EnvironmentOverride("TQ_VOLUMES").value_or("/var/lib/tessaloquin/volumes");
}

// The path below a drive. Its ".." are resolved by name, and none leads out of the drive.
std::string BelowDrive(std::wstring_view path) {
  std::vector<std::wstring_view> names;
  const bool ends_in_separator = !path.empty() && kSeparators.find(path.back()) != path.npos;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find_first_of(kSeparators), path.size());
    const std::wstring_view name = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    if (name == L"..") {
      if (!names.empty()) names.pop_back();
    } else if (!name.empty() && name != L".") {
      names.push_back(name);
    }
  }
  std::string native;
  for (const auto name : names) native += '/' + NameToNative(name);
  if (ends_in_separator) native += '/';
  return native;
}

// The value of an environment variable that names a folder, in the library's form. It may be
// written with backslashes.
std::optional<std::wstring> FolderFromEnvironment(const char* name) {
  auto value = EnvironmentOverride(name);
  if (!value) return std::nullopt;
  std::ranges::replace(*value, '\\', '/');
  std::wstring folder = PathFromNative(*value);
  while (folder.size() > 1 && folder.back() == L'\\') folder.pop_back();
  return folder;
}

bool IsAbsolute(const std::optional<std::string>& native) {
  return native && native->front() == '/';
}

// The home folder that the password database knows.
std::optional<std::string> HomeOfAccount() {
  std::vector<char> buffer(1024);
  passwd entry{};
  passwd* found = nullptr;
  int result = 0;
  while ((result = getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(2 * buffer.size());
  }
  if (result != 0 || found == nullptr || entry.pw_dir == nullptr || entry.pw_dir[0] != '/') {
    return std::nullopt;
  }
  return entry.pw_dir;
}

std::optional<std::wstring> UserDataFolder() {
  if (auto folder = FolderFromEnvironment("TQ_APPDATA")) return folder;
  if (IsAbsolute(EnvironmentOverride("XDG_DATA_HOME"))) {
    return FolderFromEnvironment("XDG_DATA_HOME");
  }
  auto home = EnvironmentOverride("HOME");
  if (!IsAbsolute(home)) home = HomeOfAccount();
  if (!home) return std::nullopt;
  while (home->ends_with('/')) home->pop_back();
  return PathFromNative(*home + "/.local/share");
}

}  // namespace

std::wstring InternalPath(std::wstring_view path) {
  std::wstring internal(path);
  std::ranges::replace(internal, L'/', L'\\');
  return internal;
}

std::wstring PathFromNative(std::string_view native) {
  return InternalPath(NameFromNative(native));
}

std::string PathToNative(std::wstring_view path) {
  path = path.substr(0, path.find(L'\0'));
  if (IsDrive(path)) {
    std::string native = VolumesRoot() + '/';
    native += static_cast<char>(path[0] | 0x20);
    return native + BelowDrive(path.substr(2));
  }
  std::wstring slashed(path);
  std::ranges::replace(slashed, L'\\', L'/');
  return NameToNative(slashed);
}

std::optional<std::wstring> SpecialFolder(int number) {
  switch (number) {
    case kFolderCommonAppData:
      return FolderFromEnvironment("TQ_COMMON_APPDATA").value_or(L"\\var\\lib");
    case kFolderAppData:
      return UserDataFolder();
    default:
      return std::nullopt;
  }
}

std::wstring ProgramPath() {
  std::string native(256, '\0');
  for (;;) {
    const ssize_t size = readlink("/proc/self/exe", native.data(), native.size());
    if (size < 0) {
      FailWithErrno();
      return {};
    }
    if (static_cast<std::size_t>(size) < native.size()) {
      native.resize(static_cast<std::size_t>(size));
      break;
    }
    native.resize(2 * native.size());
  }
  // The mark of a program whose file was replaced while it runs.
  constexpr std::string_view kDeleted = " (deleted)";
  if (native.ends_with(kDeleted) && access(native.c_str(), F_OK) != 0) {
    native.resize(native.size() - kDeleted.size());
  }
  return PathFromNative(native);
}

std::wstring CreateTemporaryFile(std::wstring_view prefix) {
  constexpr std::size_t kLongestName = 255;
  constexpr std::string_view kRandomPart = "XXXXXX";
  std::wstring name;
  for (const wchar_t c : prefix)
    name += kSeparators.find(c) != kSeparators.npos || c == 0 ? L'_' : c;
  while (NameToNative(name).size() > kLongestName - kRandomPart.size()) name.pop_back();

  std::string folder = EnvironmentOverride("TMPDIR").value_or("/tmp");
  if (folder.front() != '/') folder = "/tmp";
  std::string native = folder + '/' + NameToNative(name) + std::string(kRandomPart);
  // Whoever has made the file must not fail: nobody else could remove it.
  std::wstring path = PathFromNative(native);
  const FileDescriptor file(mkostemp(native.data(), O_CLOEXEC));
  if (!file) {
    FailWithErrno();
    return {};
  }
  std::copy_n(native.rbegin(), kRandomPart.size(), path.rbegin());
  return path;
}

std::optional<std::string> EnvironmentOverride(const char* name) {
  const char* const value = secure_getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return value;
}

}  // namespace vk::tq
