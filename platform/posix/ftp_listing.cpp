#include "platform/posix/ftp_listing.h"

#include <algorithm>
#include <array>

#include "platform/posix/number.h"

namespace vk::tq {
namespace {

constexpr std::string_view kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::size_t kLongestLine = std::size_t{64} * 1024;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Whether a text has a digit for each 0 of a pattern, and is otherwise equal to it.
bool HasForm(std::string_view text, std::string_view pattern) {
  return std::ranges::equal(text, pattern,
                            [](char c, char form) { return form == '0' ? IsDigit(c) : c == form; });
}

// Cuts the next word off a text, with the blanks in front of it.
std::string_view TakeWord(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(word.size());
  return word;
}

// The name begins behind one blank: further ones belong to it.
std::string_view NameIn(std::string_view rest) { return rest.empty() ? rest : rest.substr(1); }

bool IsMonth(std::string_view word) { return std::ranges::find(kMonths, word) != end(kMonths); }

// What follows a date and a time that begin with a word; nothing when that is no date.
std::optional<std::string_view> BehindDate(std::string_view word, std::string_view rest) {
  if (IsMonth(word)) {
    const std::optional<std::uint64_t> day = WholeNumber<std::uint64_t>(TakeWord(rest));
    if (!day || *day < 1 || *day > 31) return {};
    const std::string_view time_or_year = TakeWord(rest);
    if (!HasForm(time_or_year, "00:00") && !HasForm(time_or_year, "0000")) return {};
    return rest;
  }
  if (!HasForm(word, "0000-00-00") || !HasForm(TakeWord(rest), "00:00")) return {};
  return rest;
}

std::optional<FtpListedFile> ParseUnix(std::string_view line) {
  std::string_view rest = line;
  TakeWord(rest);
  // Owner and group may be missing, so the size is known by the date behind it.
  std::optional<std::uint64_t> size;
  for (std::string_view word = TakeWord(rest); !word.empty(); word = TakeWord(rest)) {
    const std::optional<std::string_view> behind = size ? BehindDate(word, rest) : std::nullopt;
    if (behind) {
      std::string_view name = NameIn(*behind);
      if (line.front() == 'l') name = name.substr(0, name.find(" -> "));
      return FtpListedFile{name, *size};
    }
    size = WholeNumber<std::uint64_t>(word);
  }
  return {};
}

std::optional<FtpListedFile> ParseDos(std::string_view rest) {
  TakeWord(rest);
  if (!HasForm(TakeWord(rest).substr(0, 5), "00:00")) return {};
  const std::optional<std::uint64_t> size = WholeNumber<std::uint64_t>(TakeWord(rest));
  if (!size) return {};
  return FtpListedFile{NameIn(rest), *size};
}

std::string_view LastComponent(std::string_view path) {
  return path.substr(path.find_last_of('/') + 1);
}

}  // namespace

std::optional<FtpListedFile> ParseListingLine(std::string_view line) {
  if (line.empty()) return {};
  if (line.front() == '-' || line.front() == 'l') return ParseUnix(line);
  const std::string_view date = line.substr(0, line.find(' '));
  if (HasForm(date, "00-00-00") || HasForm(date, "00-00-0000")) return ParseDos(line);
  return {};
}

// Asked for a file in another directory, some servers list it by its bare name. In a listing of the
// current directory that would be another file.
FtpListingSearch::FtpListingSearch(std::string_view name, bool is_alone)
    : name_(name), bare_name_(is_alone ? LastComponent(name) : name) {}

void FtpListingSearch::Add(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t end = std::min(bytes.find('\n'), bytes.size());
    if (line_.size() < kLongestLine) line_ += bytes.substr(0, end);
    if (end == bytes.size()) return;
    Look();
    bytes.remove_prefix(end + 1);
  }
}

std::optional<std::uint64_t> FtpListingSearch::Finish() {
  Look();
  return size_;
}

void FtpListingSearch::Look() {
  if (!line_.empty() && line_.back() == '\r') line_.pop_back();
  const std::optional<FtpListedFile> file = ParseListingLine(line_);
  if (!size_ && file && (file->name == name_ || file->name == bare_name_)) size_ = file->size;
  line_.clear();
}

}  // namespace vk::tq
