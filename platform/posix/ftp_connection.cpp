#include "platform/posix/ftp_connection.h"

#include <algorithm>
#include <charconv>
#include <new>
#include <system_error>
#include <utility>

#include "platform/file.h"
#include "platform/ftp_session.h"
#include "platform/posix/ftp_listing.h"
#include "platform/posix/ftp_socket.h"
#include "platform/posix/replacement_file.h"
#include "platform/secure_memory.h"

namespace vk::tq {
namespace {

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;
// A folder of half a million files; what sends more means to keep us.
constexpr std::size_t kLongestListing = std::size_t{64} << 20;
constexpr ErrorCode kFirstInternetError = 12001;

bool IsControl(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; }

// A remote name as it goes out.
std::optional<std::string> RemoteName(std::wstring_view name) {
  std::optional<std::string> bytes = FtpBytes(name);
  if (bytes && (bytes->empty() || std::ranges::any_of(*bytes, IsControl))) bytes.reset();
  if (!bytes) Fail(kErrorInvalidName);
  return bytes;
}

std::optional<std::uint64_t> ReadNumber(std::string_view& text) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) return {};
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return value;
}

std::string_view BehindCode(std::string_view text) {
  return text.substr(std::min<std::size_t>(text.size(), 4));
}

// What stands behind the number, or the other character, that a text begins with.
std::string_view BehindNumber(std::string_view text) {
  const std::size_t end = text.find_first_not_of("0123456789");
  return text.substr(std::min(std::max<std::size_t>(end, 1), text.size()));
}

// The port of six numbers with commas between them, wherever in the text they stand (RFC 1123,
// 4.1.2.6).
std::optional<std::uint16_t> ParsePassive(std::string_view text) {
  for (; !text.empty(); text = BehindNumber(text)) {
    std::string_view rest = text;
    std::uint64_t numbers[6] = {};
    bool fits = true;
    for (std::size_t i = 0; fits && i < std::size(numbers); ++i) {
      if (i > 0) {
        fits = rest.starts_with(',');
        if (fits) rest.remove_prefix(1);
      }
      const std::optional<std::uint64_t> number = fits ? ReadNumber(rest) : std::nullopt;
      fits = number && *number <= 255;
      if (fits) numbers[i] = *number;
    }
    const std::uint64_t port = numbers[4] * 256 + numbers[5];
    if (fits && port != 0) return static_cast<std::uint16_t>(port);
  }
  return {};
}

// The port in "(|||port|)", where any character may stand for the bar.
std::optional<std::uint16_t> ParseExtendedPassive(std::string_view text) {
  const std::size_t open = text.find('(');
  if (open == std::string_view::npos || text.size() < open + 6) return {};
  const char bar = text[open + 1];
  std::string_view rest = text.substr(open + 4);
  if (text[open + 2] != bar || text[open + 3] != bar) return {};
  const std::optional<std::uint64_t> port = ReadNumber(rest);
  if (!port || *port == 0 || *port > 65535 || !rest.starts_with(bar)) return {};
  return static_cast<std::uint16_t>(*port);
}

// Whether a server might take a name for an option, a pattern or several names when it lists it.
bool IsPlainName(std::string_view name) {
  return name.front() != '-' && name.find_first_of(" *?[]{}~\\\"'") == std::string_view::npos;
}

}  // namespace

// A file on its way out, piece by piece. It is closed, and its lock given back, as soon as its end
// has been read: what fits into one piece is read before the server hears of it, so that no server
// decides how long nobody can write it.
class FtpConnection::OutgoingFile {
 public:
  bool Open(const std::wstring& path) { return file_->Open(path) && ReadPiece(); }
  // Empty behind the end.
  std::string_view piece() const { return {reinterpret_cast<const char*>(buffer_.data()), size_}; }
  bool ReadPiece() {
    size_ = 0;
    if (!file_) return true;
    const std::optional<std::size_t> got = file_->Read(buffer_.data(), buffer_.size());
    if (!got) return false;
    size_ = *got;
    if (size_ < buffer_.size()) file_.reset();
    return true;
  }

 private:
  std::optional<InputFile> file_{std::in_place};
  SecureBytes buffer_ = SecureBytes(kBufferSize);
  std::size_t size_ = 0;
};

bool FtpConnection::SetDirectory(std::wstring_view directory) {
  const std::optional<std::string> name = RemoteName(directory);
  return name && control_->Command("CWD", *name);
}

bool FtpConnection::Rename(std::wstring_view old_name, std::wstring_view new_name) {
  const std::optional<std::string> from = RemoteName(old_name);
  if (!from) return false;
  const std::optional<std::string> to = RemoteName(new_name);
  return to && control_->Command("RNFR", *from, FtpReplyKind::kIntermediate) &&
         control_->Command("RNTO", *to);
}

bool FtpConnection::Delete(std::wstring_view remote_name) {
  const std::optional<std::string> name = RemoteName(remote_name);
  return name && control_->Command("DELE", *name);
}

std::optional<std::uint64_t> FtpConnection::Size(std::wstring_view remote_name) {
  const std::optional<std::string> name = RemoteName(remote_name);
  if (!name || !SetType('I')) return {};
  const std::optional<FtpReply> reply = control_->Command("SIZE", *name);
  if (!reply) return {};
  std::string_view text = BehindCode(reply->text);
  const std::optional<std::uint64_t> size = ReadNumber(text);
  if (!size) Fail(kErrorInvalidData);
  return size;
}

std::optional<std::uint64_t> FtpConnection::ListedSize(std::wstring_view remote_name) {
  const std::optional<std::string> name = RemoteName(remote_name);
  if (!name || !SetType('A')) return {};
  const bool is_plain = IsPlainName(*name);
  FtpListingSearch search(*name, is_plain);
  std::size_t left = kLongestListing;
  const bool is_listed = Fetch("LIST", is_plain ? *name : "", [&](std::string_view bytes) {
    search.Add(bytes);
    left -= std::min(left, bytes.size());
    return left > 0 || Fail(kErrorInvalidData);
  });
  if (!is_listed) return {};
  const std::optional<std::uint64_t> size = search.Finish();
  if (!size) Fail(kErrorNoMoreFiles);
  return size;
}

bool FtpConnection::Get(std::wstring_view remote_name, const std::wstring& local) {
  const std::optional<std::string> name = RemoteName(remote_name);
  ReplacementFile file;
  if (!name || !file.Open(local) || !SetType('I')) return false;
  return Fetch("RETR", *name,
               [&](std::string_view bytes) { return file.Write(bytes.data(), bytes.size()); }) &&
         file.Commit();
}

bool FtpConnection::Put(const std::wstring& local, std::wstring_view remote_name) {
  const std::optional<std::string> name = RemoteName(remote_name);
  OutgoingFile file;
  if (!name || !file.Open(local) || !SetType('I')) return false;
  return Transfer("STOR", *name, [&](int data) { return SendFile(data, file); });
}

bool FtpConnection::SetType(char type) {
  if (type_ == type) return true;
  if (!control_->Command("TYPE", {&type, 1})) return false;
  type_ = type;
  return true;
}

std::optional<std::uint16_t> FtpConnection::Passive() {
  const bool is_extended = IsIpv6(control_->socket());
  const std::optional<FtpReply> reply = control_->Command(is_extended ? "EPSV" : "PASV");
  if (!reply) return {};
  const std::string_view text = BehindCode(reply->text);
  const auto port = is_extended ? ParseExtendedPassive(text) : ParsePassive(text);
  if (!port) Fail(kErrorInvalidData);
  return port;
}

FileDescriptor FtpConnection::Begin(std::string_view verb, std::string_view argument) {
  const std::optional<std::uint16_t> port = Passive();
  if (!port) return {};
  FileDescriptor data = ConnectBeside(control_->socket(), *port, timeouts_.connect);
  if (!data || control_->Begin(verb, argument)) return data;
  AbortConnection(std::move(data));
  return {};
}

bool FtpConnection::End(FileDescriptor data, bool is_whole) {
  if (is_whole) {
    data.Reset();
    return control_->End();
  }
  const ErrorCode failure = GetLastError();
  AbortConnection(std::move(data));
  control_->End();
  // The server's own word explains more than a connection that it closed; but not a disk that is
  // full here.
  const bool is_explained = GetLastError() == kErrorInternetExtendedError;
  return Fail(is_explained && failure >= kFirstInternetError ? kErrorInternetExtendedError
                                                             : failure);
}

template <class Work>
bool FtpConnection::Transfer(std::string_view verb, std::string_view argument, const Work& work) {
  FileDescriptor data = Begin(verb, argument);
  if (!data) return false;
  bool is_whole = false;
  try {
    is_whole = work(data.get());
  } catch (const std::bad_alloc&) {
    Fail(kErrorNotEnoughMemory);
  }
  return End(std::move(data), is_whole);
}

bool FtpConnection::Fetch(std::string_view verb, std::string_view argument, const Sink& sink) {
  return Transfer(verb, argument, [&](int data) {
    SecureBytes buffer(kBufferSize);
    std::optional<std::size_t> got;
    do {
      got = ReceiveSome(data, buffer.data(), buffer.size(), timeouts_.data_receive);
      if (got && !sink({reinterpret_cast<const char*>(buffer.data()), *got})) got.reset();
    } while (got.value_or(0) > 0);
    return got.has_value();
  });
}

bool FtpConnection::SendFile(int data, OutgoingFile& file) {
  while (!file.piece().empty()) {
    const Sent sent = SendAll(data, file.piece(), timeouts_.data_send, control_->socket());
    if (sent == Sent::kInterrupted) return Fail(kErrorInternetConnectionAborted);
    if (sent == Sent::kFailed || !file.ReadPiece()) return false;
  }
  return true;
}

}  // namespace vk::tq
