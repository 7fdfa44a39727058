#include "platform/posix/ftp_control.h"

#include <curl/curl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/ftp_session.h"
#include "platform/text.h"

namespace vk::tq {
namespace {

// A reply cannot have a longer line: an endless one would fill the memory.
constexpr std::size_t kLongestLine = std::size_t{64} * 1024;
constexpr std::uint32_t kLongestFarewell = 1000;
constexpr std::uint32_t kLongestPoll = 60000;
constexpr int kServiceClosing = 421;

struct UrlDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct MultiDeleter {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
using Url = std::unique_ptr<CURLU, UrlDeleter>;

bool StartCurl() try {
  // One that fails may have lacked memory: as it throws, the next call starts anew.
  static const bool is_started = [] {
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) throw std::runtime_error("libcurl");
    return true;
  }();
  return is_started;
} catch (const std::runtime_error&) {
  return false;
}

// ftp://host:port/ ; null when the host's name cannot be one.
Url MakeUrl(std::string_view host, std::uint16_t port) {
  Url url(curl_url());
  std::string name(host);
  if (name.find(':') != std::string::npos && name.front() != '[') name = "[" + name + "]";
  const std::string port_text = std::to_string(port);
  if (url != nullptr && curl_url_set(url.get(), CURLUPART_SCHEME, "ftp", 0) == CURLUE_OK &&
      curl_url_set(url.get(), CURLUPART_HOST, name.c_str(), 0) == CURLUE_OK &&
      curl_url_set(url.get(), CURLUPART_PORT, port_text.c_str(), 0) == CURLUE_OK) {
    return url;
  }
  return {};
}

// The longest times that libcurl takes.
long Milliseconds(std::uint32_t time) {
  return static_cast<long>(std::min<std::uint32_t>(time, INT_MAX));
}
long Seconds(std::uint32_t time) {
  return static_cast<long>(std::min<std::uint32_t>(time / 1000 + 1, INT_MAX / 1000));
}

curl_socket_t OpenSocket(void* /*unused*/, curlsocktype /*purpose*/, curl_sockaddr* address) {
  return OpenStreamSocket(address->family).Release();
}

}  // namespace

std::optional<std::string> FtpBytes(std::wstring_view text) {
  std::optional<std::string> bytes = EncodeText(kCodePageAnsi, text);
  std::optional<std::wstring> read_back;
  if (bytes) read_back = DecodeText(kCodePageAnsi, *bytes);
  if (!read_back) return {};
  const WipeOnExit wipe(*read_back);
  constexpr std::string_view kLineBreaks("\r\n\0", 3);
  if (*read_back == text && bytes->find_first_of(kLineBreaks) == std::string::npos) return bytes;
  const WipeOnExit wipe_bytes(*bytes);
  return {};
}

// What libcurl does: resolve, connect, log in. It owns the socket for as long as this object lives.
class FtpControl::Transfer {
 public:
  explicit Transfer(const FtpTimeouts& timeouts)
      : timeouts_(timeouts), deadline_(timeouts.connect) {}
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  ~Transfer() {
    if (multi_ != nullptr) curl_multi_remove_handle(multi_.get(), easy_.get());
  }

  bool LogIn(const FtpAccount& account) {
    if (!SetUp(account)) return false;
    const bool is_done = Perform();
    // libcurl keeps no longer what it need not.
    Set(CURLOPT_USERNAME, nullptr);
    Set(CURLOPT_PASSWORD, nullptr);
    if (!is_done) return false;
    int left = 0;
    const CURLMsg* message = curl_multi_info_read(multi_.get(), &left);
    if (message == nullptr) return Fail(kErrorGenFailure);
    return message->data.result == CURLE_OK || Explain(message->data.result, account.password);
  }

  int Socket() const {
    curl_socket_t socket = CURL_SOCKET_BAD;
    curl_easy_getinfo(easy_.get(), CURLINFO_ACTIVESOCKET, &socket);
    return socket;
  }

 private:
  template <class Value>
  bool Set(CURLoption option, Value value) {
    return curl_easy_setopt(easy_.get(), option, value) == CURLE_OK;
  }

  bool SetUp(const FtpAccount& account) {
    if (!StartCurl()) return Fail(kErrorGenFailure);
    url_ = MakeUrl(account.host, account.port);
    if (url_ == nullptr) return Fail(kErrorInternetNameNotResolved);
    multi_.reset(curl_multi_init());
    easy_.reset(curl_easy_init());
    if (multi_ == nullptr || easy_ == nullptr) return Fail(kErrorNotEnoughMemory);
    const bool is_set =
        Set(CURLOPT_CURLU, url_.get()) && Set(CURLOPT_PROTOCOLS_STR, "ftp") &&
        Set(CURLOPT_CONNECT_ONLY, 1L) && Set(CURLOPT_NOSIGNAL, 1L) && Set(CURLOPT_PROXY, "") &&
        Set(CURLOPT_TCP_KEEPALIVE, 1L) && Set(CURLOPT_QUICK_EXIT, 1L) &&
        Set(CURLOPT_OPENSOCKETFUNCTION, &OpenSocket) && Set(CURLOPT_HEADERFUNCTION, &TakeLine) &&
        Set(CURLOPT_HEADERDATA, static_cast<void*>(this)) &&
        Set(CURLOPT_CONNECTTIMEOUT_MS, Milliseconds(timeouts_.connect)) &&
        Set(CURLOPT_SERVER_RESPONSE_TIMEOUT, Seconds(timeouts_.control_receive)) &&
        Set(CURLOPT_USERNAME, account.user) && Set(CURLOPT_PASSWORD, account.password);
    return (is_set && curl_multi_add_handle(multi_.get(), easy_.get()) == CURLM_OK) ||
           Fail(kErrorNotEnoughMemory);
  }

  bool Perform() {
    deadline_ = Deadline(timeouts_.connect);
    for (;;) {
      int running = 0;
      if (curl_multi_perform(multi_.get(), &running) != CURLM_OK) break;
      if (running == 0) return true;
      NoteConnection();
      const std::uint32_t left = deadline_.Left();
      if (left == 0) return Fail(kErrorInternetTimeout);
      const int wait = static_cast<int>(std::min(left, kLongestPoll));
      if (curl_multi_poll(multi_.get(), nullptr, 0, wait, nullptr) != CURLM_OK) break;
    }
    return Fail(kErrorNotEnoughMemory);
  }

  // libcurl counts the log-in to the time for connecting; here each reply has a time of its own.
  void NoteConnection() {
    curl_off_t time = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_CONNECT_TIME_T, &time);
    if (is_connected_ || time == 0) return;
    is_connected_ = true;
    deadline_ = Deadline(timeouts_.control_receive);
    Set(CURLOPT_CONNECTTIMEOUT_MS, Milliseconds(kNoFtpTimeout));
  }

  static std::size_t TakeLine(char* line, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<Transfer*>(self);
    try {
      if (!transfer.reader_.Add({line, size * count})) return 0;
    } catch (const std::bad_alloc&) {
      return 0;
    }
    if (transfer.reader_.is_complete()) {
      ++transfer.replies_;
      transfer.deadline_ = Deadline(transfer.timeouts_.control_receive);
    }
    return size * count;
  }

  // Sets the last error for a failed log-in.
  bool Explain(CURLcode result, std::string_view password) const {
    const FtpReply& last = reader_.reply();
    const bool is_refused = reader_.is_complete() && last.is_refusal();
    if (is_refused) RememberRefusal(last, password);
    switch (result) {
      case CURLE_COULDNT_RESOLVE_HOST:
      case CURLE_URL_MALFORMAT:
        return Fail(kErrorInternetNameNotResolved);
      case CURLE_COULDNT_CONNECT:
        return Fail(kErrorInternetCannotConnect);
      case CURLE_OPERATION_TIMEDOUT:  // also for a reply of 421
        return Fail(is_refused ? kErrorInternetExtendedError : kErrorInternetTimeout);
      case CURLE_LOGIN_DENIED:
        return Fail(LogInError(last.code));
      case CURLE_OUT_OF_MEMORY:
        return Fail(kErrorNotEnoughMemory);
      case CURLE_WRITE_ERROR:
      case CURLE_WEIRD_SERVER_REPLY:
        return Fail(is_refused ? kErrorInternetExtendedError : kErrorInvalidData);
      default:
        return Fail(is_refused ? kErrorInternetExtendedError : HowItEnded());
    }
  }

  ErrorCode HowItEnded() const {
    long error = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_OS_ERRNO, &error);
    return error == ECONNRESET ? kErrorInternetConnectionReset : kErrorInternetConnectionAborted;
  }

  // The greeting is the first reply, USER has the second one and PASS the third.
  ErrorCode LogInError(int code) const {
    if (code < 500) return kErrorInternetLoginFailure;
    if (replies_ == 2) return kErrorInternetIncorrectUserName;
    return replies_ == 3 ? kErrorInternetIncorrectPassword : kErrorInternetLoginFailure;
  }

  FtpTimeouts timeouts_;
  FtpReplyReader reader_;
  int replies_ = 0;
  bool is_connected_ = false;
  Deadline deadline_;
  Url url_;
  std::unique_ptr<CURLM, MultiDeleter> multi_;
  std::unique_ptr<CURL, EasyDeleter> easy_;
};

std::unique_ptr<FtpControl> FtpControl::Connect(const FtpAccount& account,
                                                const FtpTimeouts& timeouts) {
  auto transfer = std::make_unique<Transfer>(timeouts);
  if (!transfer->LogIn(account)) return {};
  const int socket = transfer->Socket();
  if (socket < 0) {
    Fail(kErrorInternetConnectionAborted);
    return {};
  }
  return std::unique_ptr<FtpControl>(
      new FtpControl(std::move(transfer), socket, account.password, timeouts));
}

FtpControl::FtpControl(std::unique_ptr<Transfer> transfer, int socket, std::string_view password,
                       const FtpTimeouts& timeouts)
    : transfer_(std::move(transfer)),
      socket_(socket),
      timeouts_(timeouts),
      password_(password.begin(), password.end()) {}

FtpControl::~FtpControl() {
  const LastErrorKeeper keep;
  try {
    if (Send("QUIT", {})) Receive(std::min(timeouts_.control_receive, kLongestFarewell));
  } catch (const std::bad_alloc&) {
  }
}

std::optional<FtpReply> FtpControl::Command(std::string_view verb, std::string_view argument,
                                            FtpReplyKind expected) {
  if (!Send(verb, argument)) return {};
  std::optional<FtpReply> reply = Receive(timeouts_.control_receive);
  // A command has at most one preliminary reply (RFC 959, 4.2).
  if (reply && reply->kind() == FtpReplyKind::kPreliminary) {
    reply = Receive(timeouts_.control_receive);
  }
  return Expect(std::move(reply), expected);
}

bool FtpControl::Begin(std::string_view verb, std::string_view argument) {
  if (!Send(verb, argument)) return false;
  const std::optional<FtpReply> reply = Receive(timeouts_.control_receive);
  if (!reply) return false;
  return reply->kind() == FtpReplyKind::kPreliminary || Break(kErrorInvalidData);
}

bool FtpControl::End() {
  return Expect(Receive(timeouts_.control_receive), FtpReplyKind::kCompletion).has_value();
}

std::optional<FtpReply> FtpControl::Expect(std::optional<FtpReply> reply, FtpReplyKind kind) {
  if (!reply || reply->kind() == kind) return reply;
  Break(kErrorInvalidData);
  return {};
}

bool FtpControl::Send(std::string_view verb, std::string_view argument) {
  if (is_broken_) return Fail(kErrorInternetConnectionAborted);
  // Nobody has asked for what lies here before the command: the server is closing the connection.
  if (!unread_.empty()) return Break(kErrorInternetConnectionAborted);
  if (HasNews(socket_)) {
    char byte = 0;
    const bool is_reset = !ReceiveSome(socket_, &byte, 1, 0);
    return Break(is_reset ? GetLastError() : kErrorInternetConnectionAborted);
  }
  std::string line(verb);
  if (!argument.empty()) line.append(" ").append(argument);
  line += "\r\n";
  return SendAll(socket_, line, timeouts_.control_send) == Sent::kAll || Break(GetLastError());
}

std::optional<FtpReply> FtpControl::Receive(std::uint32_t timeout) noexcept {
  try {
    return ReceiveReply(timeout);
  } catch (const std::bad_alloc&) {
    Break(kErrorNotEnoughMemory);
    return {};
  }
}

std::optional<FtpReply> FtpControl::ReceiveReply(std::uint32_t timeout) {
  FtpReplyReader reader;
  const Deadline deadline(timeout);
  do {
    const std::optional<std::string> line = TakeLine(deadline);
    if (!line) return {};
    if (!reader.Add(*line)) {
      Break(kErrorInvalidData);
      return {};
    }
  } while (!reader.is_complete());
  const FtpReply& reply = reader.reply();
  if (!reply.is_refusal()) return reply;
  RememberRefusal(reply, {reinterpret_cast<const char*>(password_.data()), password_.size()});
  if (reply.code == kServiceClosing) is_broken_ = true;
  Fail(kErrorInternetExtendedError);
  return {};
}

std::optional<std::string> FtpControl::TakeLine(const Deadline& deadline) {
  for (;;) {
    const std::size_t end = unread_.find('\n');
    if (end != std::string::npos) {
      std::string line = unread_.substr(0, end + 1);
      unread_.erase(0, end + 1);
      return line;
    }
    char piece[4096];
    const std::optional<std::size_t> got =
        is_broken_ ? 0 : ReceiveSome(socket_, piece, sizeof piece, deadline.Left());
    if (!got || *got == 0 || unread_.size() > kLongestLine) {
      Break(!got ? GetLastError() : kErrorInternetConnectionAborted);
      return {};
    }
    unread_.append(piece, *got);
  }
}

bool FtpControl::Break(ErrorCode code) {
  is_broken_ = true;
  return Fail(code);
}

}  // namespace vk::tq
