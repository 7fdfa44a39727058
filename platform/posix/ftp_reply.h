// Replies of an FTP server (RFC 959, 4.2): reading them, and the last refusal of a thread.
#pragma once

#include <string>
#include <string_view>

namespace vk::tq {

struct FtpReply {
  int code = 0;
  std::string text;  // every line, code and all, with CR LF between two of them

  bool is_preliminary() const { return code < 200; }
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

// What LastFtpResponse tells of this thread.
void RememberRefusal(const FtpReply& reply);
void ForgetRefusal() noexcept;

}  // namespace vk::tq
