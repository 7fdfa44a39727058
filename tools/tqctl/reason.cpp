#include "tqctl/reason.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

#include "platform/path.h"
#include "tqctl/text.h"

namespace tqctl {
namespace {

struct Reason {
  unsigned code;
  const wchar_t* why;
  const wchar_t* what_to_do;
};

constexpr const wchar_t* kLookAtServer = L"Look at the server's address, its port and its log.";
constexpr const wchar_t* kLookAtAccount = L"Look at the user and the password.";
constexpr const wchar_t* kLookAtAddress = L"Look at the address and at the zone of the DNS server.";

// The library's error values: those of files, of FTP and of DNS.
constexpr Reason kReasons[] = {
    {2, L"there is no such file", L"Look at the name."},
    {3, L"there is no such folder", L"Make the folder, or look at its name."},
    {5, L"it is a folder, or you have no right to use it", L"Look at the rights of the file."},
    {13, L"the answer makes no sense", kLookAtServer},
    {32, L"another program has it open", L"Try again."},
    {87, L"an argument is not valid", L"Look at the arguments."},
    {112, L"the disk is full", L"Make room on the disk."},
    {123, L"the name cannot be used", L"Choose a name without control characters."},
    {1460, L"no answer came in time", kLookAtServer},
    {9001, L"the DNS server found an error in the question", kLookAtServer},
    {9002, L"the DNS server failed", kLookAtServer},
    {9003, L"the DNS server knows no such name", kLookAtAddress},
    {9004, L"the DNS server does not answer such questions", kLookAtServer},
    {9005, L"the DNS server refused", kLookAtServer},
    {9501, L"the address has no name", kLookAtAddress},
    {9502, L"the answer makes no sense", kLookAtServer},
    {12002, L"no answer came in time", L"Try again with a longer --timeout."},
    {12003, L"the server refused", L"Look at the names, and at the rights on the server."},
    {12007, L"the server's name is not known", L"Look at the server's name."},
    {12013, L"the server refused the user", kLookAtAccount},
    {12014, L"the server refused the password", kLookAtAccount},
    {12015, L"the server refused the log-in", kLookAtAccount},
    {12029, L"the server cannot be reached", kLookAtServer},
    {12030, L"the server closed the connection", L"Try again, or look at the server's log."},
    {12031, L"the connection was cut", L"Try again, or look at the server's log."},
};

}  // namespace

Failure FailureWith(const std::wstring& what_happened, unsigned code) {
  const auto* const reason = std::ranges::find(kReasons, code, &Reason::code);
  if (reason == std::end(kReasons)) {
    return {what_happened + L": error " + std::to_wstring(code) + L".",
            L"Run the command again with -v to see what happened before."};
  }
  return {what_happened + L": " + reason->why + L" (error " + std::to_wstring(code) + L").",
          reason->what_to_do};
}

std::uint64_t SizeToSend(const std::wstring& path) {
  std::error_code error;
  const std::uint64_t size = std::filesystem::file_size(vk::tq::PathToNative(path), error);
  if (!error) return size;
  throw FailureWith(QuotedPath(path) + L" cannot be read",
                    error == std::errc::no_such_file_or_directory ? 2 : 5);
}

}  // namespace tqctl
