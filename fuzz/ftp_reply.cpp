// Replies and directory listings of an FTP server. Input: a line (the name that is looked for), and
// what the server says.
#include "platform/posix/ftp_reply.h"

#include "fuzz/support.h"
#include "platform/posix/ftp_listing.h"

using namespace vk::tq;
using namespace vk::tq::fuzzing;

namespace {

void CheckReply(Input lines) {
  FtpReplyReader reader;
  std::size_t size = 0;
  while (!lines.IsEmpty()) {
    const std::string_view line = lines.Line();
    size += line.size() + 2;
    if (!reader.Add(line)) return;
    const FtpReply& reply = reader.reply();
    Require(reply.code >= 100 && reply.code <= 599, "a code has three digits");
    Require(reply.text.starts_with(std::to_string(reply.code)), "a reply begins with its code");
    Require(reply.text.size() <= size, "a reply is no longer than its lines");
    Require(reader.is_complete() || reply.text[3] == '-', "more lines follow a hyphen alone");
  }
}

void CheckListing(std::string_view name, std::string_view listing) {
  for (const bool is_alone : {false, true}) {
    FtpListingSearch whole(name, is_alone);
    whole.Add(listing);
    FtpListingSearch pieces(name, is_alone);
    for (std::size_t i = 0; i < listing.size(); i += 3) pieces.Add(listing.substr(i, 3));
    Require(whole.Finish() == pieces.Finish(),
            "it does not matter in which pieces a listing comes");
  }
}

void CheckLine(std::string_view line) {
  const std::optional<FtpListedFile> file = ParseListingLine(line);
  if (!file) return;
  const bool is_link = line.front() == 'l';
  Require(is_link ? line.find(file->name) != line.npos : line.ends_with(file->name),
          "a line ends with the name");
  Require(line.find(std::to_string(file->size)) != line.npos, "the size stands in the line");
}

}  // namespace

TQ_FUZZ_TARGET(input) {
  const std::string_view name = input.Line();
  CheckReply(input);
  CheckListing(name, input.Rest());
  while (!input.IsEmpty()) CheckLine(input.Line());
}
