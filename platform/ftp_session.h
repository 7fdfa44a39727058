/// FTP sessions (RFC 959), from the side of the client.
///
/// Programs use CFtp (transport/ftp.h), which shows the handles and error values of this header; its
/// operations are for the library alone.
///
/// What is open is named by handles: an internet handle holds time-outs, a connection handle stands
/// for one control connection to one server, logged in, and a find handle for the answer to one
/// search. A handle is a number that is never given twice. Copies of it name the same thing,
/// closing it through one of them makes the others stale, and a stale handle fails with 6 and
/// touches nothing. Closing a handle also closes those that were made from it.
///
/// A connection is the one that ConnectFtp made until it is closed: when it breaks, every later
/// operation fails with 12030 or 12031. It is never made anew behind the caller's back, since the
/// current directory would be lost with it. Operations on one connection from several threads come
/// one after the other.
///
/// Transfers are binary and passive. The data connection leads to the address of the control
/// connection's peer, whatever address the server names; an IPv6 peer is asked by EPSV (RFC 2428).
///
/// Remote names and directories go out in the ANSI code page, byte for byte. One that is empty, has
/// a control character in it (CR, LF and NUL among them) or a character that the code page lacks
/// fails with 123 before anything is sent. A host, user or password with a line break, a NUL or a
/// character that the code page lacks fails with 12007, 12013 or 12014 before anybody is called.
///
/// Every operation that fails sets the last error:
///
/// | value | meaning                                                                  |
/// |-------|--------------------------------------------------------------------------|
/// | 6     | no handle, or a stale one                                                |
/// | 12018 | a handle of another kind                                                 |
/// | 12002 | a wait took longer than the time-out in force allows                     |
/// | 12003 | the server answered with a code from 400 on; LastFtpResponse has it      |
/// | 12007 | the host's name does not resolve, or is none                             |
/// | 12013 | the user name was refused                                                |
/// | 12014 | the password was refused                                                 |
/// | 12015 | the log-in failed otherwise                                              |
/// | 12029 | the server cannot be reached                                             |
/// | 12030 | the connection ended                                                     |
/// | 12031 | the connection was reset                                                 |
/// | 13    | the answer is no FTP reply, one that does not belong there, or lacks     |
/// |       | what it must hold                                                        |
/// | 123   | a remote name that cannot go out                                         |
///
/// A local file that cannot be read or written fails with the value that the file operation has.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/error.h"

namespace vk::tq {

using FtpHandle = std::uintptr_t;
inline constexpr FtpHandle kNoFtpHandle = 0;

inline constexpr ErrorCode kErrorInternetTimeout = 12002;
inline constexpr ErrorCode kErrorInternetExtendedError = 12003;
inline constexpr ErrorCode kErrorInternetNameNotResolved = 12007;
inline constexpr ErrorCode kErrorInternetIncorrectUserName = 12013;
inline constexpr ErrorCode kErrorInternetIncorrectPassword = 12014;
inline constexpr ErrorCode kErrorInternetLoginFailure = 12015;
inline constexpr ErrorCode kErrorInternetIncorrectHandleType = 12018;
inline constexpr ErrorCode kErrorInternetCannotConnect = 12029;
inline constexpr ErrorCode kErrorInternetConnectionAborted = 12030;
inline constexpr ErrorCode kErrorInternetConnectionReset = 12031;

/// The waits of a session that can be bounded, by their option numbers.
enum class FtpTimeout : std::uint32_t {
  kConnect = 2,         ///< resolving and connecting, the data connection's as well
  kControlSend = 5,     ///< a command going out
  kControlReceive = 6,  ///< a whole reply
  kDataSend = 7,        ///< a piece of a file going out
  kDataReceive = 8,     ///< a piece of a file coming in
};

/// A time-out that never ends a wait.
inline constexpr std::uint32_t kNoFtpTimeout = 0xFFFFFFFF;

/// A new internet handle, with a time-out of 30 seconds for every wait. The agent is what the
/// program calls itself, for protocols that tell it to the server; FTP does not.
FtpHandle OpenFtp(std::wstring_view agent);

/// Bounds one kind of wait on the connections that are made from an internet handle afterwards. For
/// a file the time counts anew whenever a piece moves, so that a long transfer may last; a reply has
/// to be whole in time, whatever comes of it before. A wait of 0 milliseconds cannot succeed and is
/// refused (87).
bool SetFtpTimeout(FtpHandle internet, FtpTimeout which, std::uint32_t milliseconds);

/// Connects and logs in. An empty user name stands for "anonymous". No proxy is used, and no
/// account is taken from anywhere else.
FtpHandle ConnectFtp(FtpHandle internet, std::wstring_view host, std::uint16_t port,
                     std::wstring_view user, std::wstring_view password);

/// Closes a handle of any kind. A sound connection takes leave of the server, and waits at most a
/// second for the answer.
bool CloseFtpHandle(FtpHandle handle);

/// Changes the server's current directory.
bool SetFtpDirectory(FtpHandle connection, std::wstring_view directory);

/// Fetches a file. An existing local file is replaced in one step, once the whole file is on the
/// disk, and keeps its rights, and its owner where that is allowed; until then, and whatever goes
/// wrong, it stays as it was. A link in its place is replaced, never followed.
bool GetFtpFile(FtpHandle connection, std::wstring_view remote_name, const std::wstring& local);

/// Stores a file, as long as it is found to be while it is read; an existing remote file is
/// overwritten. When a local file is missing nothing is sent. A transfer that fails half-way is
/// broken off so that the server can tell, and leaves the connection usable if the server still
/// answers within the time-out of a reply; what is left of the remote file is the server's choice.
bool PutFtpFile(FtpHandle connection, const std::wstring& local, std::wstring_view remote_name);

/// Gives a remote file another name (RNFR, RNTO). Whether that replaces a file is the server's choice.
bool RenameFtpFile(FtpHandle connection, std::wstring_view old_name, std::wstring_view new_name);

/// Removes a remote file (DELE).
bool DeleteFtpFile(FtpHandle connection, std::wstring_view remote_name);

/// The size of a remote file in bytes, as the server tells it for a binary transfer (SIZE, RFC
/// 3659).
std::optional<std::uint64_t> FtpFileSize(FtpHandle connection, std::wstring_view remote_name);

/// Looks a file up in the server's listing, in the form of a Unix or an MS-DOS directory, and gives
/// a find handle and the listed size in bytes. A directory is no file. Fails with 18 when the
/// listing lacks the name.
///
/// The server is asked to list that name alone, or, for a name that it might take for an option or
/// a pattern, the current directory; such a name is not found in another directory. A server lists
/// what a directory contains when it is asked for the directory: a file of the same name in it is
/// then taken for the one that was looked for.
FtpHandle FindFtpFile(FtpHandle connection, std::wstring_view remote_name, std::uint64_t& size);

/// The reply that made the last operation of this thread fail with 12003, 12013, 12014 or 12015:
/// its code (RFC 959, 4.2) and its text, code and all, in the server's bytes, with a NUL behind. Of a
/// reply in which the password stands, the text is the code alone. A code of 0 and an empty text when
/// it did not end in such a way. Fails with 122 when the text does not fit.
bool LastFtpResponse(ErrorCode& code, std::span<char> text);

}  // namespace vk::tq
