// Replies of an FTP server (RFC 959, 4.2): reading them, and the last refusal of a thread.
#pragma once

#include <string>
#include <string_view>

namespace vk::tq {

enum class FtpReplyKind { kPreliminary = 1, kCompletion = 2, kIntermediate = 3 };

struct FtpReply {
  int code = 0;
  std::string text;  // every line, code and all, with CR LF between two of them

  // What the first digit says.
  FtpReplyKind kind() const { return static_cast<FtpReplyKind>(code / 100); }
  bool is_refusal() const { return code >= 400; }
};

// Puts a reply together from its lines.
class FtpReplyReader {
 public:
  // Takes the next line, with or without its line end; the line behind a complete reply begins a
  // new one. False when the line cannot be part of a reply, or the reply grows beyond all measure.
  bool Add(std::string_view line);

  bool is_complete() const { return is_complete_; }
  const FtpReply& reply() const { return reply_; }

 private:
  FtpReply reply_;
  bool is_complete_ = true;
};

// What LastFtpResponse tells of this thread. A reply that has the secret in it, if there is one,
// loses its text.
void RememberRefusal(const FtpReply& reply, std::string_view secret);
void ForgetRefusal() noexcept;

}  // namespace vk::tq
