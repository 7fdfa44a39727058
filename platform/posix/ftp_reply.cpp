#include "platform/posix/ftp_reply.h"

#include <algorithm>
#include <cstddef>

#include "platform/ftp_session.h"
#include "platform/posix/native.h"

namespace vk::tq {
namespace {

constexpr std::size_t kMostReplyBytes = std::size_t{64} * 1024;
constexpr std::size_t kCodeLength = 3;

thread_local FtpReply last_refusal;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The code that a line begins with; 0 when there is none.
int CodeOf(std::string_view line) {
  if (line.size() < kCodeLength || !IsDigit(line[1]) || !IsDigit(line[2])) return 0;
  if (line[0] < '1' || line[0] > '5') return 0;
  return (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
}

// What stands behind the code: a hyphen when more lines follow.
char MarkOf(std::string_view line) { return line.size() > kCodeLength ? line[kCodeLength] : ' '; }

}  // namespace

bool FtpReplyReader::Add(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  const int code = CodeOf(line);
  const char mark = MarkOf(line);
  if (is_complete_) {
    if (code == 0 || (mark != ' ' && mark != '-')) return false;
    reply_ = {code, std::string(line)};
    is_complete_ = mark == ' ';
  } else {
    reply_.text.append("\r\n").append(line);
    is_complete_ = code == reply_.code && mark == ' ';
  }
  return reply_.text.size() <= kMostReplyBytes;
}

void RememberRefusal(const FtpReply& reply, std::string_view secret) {
  // A mark in place of the secret would show by its place what the secret is.
  const bool tells = !secret.empty() && reply.text.find(secret) != std::string::npos;
  last_refusal = {reply.code, tells ? reply.text.substr(0, kCodeLength) : reply.text};
}

void ForgetRefusal() noexcept {
  last_refusal.code = 0;
  last_refusal.text.clear();
}

bool LastFtpResponse(ErrorCode& code, std::span<char> text) {
  if (last_refusal.text.size() >= text.size()) return Fail(kErrorInsufficientBuffer);
  code = static_cast<ErrorCode>(last_refusal.code);
  *std::ranges::copy(last_refusal.text, text.begin()).out = '\0';
  return true;
}

}  // namespace vk::tq
