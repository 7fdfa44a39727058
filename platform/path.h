/// Where things are. Inside the library a path is wide text with backslashes.
///
/// A path with a drive letter lies below the volumes root (TQ_VOLUMES); one that begins with a
/// backslash is the path of that name on this machine; any other is relative to the current folder.
/// The variables that move the folders are ignored in set-uid programs.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/export.h"

namespace vk::tq {

/// Folder numbers of SpecialFolder.
inline constexpr int kFolderAppData = 26;        ///< the user's application data
inline constexpr int kFolderCommonAppData = 35;  ///< application data of all users

/// The path in the library's own form: every slash becomes a backslash.
std::wstring InternalPath(std::wstring_view path);

/// A path in the form that this machine's own programs use, in the library's form.
TQ_EXPORT std::wstring PathFromNative(std::string_view native);
/// And back: where a path of the library lies on this machine.
TQ_EXPORT std::string PathToNative(std::wstring_view path);

/// The folder with a number, without a backslash at its end; nothing for a number that is not known
/// here.
std::optional<std::wstring> SpecialFolder(int number);

/// The full path of the running program's file; empty, with the last error set, when it cannot be
/// had.
std::wstring ProgramPath();

/// Makes a new empty file in the temporary folder that only the calling user can open, and gives
/// its path. The name begins with the prefix. Empty, with the last error set, on failure.
std::wstring CreateTemporaryFile(std::wstring_view prefix);

/// The value of an environment variable of the library; nothing when it is unset or empty, or in a
/// set-uid program.
std::optional<std::string> EnvironmentOverride(const char* name);

}  // namespace vk::tq
