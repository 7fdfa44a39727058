// The control connection of an FTP session.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/posix/ftp_reply.h"
#include "platform/posix/ftp_socket.h"
#include "platform/secure_memory.h"

namespace vk::tq {

// Milliseconds; kNoFtpTimeout for none.
struct FtpTimeouts {
  std::uint32_t connect = 30000;
  std::uint32_t control_send = 30000;
  std::uint32_t control_receive = 30000;
  std::uint32_t data_send = 30000;
  std::uint32_t data_receive = 30000;
};

// A text as it goes out in a command, in the ANSI code page; nothing when it would be another text
// there, or more than one line.
std::optional<std::string> FtpBytes(std::wstring_view text);

// Whom to call and as whom, in the bytes that go out.
struct FtpAccount {
  std::string_view host;
  std::uint16_t port;
  const char* user;
  const char* password;
};

// One control connection, from the log-in on. When it breaks it stays broken: every command fails
// with 12030.
//
// libcurl resolves, connects and logs in; then it hands the socket over, and commands and replies
// are written and read here. docs/decisions/ftp.md tells why.
class FtpControl {
 public:
  // Null, with the last error set, on failure.
  static std::unique_ptr<FtpControl> Connect(const FtpAccount& account,
                                             const FtpTimeouts& timeouts);
  FtpControl(const FtpControl&) = delete;
  FtpControl& operator=(const FtpControl&) = delete;
  // Takes leave of the server.
  ~FtpControl();

  int socket() const { return socket_; }

  // Sends a command and reads its final reply: nothing when that is a refusal. One of another kind
  // than the expected one breaks the connection, since it leaves open what the server waits for.
  std::optional<FtpReply> Command(std::string_view verb, std::string_view argument = {},
                                  FtpReplyKind expected = FtpReplyKind::kCompletion);

  // Sends a command that moves a file, and reads the reply that it begins with.
  bool Begin(std::string_view verb, std::string_view argument);
  // Reads the reply that ends what Begin began.
  bool End();

 private:
  class Transfer;

  FtpControl(std::unique_ptr<Transfer> transfer, int socket, std::string_view password,
             const FtpTimeouts& timeouts);

  bool Send(std::string_view verb, std::string_view argument);
  // The next reply; nothing when none is whole in time or there is no memory for it (then the
  // connection is broken, since the next command would take it for its own) or it is a refusal.
  std::optional<FtpReply> Receive(std::uint32_t timeout) noexcept;
  std::optional<FtpReply> ReceiveReply(std::uint32_t timeout);
  std::optional<FtpReply> Expect(std::optional<FtpReply> reply, FtpReplyKind kind);
  std::optional<std::string> TakeLine(const Deadline& deadline);
  bool Break(ErrorCode code);

  std::unique_ptr<Transfer> transfer_;
  int socket_;  // the transfer's
  FtpTimeouts timeouts_;
  SecureBytes password_;  // to be kept out of what is told of replies
  std::string unread_;
  bool is_broken_ = false;
};

}  // namespace vk::tq
